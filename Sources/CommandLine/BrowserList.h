// The browser's display of a measured tree: one folder at a time, in an order,
// with a cursor and marks.
#pragma once

#include "CommandLine/MeasuredTree.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kw {

class BrowserList {
public:
  enum class Order { Size, Name, Time, Items };

  explicit BrowserList(MeasuredItem root);

  const MeasuredItem &folder() const { return *folder_; }
  std::string path() const; // of the folder
  std::string pathOf(const MeasuredItem &item) const;
  // The folder's items that are shown, in order.
  const std::vector<const MeasuredItem *> &shown() const { return shown_; }
  std::size_t cursor() const { return cursor_; }
  // Null in an empty folder.
  const MeasuredItem *current() const {
    return cursor_ < shown_.size() ? shown_[cursor_] : nullptr;
  }

  void moveBy(std::ptrdiff_t lines);
  void moveToStart() { cursor_ = 0; }
  void moveToEnd() { cursor_ = shown_.empty() ? 0 : shown_.size() - 1; }
  // Enter the folder at the cursor, and leave for the one above, where the cursor
  // then is at the folder that was left.
  void enter();
  void leave();

  void setOrder(Order order);
  Order order() const { return order_; }
  void showHidden(bool show);
  bool showsHidden() const { return showsHidden_; }
  // Moves the cursor to the next item whose name holds the text in any case,
  // from the next line on and round the end. False when there is none.
  bool search(std::string_view text);

  void toggleMark();
  bool isMarked(const MeasuredItem &item) const { return marked_.contains(pathOf(item)); }
  void unmarkAll() { marked_.clear(); }
  // The number of marked items, and their bytes.
  struct Marks {
    std::size_t items = 0;
    std::uint64_t bytes = 0;
  };
  Marks marks() const;
  // The paths of the marked items or, when none is marked, of the one at the
  // cursor. Leaves out marked items within another marked one.
  std::vector<std::string> chosen() const;

  // Replaces the item at the path, or takes it out of the tree when now is null,
  // and corrects the sums of the folders above.
  void replace(const std::string &path, const MeasuredItem *now);

private:
  MeasuredItem *find(const std::vector<std::string> &names);
  const MeasuredItem *itemAt(const std::string &path) const;
  void arrange(const std::string &nameAtCursor);
  std::int64_t modified(const MeasuredItem &item);
  void forgetTimes(std::string path);
  bool isBefore(const MeasuredItem &left, const MeasuredItem &right);

  MeasuredItem root_;
  std::vector<std::string> way_; // names from the root down to the folder
  MeasuredItem *folder_ = nullptr;
  std::vector<const MeasuredItem *> shown_;
  std::size_t cursor_ = 0;
  Order order_ = Order::Size;
  bool showsHidden_ = true;
  std::set<std::string> marked_;
  std::map<std::string, std::int64_t> modified_; // by path; filled when the order needs them
};

} // namespace kw
