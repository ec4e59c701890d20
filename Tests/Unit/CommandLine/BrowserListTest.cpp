// The folder that the browser shows: its order, its cursor and its marks.
#include "CommandLine/BrowserList.h"

#include "Support/ScratchFolder.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

using kw::BrowserList;
using kw::MeasuredItem;
using Strings = std::vector<std::string>;

MeasuredItem file(const std::string &name, std::uint64_t bytes) {
  MeasuredItem item;
  item.name = name;
  item.bytes = bytes;
  return item;
}

MeasuredItem folder(const std::string &name, std::vector<MeasuredItem> children) {
  MeasuredItem item = file(name, 0);
  item.kind = MeasuredItem::Kind::Folder;
  for (const MeasuredItem &child : children) {
    item.bytes += child.bytes;
    item.items += child.items;
  }
  item.children = std::move(children);
  return item;
}

class BrowserListTest : public testing::Test {
protected:
  Strings names() const {
    Strings names;
    for (const MeasuredItem *item : list.shown())
      names.push_back(item->name);
    return names;
  }

  BrowserList list{
      folder("/top", {folder("b", {file("x", 50), file("y", 20)}), file("c", 60), file(".a", 30)})};
};

TEST_F(BrowserListTest, hasFourOrders) {
  EXPECT_EQ(names(), (Strings{"b", "c", ".a"}));
  list.moveToEnd();
  list.setOrder(BrowserList::Order::Name);
  EXPECT_EQ(names(), (Strings{".a", "b", "c"}));
  EXPECT_EQ(list.cursor(), 0u) << "it stays with the item";
  list.setOrder(BrowserList::Order::Items);
  EXPECT_EQ(names(), (Strings{"b", ".a", "c"}));
  list.showHidden(false);
  EXPECT_EQ(names(), (Strings{"b", "c"}));
}

TEST_F(BrowserListTest, addsUpTheMarkedItemsAndTheirContentsOnce) {
  EXPECT_EQ(list.marks().items, 0u);
  list.toggleMark(); // b
  EXPECT_EQ(list.marks().bytes, 70u);
  list.enter();
  list.toggleMark(); // x in b
  EXPECT_EQ(list.marks().items, 1u);
  EXPECT_EQ(list.marks().bytes, 70u);
  list.leave();
  list.toggleMark(); // b no more
  EXPECT_EQ(list.marks().bytes, 50u);
  list.moveBy(1);
  list.toggleMark(); // c
  EXPECT_EQ(list.marks().items, 2u);
  EXPECT_EQ(list.marks().bytes, 110u);
  list.unmarkAll();
  EXPECT_EQ(list.marks().items, 0u);
}

TEST(BrowserListTime, isThatOfTheLastChangeTheNewestFirst) {
  using namespace std::chrono_literals;
  kwtest::ScratchFolder scratch;
  scratch.file("new", "");
  std::filesystem::last_write_time(scratch.file("old", ""),
                                   std::filesystem::file_time_type::clock::now() - 48h);
  BrowserList list(folder(scratch.path(), {file("old", 9), file("new", 1)}));
  list.setOrder(BrowserList::Order::Time);
  EXPECT_EQ(list.shown().front()->name, "new");
}

TEST(BrowserListTime, isBehindAllOthersWhereItCannotBeRead) {
  kwtest::ScratchFolder scratch;
  std::chrono::sys_seconds oldest(std::chrono::seconds(1));
  std::filesystem::last_write_time(scratch.file("old", ""),
                                   std::filesystem::file_time_type::clock::from_sys(oldest));
  BrowserList list(folder(scratch.path(), {file("gone", 9), file("old", 1)}));
  list.setOrder(BrowserList::Order::Time);
  EXPECT_EQ(list.shown().front()->name, "old");
}

TEST(BrowserListTime, isReadAgainForAnItemThatChangedAndTheFoldersAboveIt) {
  using namespace std::chrono_literals;
  kwtest::ScratchFolder scratch;
  auto now = std::filesystem::file_time_type::clock::now();
  auto setTime = [&](const char *name, std::chrono::hours age) {
    std::filesystem::last_write_time(scratch.path(name), now - age);
  };
  std::filesystem::create_directory(scratch.path("a"));
  scratch.file("a/x", "");
  scratch.file("b", "");
  setTime("a", 48h);
  setTime("b", 24h);
  BrowserList list(folder(scratch.path(), {folder("a", {file("x", 9)}), file("b", 1)}));
  list.setOrder(BrowserList::Order::Time);
  EXPECT_EQ(list.shown().front()->name, "b");
  setTime("a", 0h);
  list.replace(scratch.path("a/x"), nullptr);
  EXPECT_EQ(list.shown().front()->name, "a");
  setTime("a", 48h);
  MeasuredItem again = folder("a", {});
  list.replace(scratch.path("a"), &again);
  EXPECT_EQ(list.shown().front()->name, "b");
}

TEST_F(BrowserListTest, leadsInAndOut) {
  list.moveBy(1);
  list.enter();
  EXPECT_EQ(list.path(), "/top") << "no folder";
  list.moveToStart();
  list.enter();
  EXPECT_EQ(list.path(), "/top/b");
  EXPECT_EQ(names(), (Strings{"x", "y"}));
  list.leave();
  EXPECT_EQ(list.current()->name, "b");
  list.leave();
  EXPECT_EQ(list.path(), "/top");
}

TEST_F(BrowserListTest, keepsTheCursorWithinTheList) {
  list.moveBy(-5);
  EXPECT_EQ(list.cursor(), 0u);
  list.moveBy(50);
  EXPECT_EQ(list.cursor(), 2u);
  BrowserList empty(folder("/", {}));
  empty.moveBy(1);
  empty.toggleMark();
  EXPECT_EQ(empty.current(), nullptr);
  EXPECT_TRUE(empty.chosen().empty());
}

TEST_F(BrowserListTest, findsNamesRoundTheEnd) {
  EXPECT_TRUE(list.search("A"));
  EXPECT_EQ(list.current()->name, ".a");
  EXPECT_TRUE(list.search("B"));
  EXPECT_EQ(list.current()->name, "b");
  EXPECT_TRUE(list.search("B")) << "it is the only one";
  EXPECT_EQ(list.current()->name, "b");
  EXPECT_FALSE(list.search("z"));
}

TEST(BrowserListSearch, goesDownTheList) {
  BrowserList list(folder("/t", {file("a1", 3), file("a2", 2), file("a3", 1)}));
  for (const char *name : {"a2", "a3", "a1"}) {
    EXPECT_TRUE(list.search("a"));
    EXPECT_EQ(list.current()->name, name);
  }
}

TEST_F(BrowserListTest, choosesMarkedItemsOrTheOneAtTheCursor) {
  EXPECT_EQ(list.chosen(), Strings{"/top/b"});
  list.moveBy(1);
  list.toggleMark();
  EXPECT_EQ(list.chosen(), Strings{"/top/c"});
  list.moveToStart();
  list.toggleMark();
  list.enter();
  list.toggleMark();
  EXPECT_EQ(list.chosen(), (Strings{"/top/b", "/top/c"})) << "x goes with b";
  list.toggleMark();
  EXPECT_FALSE(list.isMarked(*list.current()));
}

TEST_F(BrowserListTest, forgetsTheMarksWithinAnItemThatGoes) {
  list.toggleMark();
  list.enter();
  list.toggleMark();
  list.replace("/top/b", nullptr);
  EXPECT_EQ(list.chosen(), Strings{"/top/c"}) << "the one at the cursor";
}

TEST_F(BrowserListTest, movesTheCursorToTheNewEndWhenTheLastItemGoes) {
  list.moveToEnd();
  list.replace("/top/.a", nullptr);
  EXPECT_EQ(list.chosen(), Strings{"/top/c"});
}

TEST_F(BrowserListTest, keepsTheMarksOfItemsWhoseNamesBeginAlike) {
  BrowserList alike(folder("/t", {file("a", 3), file("a-", 2), file("ab", 1)}));
  for (int line = 0; line < 3; ++line, alike.moveBy(1))
    alike.toggleMark();
  alike.replace("/t/a", nullptr);
  EXPECT_EQ(alike.chosen(), (Strings{"/t/a-", "/t/ab"}));
}

TEST_F(BrowserListTest, changesTheSumsWithItemsThatGo) {
  list.enter();
  list.replace("/top/b/x", nullptr);
  EXPECT_EQ(names(), Strings{"y"});
  EXPECT_EQ(list.folder().bytes, 20u);
  EXPECT_EQ(list.folder().items, 2u);
  MeasuredItem now = file("/top/b/y", 5);
  list.replace("/top/b/y", &now);
  EXPECT_EQ(names(), Strings{"y"});
  EXPECT_EQ(list.folder().bytes, 5u);
  EXPECT_EQ(list.folder().items, 2u);
  list.replace("/top/b", nullptr);
  EXPECT_EQ(list.path(), "/top") << "the folder that was shown is gone";
  EXPECT_EQ(list.folder().bytes, 90u);
  EXPECT_EQ(list.folder().items, 3u);
  list.replace("/top/nothing", nullptr);
  list.replace("/top", nullptr);
  EXPECT_EQ(names(), (Strings{"c", ".a"}));
}

TEST(BrowserListRoot, mayBeTheTopOfAll) {
  BrowserList list(folder("/", {folder("a", {file("b", 1)})}));
  list.enter();
  EXPECT_EQ(list.path(), "/a");
  EXPECT_EQ(list.chosen(), Strings{"/a/b"});
  list.replace("/a/b", nullptr);
  EXPECT_TRUE(list.shown().empty());
}

} // namespace
