// Reports a folder before its contents, and of these the largest first.
#include "CommandLine/SizeReport.h"

#include <fmt/format.h>
#include <span>

namespace kw {
namespace {

const char *nameOfKind(MeasuredItem::Kind kind) {
  switch (kind) {
  case MeasuredItem::Kind::File:
    return "file";
  case MeasuredItem::Kind::Folder:
    return "folder";
  case MeasuredItem::Kind::Link:
    return "link";
  case MeasuredItem::Kind::Other:
    break;
  }
  return "other";
}

std::string pathOf(const std::string &folder, const std::string &name) {
  return fmt::format("{}{}{}", folder, folder.ends_with('/') ? "" : "/", name);
}

} // namespace

// They are sorted by size.
std::size_t SizeReport::told(const MeasuredItem &folder) const {
  std::size_t count = 0;
  while (count < folder.children.size() && count < most && folder.children[count].bytes >= least)
    ++count;
  return count;
}

void SizeReport::sayLine(Session &session, const MeasuredItem &item, const std::string &shown,
                         const std::string &path, std::uint64_t whole) const {
  constexpr std::size_t widthOfBar = 20;
  std::string size = sizeInWords(item.bytes, units);
  if (!session.isWatched())
    return session.say(size, path);
  session.say(fmt::format("{:>10} {} {} {}{}", size, percentInWords(item.bytes, whole),
                          bar(item.bytes, whole, widthOfBar, session.canDraw()), shown,
                          item.kind == MeasuredItem::Kind::Folder && shown != "/" ? "/" : ""));
}

void SizeReport::sayBelow(Session &session, const MeasuredItem &folder, const std::string &path,
                          std::size_t level, std::uint64_t whole) const {
  std::size_t count = told(folder);
  std::string indent(2 * level, ' ');
  for (std::size_t index = 0; index < count; ++index) {
    const MeasuredItem &item = folder.children[index];
    std::string itemPath = pathOf(path, item.name);
    sayLine(session, item, indent + item.name, itemPath, whole);
    sayBelow(session, item, itemPath, level + 1, whole);
  }
  if (count == folder.children.size() || !session.isWatched())
    return;
  std::uint64_t rest = 0;
  for (const MeasuredItem &item : std::span(folder.children).subspan(count))
    rest += item.bytes;
  session.say(fmt::format("{:>10} {} {:20} {}{} more", sizeInWords(rest, units),
                          percentInWords(rest, whole), "", indent, folder.children.size() - count));
}

void SizeReport::say(Session &session, const std::string &path, const MeasuredItem &root) const {
  if (root.children.empty())
    return session.say(sizeInWords(root.bytes, units), path);
  sayLine(session, root, path, path, root.bytes);
  sayBelow(session, root, path, 1, root.bytes);
}

JSONObject &SizeReport::add(JSONObject &object, const MeasuredItem &item) const {
  object.add("bytes", item.bytes)
      .add("text", text(item.bytes))
      .add("items", item.items)
      .add("kind", nameOfKind(item.kind));
  if (item.sight != MeasuredItem::Sight::Whole)
    object.add("sight", item.sight == MeasuredItem::Sight::Partial ? "partial" : "measured");
  std::vector<JSONObject> children;
  for (std::size_t index = 0; index < told(item); ++index) {
    JSONObject child;
    child.addName("name", item.children[index].name);
    children.push_back(add(child, item.children[index]));
  }
  return item.children.empty() ? object : object.add("children", children);
}

} // namespace kw
