// The value, its description, and the dictionary of a file.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Support/FakeFileContents.h"
#include "Support/MemoryLimit.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/ResourceShortage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

namespace {

using NS::PropertyList;

PropertyList nested(std::size_t depth) {
  PropertyList list("innermost");
  for (std::size_t level = 0; level < depth; ++level) {
    PropertyList::Array outer;
    outer.push_back(std::move(list));
    list = PropertyList(std::move(outer));
  }
  return list;
}

TEST(PropertyListValue, tellsItsKindAndGivesNothingAsAnotherKind) {
  PropertyList text("x"), number(7), flag(true), real(1.5);
  EXPECT_EQ(text.kind(), PropertyList::Kind::String);
  EXPECT_EQ(number.kind(), PropertyList::Kind::Integer);
  EXPECT_EQ(flag.kind(), PropertyList::Kind::Boolean);
  EXPECT_EQ(real.kind(), PropertyList::Kind::Real);
  EXPECT_EQ(number.string(), nullptr);
  EXPECT_EQ(text.integer(), std::nullopt);
  EXPECT_EQ(flag.integer(), std::nullopt);
  EXPECT_EQ(text.objectForKey("x"), nullptr);
  EXPECT_EQ(PropertyList(PropertyList::Array{}).kind(), PropertyList::Kind::Array);
  EXPECT_EQ(PropertyList(PropertyList::Dictionary{}).kind(), PropertyList::Kind::Dictionary);
}

TEST(PropertyListValue, isUnsignedUnlessNegative) {
  constexpr std::uint64_t large = std::uint64_t{1} << 63;
  EXPECT_EQ(PropertyList(0).unsignedInteger(), 0u);
  EXPECT_EQ(PropertyList(large).unsignedInteger(), large);
  EXPECT_EQ(PropertyList(-1).unsignedInteger(), std::nullopt);
  EXPECT_EQ(PropertyList("1").unsignedInteger(), std::nullopt);
  EXPECT_EQ(PropertyList(large).integer(), std::nullopt);
}

TEST(PropertyListValue, findsTheValueOfItsKeyAlone) {
  using namespace std::string_literals;
  PropertyList list(PropertyList::Dictionary{{"b\0"s, 1}, {"b", 2}, {"d", 3}});
  for (std::string_view key : {"a"s, "ba"s, "c"s, "e"s, ""s, "b\0\0"s})
    EXPECT_EQ(list.objectForKey(key), nullptr) << key;
  EXPECT_EQ(*list.objectForKey("b"), PropertyList(2));
  EXPECT_EQ(*list.objectForKey("b\0"s), PropertyList(1));
  list.setObjectForKey("new", "a");
  list.setObjectForKey("new", "c");
  list.removeObjectForKey("ba");
  EXPECT_EQ(list, PropertyList(PropertyList::Dictionary{
                      {"a", "new"}, {"b", 2}, {"b\0"s, 1}, {"c", "new"}, {"d", 3}}));
}

TEST(PropertyListValue, copiesShareUntilOneIsChanged) {
  PropertyList original(PropertyList::Dictionary{{"a", 1}});
  PropertyList copy = original;
  copy.setObjectForKey("two", "b");
  copy.setObjectForKey(3, "a");
  copy.removeObjectForKey("nothing");
  EXPECT_EQ(original, PropertyList(PropertyList::Dictionary{{"a", 1}}));
  EXPECT_EQ(copy, PropertyList(PropertyList::Dictionary{{"a", 3}, {"b", "two"}}));
  original.removeObjectForKey("a");
  EXPECT_TRUE(original.dictionary()->empty());
  EXPECT_EQ(copy.dictionary()->size(), 2u);
}

TEST(PropertyListValue, becomesAPartOfItself) {
  for (const PropertyList &part :
       {PropertyList(1), PropertyList(0.5), PropertyList("a text too long to stand in place"),
        PropertyList(PropertyList::Array{1, 2})}) {
    PropertyList list(PropertyList::Dictionary{{"part", part}});
    list = *list.objectForKey("part");
    EXPECT_EQ(list, part);
  }
}

TEST(PropertyListValue, ofEntriesWithOneKeyTheLastStays) {
  PropertyList list(PropertyList::Dictionary{{"b", 1}, {"a", 2}, {"b", 3}, {"a", 4}, {"b", 5}});
  EXPECT_EQ(list, PropertyList(PropertyList::Dictionary{{"a", 4}, {"b", 5}}));
  EXPECT_EQ(PropertyList(PropertyList::Dictionary{{"a", 1}, {"a", 2}}),
            PropertyList(PropertyList::Dictionary{{"a", 2}}));
}

TEST(PropertyListValue, equalsOnlyItsOwnKind) {
  EXPECT_NE(PropertyList(1), PropertyList(true));
  EXPECT_NE(PropertyList(1), PropertyList(1.0));
  EXPECT_NE(PropertyList("1"), PropertyList(PropertyList::Data{"1"}));
  EXPECT_NE(PropertyList(PropertyList::Array{}), PropertyList(PropertyList::Dictionary{}));
  EXPECT_EQ(PropertyList(std::nan("")), PropertyList(std::nan("")));
  EXPECT_NE(PropertyList(std::nan("")), PropertyList(0.5));
  EXPECT_NE(PropertyList(0.5), PropertyList(std::nan("")));
  EXPECT_NE(PropertyList(std::uint64_t{1} << 63),
            PropertyList(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(PropertyList(std::uint64_t{5}), PropertyList(5));
}

TEST(PropertyListValue, equalsAListWithTheSameContentsAlone) {
  using Array = PropertyList::Array;
  using Dictionary = PropertyList::Dictionary;
  PropertyList array(Array{1, "a"}), dictionary(Dictionary{{"a", 1}, {"b", 2}});
  PropertyList sameArray = array, sameDictionary = dictionary;
  EXPECT_EQ(array, sameArray);
  EXPECT_EQ(dictionary, sameDictionary);
  EXPECT_EQ(array, PropertyList(Array{1, "a"}));
  EXPECT_EQ(dictionary, PropertyList(Dictionary{{"b", 2}, {"a", 1}}));
  for (const Array &other : {Array{}, Array{1}, Array{1, "b"}, Array{2, "a"}, Array{1, "a", 2}})
    EXPECT_NE(array, PropertyList(other));
  for (const Dictionary &other : {Dictionary{}, Dictionary{{"a", 1}},
                                  Dictionary{{"a", 1}, {"c", 2}}, Dictionary{{"a", 1}, {"b", 3}},
                                  Dictionary{{"0", 1}, {"b", 2}}, Dictionary{{"a", 2}, {"b", 2}}})
    EXPECT_NE(dictionary, PropertyList(other));
}

TEST(PropertyListValue, equalsNoOtherValueOfItsKind) {
  constexpr std::uint64_t large = std::uint64_t{1} << 63;
  const PropertyList::Array values{true,
                                   false,
                                   1,
                                   2,
                                   large,
                                   large + 1,
                                   0.5,
                                   1.5,
                                   "a",
                                   "b",
                                   PropertyList::Date{1},
                                   PropertyList::Date{2},
                                   PropertyList::Data{"a"},
                                   PropertyList::Data{"b"}};
  for (std::size_t one = 0; one < values.size(); ++one)
    for (std::size_t other = 0; other < values.size(); ++other)
      EXPECT_EQ(values[one] == values[other], one == other) << one << ' ' << other;
}

TEST(PropertyListValue, leavesNoMemoryBehind) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  kwtest::MemoryLimit limit(64u << 20);
  for (int round = 0; round < 20; ++round) {
    PropertyList list(PropertyList::Array{std::string(16u << 20, 'x')});
    PropertyList copy = list;
    PropertyList outer(PropertyList::Dictionary{{"a", copy}, {"b", list}});
    EXPECT_EQ(*outer.objectForKey("a"), copy);
  }
}

TEST(PropertyListValue, ofAMillionLevelsIsComparedAndDestroyed) {
  PropertyList deep = nested(1'000'000), other = nested(1'000'000), shallower = nested(999'999);
  EXPECT_TRUE(deep == other);
  EXPECT_FALSE(deep == shallower);
  PropertyList copy = deep;
  deep = PropertyList(1);
  EXPECT_TRUE(copy == other);
}

TEST(PropertyListValue, isSharedByThreadsThatCopyChangeAndDestroyIt) {
  PropertyList shared(PropertyList::Dictionary{{"a", nested(50)}, {"b", 1}});
  PropertyList untouched = shared;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([copy = shared]() mutable {
      for (int round = 0; round < 500; ++round) {
        PropertyList own = copy;
        own.setObjectForKey(round, "b");
        own.removeObjectForKey("a");
        copy = PropertyList(PropertyList::Dictionary{{"outer", copy}});
        copy = *copy.objectForKey("outer");
      }
    });
  shared = PropertyList(1);
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(untouched.objectForKey("b")->integer(), 1);
  EXPECT_EQ(*untouched.objectForKey("a"), nested(50));
}

TEST(PropertyListValue, readsAsBoolAsThePlatformDoes) {
  EXPECT_TRUE(PropertyList(true).boolValue());
  EXPECT_FALSE(PropertyList(false).boolValue());
  EXPECT_TRUE(PropertyList(-1).boolValue());
  EXPECT_FALSE(PropertyList(0).boolValue());
  EXPECT_TRUE(PropertyList(0.5).boolValue());
  EXPECT_TRUE(PropertyList(1.0).boolValue());
  EXPECT_FALSE(PropertyList(0.0).boolValue());
  EXPECT_TRUE(PropertyList(std::uint64_t{1} << 63).boolValue());
  EXPECT_FALSE(PropertyList(PropertyList::Date{1}).boolValue());
  EXPECT_FALSE(PropertyList(PropertyList::Data{"1"}).boolValue());
  for (const char *text : {"YES", "yes", "true", "T", "1", " 9", "+01", "-5"})
    EXPECT_TRUE(PropertyList(text).boolValue()) << text;
  for (const char *text : {"", "NO", "false", "0", "000", "on", "x1", " "})
    EXPECT_FALSE(PropertyList(text).boolValue()) << text;
  EXPECT_FALSE(PropertyList(PropertyList::Array{}).boolValue());
}

TEST(PropertyListValue, describesItselfAsThePlatformDoes) {
  EXPECT_EQ(NS::describe(PropertyList("bare text")), "bare text");
  EXPECT_EQ(NS::describe(PropertyList(true)), "1");
  EXPECT_EQ(NS::describe(PropertyList(PropertyList::Dictionary{
                {"Label", "org.example"}, {"two words", PropertyList::Array{"a b", 2}}})),
            "{\n    Label = org.example;\n    \"two words\" =     (\n        \"a b\",\n"
            "        2\n    );\n}");
  EXPECT_EQ(NS::describe(PropertyList(PropertyList::Array{"a b"})), "(\n    \"a b\"\n)");
  EXPECT_EQ(NS::describe(PropertyList(PropertyList::Array{})), "(\n)");
  EXPECT_EQ(NS::describe(PropertyList(PropertyList::Dictionary{})), "{\n}");
}

TEST(PropertyListValue, isIndentedUpToSixtyFourLevelsInItsDescription) {
  std::string text = NS::describe(nested(70));
  EXPECT_NE(text.find("\n" + std::string(256, ' ') + "innermost\n"), std::string::npos);
}

TEST(PropertyListValue, isDescribedInSixtyFourKibibytesAndTheRestOfAnElement) {
  std::string lines;
  while (lines.size() < (64u << 10) - 2)
    lines += "    1,\n";
  ASSERT_EQ(lines.size(), (64u << 10) - 2);
  PropertyList many(PropertyList::Array(20'000, 1));
  EXPECT_EQ(NS::describe(many), "(\n" + lines + "…");
  // The second element is begun when there is no more room.
  std::string text((64u << 10) - 14, 'x');
  PropertyList two(PropertyList::Array{text, PropertyList::Array{}});
  EXPECT_EQ(NS::describe(two), "(\n    " + text + ",\n    (\n…");
  EXPECT_LT(NS::describe(nested(100'000)).size(), 100'000u);
}

TEST(DictionaryWithContentsOfFile, isNothingForAnythingElse) {
  kwtest::ScratchFolder scratch;
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.path("missing")));
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.path()));
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.file("a", "<array/>")));
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.file("b", "garbage")));
  EXPECT_TRUE(NS::dictionaryWithContentsOfFile(scratch.file("c", "<dict/>")));
}

TEST(DictionaryWithContentsOfFile, isNotNothingForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  kwtest::ScratchFolder scratch;
  std::string path = scratch.file("a", "<dict/>");
  for (std::size_t left : {0u, 1u}) {
    kwtest::FewDescriptorsLeft few(left);
    EXPECT_THROW(NS::dictionaryWithContentsOfFile(path), NS::ResourceShortage) << left;
  }
  kwtest::FewDescriptorsLeft few(2);
  EXPECT_TRUE(NS::dictionaryWithContentsOfFile(path));
}

// A lack of memory that only the kernel meets.
TEST(DictionaryWithContentsOfFile, tellsALackFromAnUnreadableFile) {
  kwtest::FakeFileContents contents;
  NS::ScopedOverride<NS::FileContents> override(contents);
  for (int lack : {ENOMEM, ENFILE}) {
    contents.readFailure = lack;
    EXPECT_THROW(NS::dictionaryWithContentsOfFile("/a"), NS::ResourceShortage) << lack;
  }
  for (int failure : {EACCES, EIO, EISDIR, EFBIG}) {
    contents.readFailure = failure;
    EXPECT_FALSE(NS::dictionaryWithContentsOfFile("/a")) << failure;
  }
}

} // namespace
