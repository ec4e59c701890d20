// Questions to the Finder, Launch Services, Spotlight and the shared file lists,
// and their answers, over the shim.
#include "Additions/NSFileManager+AliasExt.h"
#include "Additions/NSFileManager+FileAttributes.h"
#include "Darwin/ServicesShim.h"
#include "Foundation/Desktop/AppKitVersion.h"
#include "Foundation/Desktop/LaunchServices.h"
#include "Foundation/Desktop/Metadata.h"
#include "Foundation/Desktop/SharedFileList.h"
#include "Foundation/Files/URL.h"
#include "Foundation/Trees/FileManager.h"
#include "Foundation/Values/Date.h"
#include "Foundation/Values/Null.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"
#include "Support/ScratchFolder.h"
#include "Tools/RVFileSizer.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using namespace kwtest::darwin;
using namespace std::string_literals;

class Services : public ::testing::Test {
protected:
  ServicesScope services;
  kwtest::ScratchFolder folder;
  std::string file = folder.file("file", "");
};

TEST_F(Services, tellAppKitsVersion) {
  EXPECT_EQ(NS::AppKitVersion::shared().number(), 2113.2);
}

class Aliases : public Services {
protected:
  static std::optional<std::string> targetOf(const std::string &path) {
    return NS::Aliases::shared().resolveAliasFile(path);
  }
};

TEST_F(Aliases, leadWhereThePlatformSays) {
  services->aliasFiles["/alias"] = {.target = "/target \xC3\xBC"s};
  EXPECT_EQ(targetOf("/alias"), "/target \xC3\xBC");
  services->aliasFiles[file] = {.target = "/elsewhere"s};
  EXPECT_EQ(kw::resolvedOriginalPath(NS::FileManager::defaultManager(), file), "/elsewhere");
}

TEST_F(Aliases, leadNowhereWhenTheItemIsNone) {
  services->aliasFiles["/plain"] = {.target = "/plain"s, .isAlias = false};
  services->aliasFiles["/broken"] = {};
  services->aliasFiles["/vanished"] = {.target = ""s};
  for (const auto &path : {"/plain"s, "/broken"s, "/vanished"s, "/missing"s, ""s, "/\xFF"s})
    EXPECT_EQ(targetOf(path), std::nullopt) << path;
}

TEST_F(Aliases, areNotAskedForAPathThatANulCutsShort) {
  services->aliasFiles["/alias"] = {.target = "/target"s};
  services->aliasFiles["/alias\0x"s] = {.target = "/target"s};
  EXPECT_EQ(targetOf("/alias\0x"s), std::nullopt);
}

TEST_F(Aliases, standForNoCloudItem) {
  EXPECT_EQ(NS::Aliases::shared().iCloudAliasPathForPath(file), std::nullopt);
}

class LaunchServices : public Services {
protected:
  NS::LSItemInfo info{.flags = 7, .fileType = "left"};

  std::int32_t ask(const std::string &path, std::uint32_t what = 6) {
    return NS::LaunchServices::shared().copyItemInfo(path, what, info);
  }
};

TEST_F(LaunchServices, tellFlagsAndType) {
  services->registered[file] = {.flags = 0x80000002, .type = 0x4150504C};
  EXPECT_EQ(ask(file), 0);
  EXPECT_EQ(info.flags, 0x80000002u);
  EXPECT_EQ(info.fileType, "APPL");
  EXPECT_EQ(services->requestedInfo, std::vector<std::uint32_t>{6});
}

TEST_F(LaunchServices, tellNoTypeOfAnItemWithoutOne) {
  services->registered[file] = {};
  EXPECT_EQ(ask(file), 0);
  EXPECT_EQ(info.fileType, "");
  EXPECT_EQ(info.flags, 0u);
}

TEST_F(LaunchServices, areAskedForAFolderAsAFolder) {
  services->registered[folder.path() + "/"] = {.flags = 2};
  EXPECT_EQ(ask(folder.path()), 0);
  EXPECT_EQ(kw::folderTypeAtPath(NS::FileManager::defaultManager(), folder.path()),
            kw::KWFolderTypePackage);
}

TEST_F(LaunchServices, passTheirStatusOnAndLeaveTheAnswerAlone) {
  EXPECT_EQ(ask("/missing"), -43);
  EXPECT_EQ(info.flags, 7u);
  EXPECT_EQ(info.fileType, "left");
  EXPECT_EQ(ask("/cut\0x"s), NS::LSUnknownError);
  EXPECT_EQ(ask(""), NS::LSUnknownError);
  EXPECT_EQ(services->requestedInfo.size(), 1u) << "what is no path is not asked for";
}

class Spotlight : public Services {
protected:
  std::shared_ptr<NS::Object> attribute(const PlatformValue &value) {
    services->index["/item"]["key"] = value;
    return NS::MetadataStore::shared().createItem("/item")->copyAttribute("key");
  }
  template <typename Expected>
  void expectEqual(const PlatformValue &value, const std::shared_ptr<Expected> &expected) {
    auto found = attribute(value);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->className(), expected->className());
    EXPECT_TRUE(found->isEqual(*expected)) << NS::describe(found);
  }
};

TEST_F(Spotlight, tellsValuesOfEveryKind) {
  expectEqual(true, NS::Number::numberWithBool(true));
  expectEqual(std::int64_t{1} << 40, NS::Number::numberWithLongLong(std::int64_t{1} << 40));
  expectEqual(-2.5, NS::Number::numberWithDouble(-2.5));
  expectEqual("t\xC3\xA4xt"s, NS::String::stringWithString("t\xC3\xA4xt"));
  expectEqual(PlatformDate{1.5}, NS::Date::dateWithTimeIntervalSince1970(978307201.5));
}

TEST_F(Spotlight, tellsUnknownAttributesFromMissingOnes) {
  EXPECT_EQ(attribute(OtherValue{}), NS::Null::null());
  EXPECT_EQ(attribute(UnpairedSurrogate{}), NS::Null::null());
  EXPECT_EQ(NS::MetadataStore::shared().createItem("/item")->copyAttribute("other"), nullptr);
  EXPECT_EQ(NS::MetadataStore::shared().createItem("/item")->copyAttribute("\xFF"), nullptr);
}

TEST_F(Spotlight, doesNotKnowEveryPath) {
  services->index["/item"] = services->index["/item\0x"s] = {};
  EXPECT_EQ(NS::MetadataStore::shared().createItem("/other"), nullptr);
  EXPECT_EQ(NS::MetadataStore::shared().createItem("/item\0x"s), nullptr);
  EXPECT_EQ(NS::MetadataStore::shared().createItem("/\xFF"), nullptr);
}

TEST_F(Spotlight, saysHowLargeAnItemIs) {
  services->index[file]["kMDItemPhysicalSize"] = std::int64_t{12'345};
  EXPECT_EQ(kw::RVFileSizer::shared().itemSizeAtPathAbleToStop(file), 12'345u);
}

TEST_F(Spotlight, saysWhenAnItemWasUsed) {
  auto accessTime = [&] {
    return kw::statAccessTimeAtPath(NS::FileManager::defaultManager(), file);
  };
  services->index[file]["kMDItemContentModificationDate"] = PlatformDate{10};
  EXPECT_EQ(accessTime(), 978307210);
  services->index[file]["kMDItemLastUsedDate"] = PlatformDate{-0.5};
  EXPECT_EQ(accessTime(), 978307199);
  services->index[file]["kMDItemLastUsedDate"] = "yesterday"s;
  EXPECT_GT(accessTime(), 1'000'000'000) << "text is no date: the file's own time";
}

class LoginItems : public Services {
protected:
  const std::shared_ptr<NS::SharedFileList> list() {
    return NS::SharedFileLists::shared().globalLoginItems();
  }
  std::shared_ptr<NS::SharedFileListItem> only() { return list()->copySnapshot().at(0); }
};

TEST_F(LoginItems, mayBeOutOfReach) {
  services->hasLoginItems = false;
  EXPECT_EQ(list(), nullptr);
  services->hasLoginItems = true;
  services->hasSnapshot = false;
  EXPECT_TRUE(list()->copySnapshot().empty());
}

TEST_F(LoginItems, outliveTheirListAndResolve) {
  services->loginItems = {{.name = "A", .path = "/Applications/A.app/"s}};
  auto item = only();
  std::optional<NS::URL> url;
  EXPECT_EQ(item->resolve(3, url), 0);
  EXPECT_EQ(url, NS::URL::fileURLWithPath("/Applications/A.app", true));
  EXPECT_EQ(item->displayName(), "A");
  EXPECT_EQ(services->resolutionFlags, std::vector<std::uint32_t>{3});
}

TEST_F(LoginItems, leaveTheURLAloneWhenTheyDoNotResolve) {
  services->loginItems = {{.name = "A", .isNamed = false}};
  auto before = NS::URL::fileURLWithPath("/before", false);
  std::optional<NS::URL> url = before;
  EXPECT_EQ(only()->resolve(0, url), -43);
  EXPECT_EQ(url, before);
  EXPECT_EQ(only()->displayName(), std::nullopt);
  services->loginItems = {{.name = "A", .path = "/old"s, .resolutionStatus = -35}};
  EXPECT_EQ(only()->resolve(0, url), -35);
  EXPECT_EQ(url, before);
}

TEST_F(LoginItems, mayResolveToNoURL) {
  services->loginItems = {{.name = "A", .path = "/a"s, .hasURL = false}};
  std::optional<NS::URL> url;
  EXPECT_EQ(only()->resolve(0, url), 0);
  EXPECT_EQ(url, std::nullopt);
}

TEST_F(LoginItems, areTakenOffTheirList) {
  services->loginItems = {{.name = "A"}, {.name = "B", .removalStatus = -5000}, {.name = "C"}};
  auto all = list();
  auto items = all->copySnapshot();
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(all->removeItem(*items[2]), 0);
  EXPECT_EQ(all->removeItem(*items[1]), -5000);
  EXPECT_EQ(services->loginItems[0].name, "A");
  EXPECT_EQ(services->loginItems[1].name, "B");
  EXPECT_EQ(services->loginItems[2].name, "(removed)");
}

TEST_F(LoginItems, ofAnotherKindAreRefused) {
  struct Foreign : NS::SharedFileListItem {
    std::int32_t resolve(std::uint32_t, std::optional<NS::URL> &) override { return 0; }
    std::optional<std::string> displayName() override { return {}; }
  } foreign;
  EXPECT_EQ(list()->removeItem(foreign), EINVAL);
}

class Presentation : public Services {
protected:
  template <typename Value>
  static std::optional<Value> ask(const std::string &path, NS::URLResourceKey key, int &code) {
    std::optional<NS::Error> error;
    auto value = NS::getResourceValue(NS::URL::fileURLWithPath(path, false), key, &error);
    code = error ? static_cast<int>(error->code()) : 0;
    return value ? std::optional(std::get<Value>(*value)) : std::nullopt;
  }
  std::optional<std::string> name(const std::string &path) {
    return ask<std::string>(path, NS::URLResourceKey::LocalizedName, code);
  }
  std::optional<NS::Icon> icon(const std::string &path) {
    return ask<NS::Icon>(path, NS::URLResourceKey::EffectiveIcon, code);
  }
  int code = 0;
};

TEST_F(Presentation, ofAnItemIsThePlatforms) {
  services->resources[file] = {{"name", "Datei"s}, {"icon", OtherValue{}}, {"type", "a.b"s}};
  services->resources[folder.path() + "/"] = {{"name", "Ordner"s}};
  EXPECT_EQ(name(file), "Datei");
  EXPECT_EQ(icon(file), (NS::Icon{{"a.b"}}));
  EXPECT_EQ(name(folder.path()), "Ordner");
}

TEST_F(Presentation, ofALinkIsTheLinksOwn) {
  std::filesystem::create_directory_symlink(folder.path(), folder.path("link"));
  services->resources[folder.path("link")] = {{"name", "Verweis"s}};
  EXPECT_EQ(name(folder.path("link")), "Verweis");
}

TEST_F(Presentation, ofAMissingItemIsAReadingError) {
  EXPECT_EQ(name(folder.path("missing")), std::nullopt);
  EXPECT_EQ(code, 260);
  EXPECT_EQ(icon(folder.path("missing")), std::nullopt);
  EXPECT_EQ(code, 260);
}

TEST_F(Presentation, mayBeMissingInPart) {
  errno = ENOENT; // of an earlier call
  EXPECT_EQ(name(file), std::nullopt) << "the platform refuses";
  EXPECT_EQ(code, 256);
  services->resources[file] = {{"name", std::int64_t{1}}};
  EXPECT_EQ(name(file), std::nullopt) << "a number is no name";
  services->resources[file] = {{"name", UnpairedSurrogate{}}, {"type", "a.b"s}};
  EXPECT_EQ(name(file), std::nullopt);
  EXPECT_EQ(icon(file), std::nullopt) << "a type without an icon";
  services->resources[file] = {{"icon", OtherValue{}}};
  EXPECT_EQ(icon(file), std::nullopt) << "an icon without a type";
  EXPECT_EQ(code, 256);
}

} // namespace
