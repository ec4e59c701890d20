// The table of standard folders, the column of each host.
#include "Foundation/Desktop/Internal/StandardFolderTable.h"

#include <gtest/gtest.h>

namespace {

using NS::FolderBase;
using NS::FolderHost;
using NS::SearchPathDirectory;
using Paths = std::vector<std::string>;

// With "~" and the like for the bases.
std::string describe(const NS::FolderPlace &place) {
  constexpr const char *bases[] = {"none", "/", "~", "data", "caches", "own"};
  return NS::standardFolderPath(bases[static_cast<int>(place.base)], place.path);
}

Paths search(FolderHost host, SearchPathDirectory directory, NS::SearchPathDomainMask mask) {
  Paths found;
  for (const NS::FolderPlace &place : NS::standardFolderPlaces(host, directory, mask))
    found.push_back(describe(place));
  return found;
}

TEST(StandardFolderTable, beginsWithTheUsersFolders) {
  EXPECT_EQ(search(FolderHost::macOS, SearchPathDirectory::Caches, NS::AllDomainsMask),
            (Paths{"~/Library/Caches", "/Library/Caches", "/System/Library/Caches"}));
  EXPECT_EQ(
      search(FolderHost::macOS, SearchPathDirectory::Application, NS::AllDomainsMask),
      (Paths{"~/Applications", "/Applications", "/Network/Applications", "/System/Applications"}));
  EXPECT_EQ(
      search(FolderHost::Linux, SearchPathDirectory::Application, NS::AllDomainsMask),
      (Paths{"data/applications", "/usr/local/share/applications", "/usr/share/applications"}));
}

TEST(StandardFolderTable, givesOnlyTheDomainsAskedFor) {
  auto macOS = [](NS::SearchPathDomainMask mask) {
    return search(FolderHost::macOS, SearchPathDirectory::Library, mask);
  };
  EXPECT_EQ(macOS(NS::UserDomainMask), Paths{"~/Library"});
  EXPECT_EQ(macOS(NS::LocalDomainMask), Paths{"/Library"});
  EXPECT_EQ(macOS(NS::SystemDomainMask), Paths{"/System/Library"});
  EXPECT_EQ(search(FolderHost::Linux, SearchPathDirectory::Library, NS::NetworkDomainMask),
            Paths{});
}

TEST(StandardFolderTable, hasEveryKindInTheUsersDomainOfEachHost) {
  for (auto directory :
       {SearchPathDirectory::Application, SearchPathDirectory::Library,
        SearchPathDirectory::Document, SearchPathDirectory::Desktop, SearchPathDirectory::Caches,
        SearchPathDirectory::ApplicationSupport, SearchPathDirectory::Downloads,
        SearchPathDirectory::Movies, SearchPathDirectory::Music, SearchPathDirectory::Pictures,
        SearchPathDirectory::SharedPublic, SearchPathDirectory::Trash}) {
    auto macOS = NS::standardFolderPlaces(FolderHost::macOS, directory, NS::UserDomainMask);
    ASSERT_EQ(macOS.size(), 1u) << static_cast<int>(directory);
    EXPECT_EQ(macOS[0].base, FolderBase::Home);
    EXPECT_EQ(NS::standardFolderPlaces(FolderHost::Linux, directory, NS::UserDomainMask).size(),
              1u);
  }
  EXPECT_EQ(search(FolderHost::macOS, SearchPathDirectory::Trash, NS::AllDomainsMask),
            Paths{"~/.Trash"});
}

TEST(StandardFolderTable, abbreviatesTheHomeAndNothingThatLooksLikeIt) {
  EXPECT_EQ(NS::stringByAbbreviatingHome("/home/me/x", "/home/me"), "~/x");
  EXPECT_EQ(NS::stringByAbbreviatingHome("/home/me", "/home/me"), "~");
  EXPECT_EQ(NS::stringByAbbreviatingHome("/home/meadow", "/home/me"), "/home/meadow");
  EXPECT_EQ(NS::stringByAbbreviatingHome("/x", "/"), "/x");
}

} // namespace
