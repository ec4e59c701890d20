// One loop: draw, wait for a key, obey it. Long work draws its own progress and
// looks for keys that stop it.
#include "CommandLine/Browser.h"

#include "CommandLine/ProtectedPaths.h"
#include "CommandLine/Quantities.h"
#include "CommandLine/RemovalPreview.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace kw {
namespace {

using namespace std::chrono_literals;
using Look = NS::Screen::Look;

constexpr const char *keys =
    "\u2191\u2193\u2190\u2192 go  snti sort  . hidden  / find  space mark  d trash  "
    "r remove  x shred  q";
constexpr const char *plainKeys =
    "hjkl go  snti sort  . hidden  / find  space mark  d trash  r remove  x shred  q";

bool isStopKey(char32_t key) {
  return key == U'q' || key == NS::Key::Escape || key == NS::Key::Interrupt;
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

void dropLastCharacter(std::string &text) {
  constexpr unsigned char continuation = 0x80, mask = 0xc0;
  while (!text.empty()) {
    bool isContinuation = (static_cast<unsigned char>(text.back()) & mask) == continuation;
    text.pop_back();
    if (!isContinuation)
      return;
  }
}

} // namespace

// --- measuring

bool Browser::wantsToStop() {
  isStopWished_ = isStopWished_ || session_.isStopped() || isStopKey(screen_.key(0ms));
  return isStopWished_;
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

// Where the agent is not there it is not sought again for each folder.
std::optional<std::uint64_t> Browser::measureByAgent(const std::string &path) {
  if (agentIsAbsent_ || isStopWished_)
    return std::nullopt;
  try {
    auto request = session_.agent().sizeOfItemAtPathAsync(path, {});
    while (!request.waitFor(50ms))
      if (wantsToStop())
        request.cancel();
    SizeReply reply = request.get();
    return reply.error ? std::nullopt : std::optional(reply.allocatedBytes);
  } catch (const ClientError &) {
    agentIsAbsent_ = true;
    return std::nullopt;
  }
}

std::optional<MeasuredTree> Browser::measure(const std::string &path) {
  auto beyond = [this](const std::string &each) { return measureByAgent(each); };
  TreeMeasurer measurer({}, beyond, [this](const RequestProgress &progress) {
    auto now = session_.now();
    if (now - lastShown_ < 100ms)
      return true;
    lastShown_ = now;
    showMeasuring(progress);
    return !wantsToStop();
  });
  return measurer.measure(path);
}

int Browser::browse(const std::string &path) {
  root_ = path;
  auto tree = measure(path);
  if (!tree || isStopWished_)
    return isStopWished_ ? ExitDone : ExitRefused;
  if (!tree->unseen.empty())
    message_ = fmt::format("{} could not be looked into", itemsInWords(tree->unseen.size()));
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

void Browser::draw() {
  const MeasuredItem &folder = list_->folder();
  screen_.clear();
  std::string title =
      fmt::format(" {}  {}, {}, by {}", displayable(list_->path()), sizeInWords(folder.bytes),
                  itemsInWords(folder.items), nameOf(list_->order()));
  title.resize(std::max(title.size(), static_cast<std::size_t>(screen_.columns())), ' ');
  screen_.put(0, 0, title, Look::Reverse);
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
  screen_.put(screen_.rows() - 1, 0, session_.canDraw() ? keys : plainKeys, Look::Plain);
  screen_.show();
}

// --- keys

void Browser::run() {
  while (!session_.isStopped()) {
    draw();
    char32_t key = screen_.key(200ms);
    if (key != NS::Key::None && !handle(key))
      return;
  }
}

bool Browser::handle(char32_t key) {
  if (key == U'q' || key == NS::Key::Interrupt)
    return false;
  if (key != NS::Key::Resize)
    message_.clear();
  if (!handleMove(key)) {
    handleView(key);
    handleDeed(key);
  }
  return true;
}

bool Browser::handleMove(char32_t key) {
  switch (key) {
  case NS::Key::Up:
  case U'k':
    list_->moveBy(-1);
    return true;
  case NS::Key::Down:
  case U'j':
    list_->moveBy(1);
    return true;
  case NS::Key::PageUp:
    list_->moveBy(-listHeight());
    return true;
  case NS::Key::PageDown:
    list_->moveBy(listHeight());
    return true;
  case NS::Key::Home:
    list_->moveToStart();
    return true;
  case NS::Key::End:
    list_->moveToEnd();
    return true;
  case NS::Key::Right:
  case NS::Key::Enter:
  case U'l':
    list_->enter();
    return true;
  case NS::Key::Left:
  case NS::Key::Backspace:
  case U'h':
    list_->leave();
    return true;
  default:
    return false;
  }
}

void Browser::handleView(char32_t key) {
  switch (key) {
  case U's':
    return list_->setOrder(BrowserList::Order::Size);
  case U'n':
    return list_->setOrder(BrowserList::Order::Name);
  case U't':
    return list_->setOrder(BrowserList::Order::Time);
  case U'i':
    return list_->setOrder(BrowserList::Order::Items);
  case U'.':
    return list_->showHidden(!list_->showsHidden());
  case U'/':
    return search();
  case U' ':
    list_->toggleMark();
    return list_->moveBy(1);
  default:
    return;
  }
}

void Browser::search() {
  auto text = typed("Find: ");
  if (!text)
    return;
  if (!text->empty())
    lastSearch_ = *text;
  if (!lastSearch_.empty() && !list_->search(lastSearch_))
    message_ = "no name here holds " + displayable(lastSearch_);
}

std::optional<std::string> Browser::typed(const std::string &question) {
  std::string text;
  while (!session_.isStopped()) {
    drawStatus(question + displayable(text));
    char32_t key = screen_.key(200ms);
    if (key == NS::Key::Enter)
      return text;
    if (key == NS::Key::Escape || key == NS::Key::Interrupt)
      return std::nullopt;
    if (key == NS::Key::Resize)
      draw();
    else if (key == NS::Key::Backspace)
      dropLastCharacter(text);
    else if (key >= U' ' && key < NS::Key::Up)
      NS::appendCharacter(text, key);
  }
  return std::nullopt;
}

// --- deeds

void Browser::handleDeed(char32_t key) {
  if (key == U'd')
    perform({"Trash", "moved to the Trash", &Client::moveToTrashItemAtPathAsync, nullptr, true});
  else if (key == U'r')
    perform({"Remove", "removed", nullptr, &Client::removeItemAtPathAsync, false});
  else if (key == U'x')
    perform({"Shred", "shredded", &Client::securelyRemoveItemAtPathAsync, nullptr, false});
}

bool Browser::isConfirmed(const Deed &deed, const std::vector<std::string> &paths) {
  KeepList nothing({});
  RemovalPlanner planner(nothing, [this](const std::string &path) { return measureByAgent(path); });
  RemovalSum sum;
  drawStatus("Looking at what would go ...");
  for (const std::string &path : paths)
    sum.add(planner.plan(path));
  std::string frees = deed.usesTrash ? "" : fmt::format(", {} freed", sizeInWords(sum.freed));
  std::string what = paths.size() == 1 ? displayable(paths.front()) : itemsInWords(paths.size());
  auto answer = typed(fmt::format("{} {}: {}, {}{}? [y/N] ", deed.verb, what, sum.itemsInWords(),
                                  sizeInWords(sum.allocated), frees));
  return answer == "y" || answer == "Y";
}

// Keys stop it meanwhile.
template <typename Reply>
Told Browser::awaited(const Request<Reply> &request, AgentAdvance &advance) {
  AdvanceRate rate;
  while (!request.waitFor(50ms)) {
    if (wantsToStop())
      request.cancel();
    if (auto progress = advance.take())
      drawStatus(advanceInWords("q stops", *progress, rate.of(*progress, session_.now())));
  }
  return request.get();
}

// Gives why not.
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
  if (paths.empty() || !isConfirmed(deed, paths))
    return;
  isStopWished_ = false;
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

// As much of it as there is now.
void Browser::refresh(const std::string &path) {
  bool wasStopped = std::exchange(isStopWished_, false);
  auto tree = measure(path);
  list_->replace(path, tree ? &tree->root : nullptr);
  isStopWished_ = wasStopped;
}

} // namespace kw
