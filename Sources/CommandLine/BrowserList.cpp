// The tree stays in the order in which it was measured. The list on the screen
// has pointers into it, and is made anew when the tree or the order changes.
#include "CommandLine/BrowserList.h"

#include "Foundation/Text/StringUtilities.h"
#include "Foundation/Trees/FileManager.h"

#include <algorithm>

namespace kw {
namespace {

std::string joined(const std::string &folder, const std::string &name) {
  return folder + (folder.ends_with('/') ? "" : "/") + name;
}

std::vector<std::string> namesIn(std::string_view path) {
  std::vector<std::string> names;
  while (!path.empty()) {
    std::size_t end = std::min(path.find('/'), path.size());
    if (end > 0)
      names.emplace_back(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return names;
}

template <typename Item> Item *childOf(Item &folder, const std::string &name) {
  auto found = std::find_if(folder.children.begin(), folder.children.end(),
                            [&](const MeasuredItem &item) { return item.name == name; });
  return found == folder.children.end() ? nullptr : &*found;
}

// Takes out the path and all paths beneath it.
template <typename Paths> void eraseWithin(Paths &paths, const std::string &path) {
  constexpr const char *afterSlash = "0"; // the next letter
  paths.erase(path);
  paths.erase(paths.lower_bound(path + "/"), paths.lower_bound(path + afterSlash));
}

} // namespace

BrowserList::BrowserList(MeasuredItem root) : root_(std::move(root)), folder_(&root_) {
  arrange("");
}

std::string BrowserList::path() const {
  std::string path = root_.name;
  for (const std::string &name : way_)
    path = joined(path, name);
  return path;
}

std::string BrowserList::pathOf(const MeasuredItem &item) const {
  return joined(path(), item.name);
}

// Null when there is no item of one of the names.
MeasuredItem *BrowserList::find(const std::vector<std::string> &names) {
  MeasuredItem *item = &root_;
  for (const std::string &name : names)
    if (item)
      item = childOf(*item, name);
  return item;
}

const MeasuredItem *BrowserList::itemAt(const std::string &path) const {
  const MeasuredItem *item = &root_;
  for (const std::string &name : namesIn(std::string_view(path).substr(root_.name.size())))
    if (item)
      item = childOf(*item, name);
  return item;
}

std::int64_t BrowserList::modified(const MeasuredItem &item) {
  auto [found, isNew] = modified_.try_emplace(pathOf(item), 0);
  if (isNew)
    if (auto attributes =
            NS::FileManager::defaultManager().attributesOfItemAtPath(found->first, nullptr))
      found->second = attributes->modificationTime;
  return found->second;
}

// The folders above changed with the item.
void BrowserList::forgetTimes(std::string path) {
  eraseWithin(modified_, path);
  for (; path.size() > root_.name.size(); path.erase(path.rfind('/')))
    modified_.erase(path);
}

bool BrowserList::isBefore(const MeasuredItem &left, const MeasuredItem &right) {
  switch (order_) {
  case Order::Size:
    if (left.bytes != right.bytes)
      return left.bytes > right.bytes;
    break;
  case Order::Items:
    if (left.items != right.items)
      return left.items > right.items;
    break;
  case Order::Time:
    if (modified(left) != modified(right))
      return modified(left) > modified(right);
    break;
  case Order::Name:
    break;
  }
  return left.name < right.name;
}

void BrowserList::arrange(const std::string &nameAtCursor) {
  shown_.clear();
  for (const MeasuredItem &item : folder_->children)
    if (showsHidden_ || !item.name.starts_with('.'))
      shown_.push_back(&item);
  std::sort(shown_.begin(), shown_.end(),
            [this](const MeasuredItem *left, const MeasuredItem *right) {
              return isBefore(*left, *right);
            });
  auto at = std::find_if(shown_.begin(), shown_.end(),
                         [&](const MeasuredItem *item) { return item->name == nameAtCursor; });
  if (at != shown_.end())
    cursor_ = static_cast<std::size_t>(at - shown_.begin());
  moveBy(0);
}

void BrowserList::moveBy(std::ptrdiff_t lines) {
  auto last = static_cast<std::ptrdiff_t>(shown_.size()) - 1;
  auto to = static_cast<std::ptrdiff_t>(cursor_) + lines;
  cursor_ = static_cast<std::size_t>(std::max<std::ptrdiff_t>(std::min(to, last), 0));
}

void BrowserList::enter() {
  const MeasuredItem *item = current();
  if (!item || item->kind != MeasuredItem::Kind::Folder)
    return;
  way_.push_back(item->name);
  folder_ = find(way_);
  cursor_ = 0;
  arrange("");
}

void BrowserList::leave() {
  if (way_.empty())
    return;
  std::string name = way_.back();
  way_.pop_back();
  folder_ = find(way_);
  arrange(name);
}

void BrowserList::setOrder(Order order) {
  std::string name = current() ? current()->name : "";
  order_ = order;
  arrange(name);
}

void BrowserList::showHidden(bool show) {
  std::string name = current() ? current()->name : "";
  showsHidden_ = show;
  arrange(name);
}

bool BrowserList::search(std::string_view text) {
  std::string wanted = NS::lowercaseString(text);
  for (std::size_t step = 1; step <= shown_.size(); ++step) {
    std::size_t at = (cursor_ + step) % shown_.size();
    if (NS::lowercaseString(shown_[at]->name).find(wanted) == std::string::npos)
      continue;
    cursor_ = at;
    return true;
  }
  return false;
}

void BrowserList::toggleMark() {
  if (const MeasuredItem *item = current()) {
    std::string path = pathOf(*item);
    if (marked_.erase(path) == 0)
      marked_.insert(path);
  }
}

std::vector<std::string> BrowserList::chosen() const {
  if (marked_.empty())
    return current() ? std::vector{pathOf(*current())} : std::vector<std::string>();
  std::vector<std::string> paths;
  for (const std::string &path : marked_) { // sorted: a folder before its contents
    bool isWithin = std::any_of(paths.begin(), paths.end(), [&](const std::string &other) {
      return path.starts_with(other + "/");
    });
    if (!isWithin)
      paths.push_back(path);
  }
  return paths;
}

BrowserList::Marks BrowserList::marks() const {
  Marks sum;
  if (marked_.empty())
    return sum;
  for (const std::string &path : chosen())
    if (const MeasuredItem *item = itemAt(path)) {
      ++sum.items;
      sum.bytes += item->bytes;
    }
  return sum;
}

void BrowserList::replace(const std::string &path, const MeasuredItem *now) {
  std::vector<std::string> names = namesIn(std::string_view(path).substr(root_.name.size()));
  MeasuredItem *item = names.empty() ? nullptr : find(names);
  if (!item)
    return;
  std::string name = current() ? current()->name : "";
  std::uint64_t bytes = item->bytes, items = item->items;
  MeasuredItem *above = &root_;
  for (const std::string &each : names) {
    above->bytes = above->bytes - bytes + (now ? now->bytes : 0);
    above->items = above->items - items + (now ? now->items : 0);
    if (&each != &names.back())
      above = childOf(*above, each);
  }
  if (now) {
    std::string own = item->name;
    *item = *now;
    item->name = own;
  } else {
    above->children.erase(above->children.begin() + (item - above->children.data()));
  }
  eraseWithin(marked_, path);
  forgetTimes(path);
  while (!find(way_))
    way_.pop_back();
  folder_ = find(way_);
  arrange(name);
}

} // namespace kw
