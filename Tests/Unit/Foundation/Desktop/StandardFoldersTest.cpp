// The base directories of the desktop, over an invented environment.
#include "Foundation/Desktop/StandardFolders.h"

#include "Foundation/Base/SharedInstance.h"
#include "Support/FakeUsers.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using NS::SearchPathDirectory;
using Paths = std::vector<std::string>;

class StandardFolders : public ::testing::Test {
protected:
  kwtest::FakeProcessInfo process;
  NS::ScopedOverride<NS::ProcessInfo> override{process};

  void SetUp() override { process.values.emplace("HOME", "/home/me"); }
  static Paths search(SearchPathDirectory directory, NS::SearchPathDomainMask mask,
                      bool expandTilde = true) {
    return NS::StandardFolders::shared().searchPathForDirectoriesInDomains(directory, mask,
                                                                           expandTilde);
  }
};

TEST_F(StandardFolders, areInTheUsersHome) {
  EXPECT_EQ(search(SearchPathDirectory::ApplicationSupport, NS::UserDomainMask),
            Paths{"/home/me/.local/share"});
  EXPECT_EQ(search(SearchPathDirectory::Caches, NS::UserDomainMask), Paths{"/home/me/.cache"});
  EXPECT_EQ(search(SearchPathDirectory::Trash, NS::UserDomainMask),
            Paths{"/home/me/.local/share/Trash"});
}

TEST_F(StandardFolders, followTheEnvironmentWhereItIsAbsolute) {
  process.values.emplace("XDG_DATA_HOME", "/data");
  process.values.emplace("XDG_CACHE_HOME", "relative");
  EXPECT_EQ(search(SearchPathDirectory::ApplicationSupport, NS::UserDomainMask), Paths{"/data"});
  EXPECT_EQ(search(SearchPathDirectory::Caches, NS::UserDomainMask), Paths{"/home/me/.cache"});
}

TEST_F(StandardFolders, beginWithTheUsers) {
  EXPECT_EQ(search(SearchPathDirectory::ApplicationSupport, NS::AllDomainsMask),
            (Paths{"/home/me/.local/share", "/usr/local/share", "/usr/share"}));
  EXPECT_EQ(search(SearchPathDirectory::Caches, NS::LocalDomainMask), Paths{"/var/cache"});
  EXPECT_EQ(search(SearchPathDirectory::Caches, NS::SystemDomainMask), Paths{});
  EXPECT_EQ(search(SearchPathDirectory::ApplicationSupport, NS::NetworkDomainMask), Paths{});
  EXPECT_EQ(search(SearchPathDirectory::Trash, NS::SystemDomainMask), Paths{});
}

TEST_F(StandardFolders, canKeepTheTilde) {
  EXPECT_EQ(search(SearchPathDirectory::Caches, NS::UserDomainMask, false), Paths{"~/.cache"});
  process.values.erase("XDG_CACHE_HOME");
  process.values.emplace("XDG_CACHE_HOME", "/home/meadow");
  EXPECT_EQ(search(SearchPathDirectory::Caches, NS::UserDomainMask, false), Paths{"/home/meadow"});
}

TEST_F(StandardFolders, areNoneForAKindThatTheHostDoesNotKnow) {
  EXPECT_EQ(search(static_cast<SearchPathDirectory>(16), NS::AllDomainsMask), Paths{});
}

// In a child, since the desktop's library reads its settings once.
TEST_F(StandardFolders, areWhereTheUsersSettingsSay) {
  kwtest::ScratchFolder scratch;
  scratch.file("user-dirs.dirs", "XDG_DESKTOP_DIR=\"/media/D\"\nXDG_DOCUMENTS_DIR=\"/media/Do\"\n"
                                 "XDG_DOWNLOAD_DIR=\"/media/Dw\"\nXDG_MUSIC_DIR=\"/media/M\"\n"
                                 "XDG_PICTURES_DIR=\"/media/P\"\nXDG_VIDEOS_DIR=\"/media/V\"\n");
  EXPECT_EQ(kwtest::inForkedChild([&] {
              ::setenv("XDG_CONFIG_HOME", scratch.path().c_str(), 1);
              std::string found;
              for (auto directory : {SearchPathDirectory::Desktop, SearchPathDirectory::Document,
                                     SearchPathDirectory::Downloads, SearchPathDirectory::Music,
                                     SearchPathDirectory::Pictures, SearchPathDirectory::Movies,
                                     SearchPathDirectory::SharedPublic})
                for (const std::string &path : search(directory, NS::UserDomainMask))
                  found += path + " ";
              return found;
            }),
            "/media/D /media/Do /media/Dw /media/M /media/P /media/V ");
}

TEST_F(StandardFolders, takeTheTemporaryOneFromTheEnvironment) {
  EXPECT_EQ(NS::StandardFolders::shared().temporaryDirectory(), "/tmp");
  process.values.emplace("TMPDIR", "/var/tmp/x");
  EXPECT_EQ(NS::StandardFolders::shared().temporaryDirectory(), "/var/tmp/x");
  process.values.erase("TMPDIR");
  process.values.emplace("TMPDIR", "x");
  EXPECT_EQ(NS::StandardFolders::shared().temporaryDirectory(), "/tmp");
}

} // namespace
