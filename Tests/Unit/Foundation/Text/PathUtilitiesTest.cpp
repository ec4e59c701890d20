// The documented behaviour of the platform's path functions, as tables.
#include "Foundation/Text/PathUtilities.h"

#include <gtest/gtest.h>

namespace {

struct Row {
  const char *input;
  const char *expected;
};

TEST(PathUtilities, deleteTheLastComponent) {
  for (auto [input, expected] :
       {Row{"/tmp/scratch.tiff", "/tmp"}, Row{"/tmp/lock/", "/tmp"}, Row{"/tmp/", "/"},
        Row{"/tmp", "/"}, Row{"/", "/"}, Row{"scratch.tiff", ""}, Row{"", ""}, Row{"a/b", "a"},
        Row{"/a//b///c", "/a/b"}, Row{"//", "/"}})
    EXPECT_EQ(NS::stringByDeletingLastPathComponent(input), expected) << input;
}

TEST(PathUtilities, giveTheLastComponent) {
  for (auto [input, expected] :
       {Row{"/tmp/scratch.tiff", "scratch.tiff"}, Row{"/tmp/scratch", "scratch"},
        Row{"/tmp/", "tmp"}, Row{"scratch///", "scratch"}, Row{"a/", "a"}, Row{"/", "/"},
        Row{"", ""}})
    EXPECT_EQ(NS::lastPathComponent(input), expected) << input;
}

TEST(PathUtilities, appendAComponent) {
  EXPECT_EQ(NS::stringByAppendingPathComponent("/tmp", "scratch.tiff"), "/tmp/scratch.tiff");
  EXPECT_EQ(NS::stringByAppendingPathComponent("/tmp/", "scratch.tiff"), "/tmp/scratch.tiff");
  EXPECT_EQ(NS::stringByAppendingPathComponent("/", "scratch.tiff"), "/scratch.tiff");
  EXPECT_EQ(NS::stringByAppendingPathComponent("", "scratch.tiff"), "scratch.tiff");
  EXPECT_EQ(NS::stringByAppendingPathComponent("/tmp", "/scratch/"), "/tmp/scratch");
  EXPECT_EQ(NS::stringByAppendingPathComponent("/tmp/", ""), "/tmp");
}

TEST(PathUtilities, giveTheExtension) {
  for (auto [input, expected] :
       {Row{"/tmp/scratch.tiff", "tiff"}, Row{".scratch.tiff", "tiff"}, Row{"/tmp/scratch", ""},
        Row{"/tmp/", ""}, Row{"/tmp/scratch..tiff", "tiff"}, Row{".tiff", ""}, Row{"a.b/c", ""},
        Row{"a.tar.gz", "gz"}, Row{"a.", ""}, Row{"a.c", "c"}, Row{"a.app/", "app"}})
    EXPECT_EQ(NS::pathExtension(input), expected) << input;
}

TEST(PathUtilities, deleteTheExtension) {
  for (auto [input, expected] :
       {Row{"/tmp/scratch.tiff", "/tmp/scratch"}, Row{"/tmp/", "/tmp"},
        Row{"scratch.bundle/", "scratch"}, Row{"scratch..tiff", "scratch."}, Row{".tiff", ".tiff"},
        Row{"/", "/"}, Row{"a.b/c", "a.b/c"}, Row{"a.", "a."}, Row{"a.c", "a"}})
    EXPECT_EQ(NS::stringByDeletingPathExtension(input), expected) << input;
}

TEST(PathUtilities, appendAnExtension) {
  EXPECT_EQ(NS::stringByAppendingPathExtension("/tmp/scratch.old", "tiff"),
            "/tmp/scratch.old.tiff");
  EXPECT_EQ(NS::stringByAppendingPathExtension("/tmp/scratch.", "tiff"), "/tmp/scratch..tiff");
  EXPECT_EQ(NS::stringByAppendingPathExtension("/tmp/", "tiff"), "/tmp.tiff");
  EXPECT_EQ(NS::stringByAppendingPathExtension("scratch", "tiff"), "scratch.tiff");
  EXPECT_EQ(NS::stringByAppendingPathExtension("/", "tiff"), "/");
}

TEST(PathUtilities, tellNamesOfItemsFromOtherTexts) {
  for (std::string_view name : {"a", ".a", "...", "a b", "\xff"})
    EXPECT_TRUE(NS::isFileName(name)) << name;
  for (std::string_view other : {"", ".", "..", "/", "a/b", "a/"})
    EXPECT_FALSE(NS::isFileName(other)) << other;
  EXPECT_FALSE(NS::isFileName(std::string_view("a\0b", 3)));
}

TEST(PathUtilities, findANulByte) {
  EXPECT_TRUE(NS::holdsNul(std::string_view("/a\0b", 4)));
  EXPECT_FALSE(NS::holdsNul("/a"));
  EXPECT_FALSE(NS::holdsNul(""));
}

TEST(PathUtilities, keepBytesOfInvalidUTF8) {
  EXPECT_EQ(NS::lastPathComponent("/a/\xff\xfe.b"), "\xff\xfe.b");
  EXPECT_EQ(NS::stringByDeletingLastPathComponent("/\xff/\n"), "/\xff");
}

} // namespace
