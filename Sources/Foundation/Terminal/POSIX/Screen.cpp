// The screen by curses, in its edition for wide characters.
#include "Foundation/Terminal/Screen.h"

#include "Foundation/Terminal/Terminal.h"
#include "Foundation/Text/Unicode.h"

#include <atomic>
#include <clocale>
#include <csignal>
#include <cwchar>
#define NCURSES_NOMACROS
#include <curses.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr short escapeDelay = 25; // milliseconds in which the rest of a sequence comes
constexpr wint_t stopKey = 26;    // ^Z

struct termios formerModes;
std::atomic<bool> isTaken{false};

char32_t keyOf(wint_t code) {
  switch (code) {
  case KEY_UP:
    return Key::Up;
  case KEY_DOWN:
    return Key::Down;
  case KEY_LEFT:
    return Key::Left;
  case KEY_RIGHT:
    return Key::Right;
  case KEY_PPAGE:
    return Key::PageUp;
  case KEY_NPAGE:
    return Key::PageDown;
  case KEY_HOME:
    return Key::Home;
  case KEY_END:
    return Key::End;
  case KEY_BACKSPACE:
    return Key::Backspace;
  case KEY_ENTER:
    return Key::Enter;
  case KEY_RESIZE:
    return Key::Resize;
  default:
    return Key::None;
  }
}

// A terminal that is gone reports a hang-up, and reading it gives no key.
bool isGone() {
  struct pollfd input {
    STDIN_FILENO, POLLIN, 0
  };
  return ::poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

// Stops the group with the default action of SIGTSTP: the kernel may run the
// handler of curses on another thread.
void stopProcessGroup() {
  struct sigaction former {};
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  sigemptyset(&usual.sa_mask);
  if (::sigaction(SIGTSTP, nullptr, &former) != 0 || former.sa_handler == SIG_IGN)
    return;
  ::sigaction(SIGTSTP, &usual, nullptr);
  ::kill(0, SIGTSTP);
  ::sigaction(SIGTSTP, &former, nullptr);
}

int attributesOf(Screen::Look look) {
  if (look == Screen::Look::Plain)
    return 0;
  return static_cast<int>(look == Screen::Look::Reverse ? A_REVERSE : A_BOLD);
}

class CursesScreen final : public Screen {
public:
  explicit CursesScreen(SCREEN *screen) : screen_(screen) {
    ::raw(); // ^C is a key
    ::noecho();
    ::nonl();
    ::keypad(stdscr, true);
    ::set_escdelay(escapeDelay);
    ::curs_set(0);
  }
  ~CursesScreen() override {
    ::endwin();
    ::delscreen(screen_);
    isTaken = false;
  }
  CursesScreen(const CursesScreen &) = delete;
  CursesScreen &operator=(const CursesScreen &) = delete;

  int rows() const override { return getmaxy(stdscr); }
  int columns() const override { return getmaxx(stdscr); }
  void clear() override { ::erase(); }

  void put(int row, int column, std::string_view text, Look look) override {
    if (row < 0 || row >= rows() || column >= columns())
      return;
    // Leaves the last place of the last line free: writing it may scroll.
    int room = columns() - column - (row + 1 == rows() ? 1 : 0);
    std::wstring wide;
    for (std::size_t at = 0; at < text.size();) {
      auto [value, length, wellFormed] = decodeCharacter(text, at);
      auto letter = static_cast<wchar_t>(wellFormed ? value : U'?');
      int width = ::wcwidth(letter);
      if (width > room)
        break;
      room -= width > 0 ? width : 0;
      if (width >= 0)
        wide += letter;
      at += length;
    }
    ::attrset(attributesOf(look));
    ::mvaddnwstr(row, column, wide.c_str(), static_cast<int>(wide.size()));
    ::attrset(0);
  }
  void show() override { ::refresh(); }

  char32_t key(std::chrono::milliseconds wait) override {
    ::timeout(static_cast<int>(wait.count()));
    wint_t code = 0;
    int kind = ::get_wch(&code);
    if (kind == ERR)
      return isGone() ? Key::Gone : Key::None;
    if (kind == KEY_CODE_YES)
      return keyOf(code);
    if (code == stopKey) {
      ::endwin();
      stopProcessGroup();
      ::refresh();
      return Key::Resize;
    }
    if (code == L'\r')
      return Key::Enter;
    return code == 8 ? Key::Backspace : static_cast<char32_t>(code);
  }

private:
  SCREEN *const screen_;
};

} // namespace

std::unique_ptr<Screen> Screen::open() {
  if (!standardInputIsTerminal() || !standardOutputIsTerminal() ||
      ::tcgetattr(STDIN_FILENO, &formerModes) != 0)
    return nullptr;
  std::setlocale(LC_CTYPE, "");
  SCREEN *screen = ::newterm(nullptr, stdout, stdin);
  if (!screen)
    return nullptr;
  isTaken = true;
  return std::make_unique<CursesScreen>(screen);
}

// Makes no call of curses, since another thread may be in one.
void Screen::giveBack() {
  if (!isTaken)
    return;
  constexpr std::string_view leave = "\x1b[?1049l\x1b[?25h\x1b[0m\r\n";
  [[maybe_unused]] auto written = ::write(STDOUT_FILENO, leave.data(), leave.size());
  ::tcsetattr(STDIN_FILENO, TCSANOW, &formerModes);
}

} // namespace NS
