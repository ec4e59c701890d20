// The loop of the view: it draws, waits for a key and obeys it.
#include "CommandLine/Browser.h"

#include "Foundation/Text/Unicode.h"

#include <array>

namespace kw {
namespace {

using namespace std::chrono_literals;

constexpr std::array allKeys{
    "up, down, k, j         the item above, the item below",
    "page up, page down     a screen up, a screen down",
    "home, end              the first item, the last item",
    "right, enter, l        into the folder",
    "left, backspace, h     to the folder above",
    "s, n, t, i             sort by size, name, time, number of items",
    ".                      hide or show hidden items",
    "/                      find a name; with no name, the next match",
    "space                  mark the item, or unmark it",
    "u                      unmark all items",
    "d                      move the marked items to the Trash",
    "r                      remove them for good",
    "x                      overwrite their contents, then remove them",
    "^Z                     pause; the shell's fg returns",
    "q, ^C                  leave",
    "",
    "d, r and x take the current item if no item is marked, and ask first.",
    "~ after a size: the agent measured a part, or a part could not be measured.",
};

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

void Browser::run() {
  draw();
  while (!session_.isStopped()) {
    char32_t key = screen_.key(200ms);
    if (key == NS::Key::None)
      continue;
    if (!handle(key))
      return;
    draw();
  }
}

bool Browser::handle(char32_t key) {
  if (key == U'q' || key == NS::Key::Interrupt || key == NS::Key::Gone)
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
  case U'?':
    return showKeys();
  case U' ':
    list_->toggleMark();
    return list_->moveBy(1);
  case U'u':
    return list_->unmarkAll();
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
    if (key == NS::Key::Escape || key == NS::Key::Interrupt || key == NS::Key::Gone)
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

void Browser::showKeys() {
  for (char32_t key = NS::Key::Resize; key == NS::Key::None || key == NS::Key::Resize;) {
    if (session_.isStopped())
      return;
    screen_.clear();
    screen_.put(0, 0, "Keys", NS::Screen::Look::Bold);
    for (std::size_t line = 0; line < allKeys.size(); ++line)
      screen_.put(static_cast<int>(line) + 1, 2, allKeys[line], NS::Screen::Look::Plain);
    screen_.show();
    key = screen_.key(200ms);
  }
}

} // namespace kw
