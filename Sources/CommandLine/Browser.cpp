// Measuring, drawing and the actions. Long work draws its own progress and looks
// for keys that stop it. All other keys are in Browser+Keys.cpp.
#include "CommandLine/Browser.h"

#include "CommandLine/ProtectedPaths.h"
#include "CommandLine/Quantities.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace kw {
namespace {

using namespace std::chrono_literals;
using Look = NS::Screen::Look;

constexpr int widthOfKeys = 77;
constexpr const char *keys = "\u2191\u2193\u2190\u2192 go  . hidden  / find  space mark  d trash  "
                             "r remove  x shred  ? keys  q";
constexpr const char *plainKeys =
    "hjkl go  . hidden  / find  space mark  d trash  r remove  x shred  ? keys  q";

bool isStopKey(char32_t key) {
  return key == U'q' || key == NS::Key::Escape || key == NS::Key::Interrupt || key == NS::Key::Gone;
}

const char *nameOf(BrowserList::Order order) {
  switch (order) {
  case BrowserList::Order::Size:
    return "size";
  case BrowserList::Order::Name:
    return "name";
  case BrowserList::Order::Time:
    return "time";
  case BrowserList::Order::Items:
    break;
  }
  return "items";
}

} // namespace

// --- measuring

bool Browser::lookForStop() {
  isStopWished_ = isStopWished_ || session_.isStopped() || isStopKey(screen_.key(0ms));
  return isStopWished_;
}

// Limits the drawing to ten times a second.
bool Browser::takeTurnToShow() {
  auto now = session_.now();
  if (now - lastShown_ < 100ms)
    return false;
  lastShown_ = now;
  return true;
}

void Browser::showMeasuring(const RequestProgress &progress) {
  screen_.clear();
  screen_.put(0, 0, "keepwell  measuring " + displayable(root_), Look::Bold);
  screen_.put(2, 2,
              fmt::format("{}, {}", itemsInWords(progress.items), sizeInWords(progress.bytes)),
              Look::Plain);
  screen_.put(3, 2, displayable(progress.path), Look::Plain);
  screen_.put(5, 2, "q stops", Look::Plain);
  screen_.show();
}

// Asks an agent that cannot be reached only once, not for each folder.
std::optional<std::uint64_t> Browser::measureByAgent(const std::string &path) {
  if (agentIsAbsent_ || isStopWished_)
    return std::nullopt;
  try {
    auto request = session_.agent().sizeOfItemAtPathAsync(path, {});
    while (!request.waitFor(50ms))
      if (lookForStop())
        request.cancel();
    SizeReply reply = request.get();
    return reply.error ? std::nullopt : std::optional(reply.allocatedBytes);
  } catch (const ClientError &error) {
    agentIsAbsent_ = error.kind() == ClientError::Kind::Unreachable;
    return std::nullopt;
  }
}

std::optional<MeasuredTree> Browser::measure(const std::string &path) {
  auto beyond = [this](const std::string &each) { return measureByAgent(each); };
  TreeMeasurer measurer({}, beyond, [this](const RequestProgress &progress) {
    if (!takeTurnToShow())
      return true;
    showMeasuring(progress);
    return !lookForStop();
  });
  return measurer.measure(path);
}

int Browser::browse(const std::string &path) {
  root_ = path;
  auto tree = measure(path);
  if (!tree || isStopWished_)
    return isStopWished_ ? ExitDone : ExitRefused;
  if (!tree->unseen.empty())
    message_ = fmt::format("{} could not be read", itemsInWords(tree->unseen.size()));
  list_ = std::make_unique<BrowserList>(std::move(tree->root));
  run();
  return session_.isStopped() ? ExitStopped : ExitDone;
}

// --- drawing

std::string Browser::lineOf(const MeasuredItem &item, std::uint64_t whole) const {
  constexpr std::size_t widthOfBar = 12;
  bool isFolder = item.kind == MeasuredItem::Kind::Folder;
  const char *sight = item.sight == MeasuredItem::Sight::Whole ? " " : "~";
  return fmt::format("{} {:>9}{}{} [{}] {}{}", list_->isMarked(item) ? "*" : " ",
                     sizeInWords(item.bytes), sight, percentInWords(item.bytes, whole),
                     bar(item.bytes, whole, widthOfBar, session_.canDraw()), displayable(item.name),
                     isFolder ? "/" : "");
}

// Shortens a long path to its end, so that the figures have room.
std::string Browser::title() const {
  constexpr std::size_t leastForPath = 20;
  auto width = static_cast<std::size_t>(screen_.columns());
  const MeasuredItem &folder = list_->folder();
  std::string figures = fmt::format("  {}, {}, by {}", sizeInWords(folder.bytes),
                                    itemsInWords(folder.items), nameOf(list_->order()));
  BrowserList::Marks marks = list_->marks();
  if (marks.items > 0)
    figures += fmt::format("  {} marked: {}", marks.items, sizeInWords(marks.bytes));
  std::size_t room = std::max(width - std::min(width, figures.size() + 1), leastForPath);
  std::string text = fmt::format(" {}{}", endOf(displayable(list_->path()), room), figures);
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

void Browser::draw() {
  const MeasuredItem &folder = list_->folder();
  screen_.clear();
  screen_.put(0, 0, title(), Look::Reverse);
  auto height = static_cast<std::size_t>(listHeight());
  std::size_t cursor = list_->cursor();
  firstLine_ = std::min(firstLine_, cursor);
  if (cursor >= firstLine_ + height)
    firstLine_ = cursor - height + 1;
  for (std::size_t line = 0; line < height && firstLine_ + line < list_->shown().size(); ++line) {
    const MeasuredItem &item = *list_->shown()[firstLine_ + line];
    screen_.put(static_cast<int>(line) + 1, 0, lineOf(item, folder.bytes),
                firstLine_ + line == cursor ? Look::Reverse : Look::Plain);
  }
  if (list_->shown().empty())
    screen_.put(1, 2, "nothing here", Look::Plain);
  drawStatus(message_);
}

void Browser::drawStatus(const std::string &text) {
  std::string blank(static_cast<std::size_t>(screen_.columns()), ' ');
  screen_.put(screen_.rows() - 2, 0, blank, Look::Plain);
  screen_.put(screen_.rows() - 2, 0, text, Look::Bold);
  // A narrow terminal has no room for all keys.
  const char *line = session_.canDraw() ? keys : plainKeys;
  screen_.put(screen_.rows() - 1, 0, screen_.columns() >= widthOfKeys ? line : "? keys  q leaves",
              Look::Plain);
  screen_.show();
}

// --- deeds

void Browser::handleDeed(char32_t key) {
  if (key == U'd')
    perform({.verb = "Trash",
             .participle = "moved to the Trash",
             .ask = &Client::moveToTrashItemAtPathAsync,
             .usesTrash = true});
  else if (key == U'r')
    perform(
        {.verb = "Remove", .participle = "removed", .askRemoval = &Client::removeItemAtPathAsync});
  else if (key == U'x')
    perform(
        {.verb = "Shred", .participle = "shredded", .ask = &Client::securelyRemoveItemAtPathAsync});
}

// Counts the items that would go. Empty when a key stopped it.
std::optional<RemovalSum> Browser::planned(const std::vector<std::string> &paths) {
  drawStatus("Counting the items ...");
  KeepList nothing({});
  RemovalPlanner planner(
      nothing, [this](const std::string &path) { return measureByAgent(path); },
      [this](const RequestProgress &progress) {
        if (takeTurnToShow())
          drawStatus(advanceInWords("Counting, q stops", progress, std::nullopt));
        return !lookForStop();
      });
  RemovalSum sum;
  for (const std::string &path : paths)
    sum.add(planner.plan(path));
  return isStopWished_ ? std::nullopt : std::optional(sum);
}

// Shortens a long path to its end, so that the question has room.
bool Browser::isConfirmed(const Deed &deed, const std::vector<std::string> &paths) {
  constexpr std::size_t leastForPath = 20, roomForAnswer = 4;
  auto sum = planned(paths);
  if (!sum)
    return false;
  std::string frees = deed.usesTrash ? "" : fmt::format(", {} freed", sizeInWords(sum->freed));
  std::string figures =
      fmt::format(": {}, {}{}? [y/N] ", sum->itemsInWords(), sizeInWords(sum->allocated), frees);
  auto width = static_cast<std::size_t>(screen_.columns());
  std::size_t taken = std::string_view(deed.verb).size() + 1 + figures.size() + roomForAnswer;
  std::size_t room = std::max(width - std::min(width, taken), leastForPath);
  std::string subject =
      paths.size() == 1 ? endOf(displayable(paths.front()), room) : itemsInWords(paths.size());
  auto answer = typed(fmt::format("{} {}{}", deed.verb, subject, figures));
  return answer == "y" || answer == "Y";
}

// Waits for the reply, shows progress, and cancels the request at a stop key.
template <typename Reply>
Told Browser::awaited(const Request<Reply> &request, AgentAdvance &advance) {
  AdvanceRate rate;
  while (!request.waitFor(50ms)) {
    if (lookForStop())
      request.cancel();
    if (auto progress = advance.take())
      drawStatus(advanceInWords("q stops", *progress, rate.of(*progress, session_.now())));
  }
  return request.get();
}

// Returns the reason of a failure, or an empty text.
std::string Browser::performOn(const Deed &deed, const std::string &path) {
  if (deed.usesTrash && session_.trash(path))
    return "";
  RequestOptions options;
  auto advance = std::make_shared<AgentAdvance>(session_.alarm());
  options.progress = [advance](const RequestProgress &progress) { advance->set(progress); };
  try {
    Told told = deed.ask ? awaited((session_.agent().*deed.ask)(path, options), *advance)
                         : awaited((session_.agent().*deed.askRemoval)(path, options), *advance);
    if (told.isDone)
      return "";
    return told.error ? causeOf(*told.error, path) : "the agent gave no reason";
  } catch (const ClientError &error) {
    return error.what();
  }
}

void Browser::perform(const Deed &deed) {
  std::vector<std::string> paths = list_->chosen();
  for (const std::string &path : paths)
    if (auto protection = protectionOf(path)) {
      message_ = displayable(path) + " is protected";
      return;
    }
  isStopWished_ = false;
  if (paths.empty() || !isConfirmed(deed, paths))
    return;
  std::size_t done = 0;
  std::string reason;
  for (const std::string &path : paths) {
    if (isStopWished_ || session_.isStopped())
      break;
    drawStatus(fmt::format("{} of {} {} ... q stops  {}", done, paths.size(), deed.participle,
                           displayable(path)));
    std::string why = performOn(deed, path);
    done += why.empty() ? 1U : 0U;
    if (!why.empty())
      reason = displayable(fmt::format("; {}: {}", path, why));
    refresh(path);
  }
  message_ = fmt::format("{} of {} {}{}", done, paths.size(), deed.participle, reason);
}

// Measures the item again, since a part of it may be left.
void Browser::refresh(const std::string &path) {
  bool wasStopped = std::exchange(isStopWished_, false);
  auto tree = measure(path);
  list_->replace(path, tree ? &tree->root : nullptr);
  isStopWished_ = isStopWished_ || wasStopped;
}

} // namespace kw
