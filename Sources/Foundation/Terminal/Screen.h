// A terminal as a grid of letters that a program fills, and its keys.
//
// Only one thread may use a screen, and only one screen may exist at a time.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace NS {

// A key that is pressed: a character, or one of these.
namespace Key {
inline constexpr char32_t None = 0;      // no key in time
inline constexpr char32_t Interrupt = 3; // ^C
inline constexpr char32_t Enter = U'\n';
inline constexpr char32_t Escape = 27;
inline constexpr char32_t Backspace = 127;
inline constexpr char32_t Up = 0x110000; // beyond all characters
inline constexpr char32_t Down = 0x110001;
inline constexpr char32_t Left = 0x110002;
inline constexpr char32_t Right = 0x110003;
inline constexpr char32_t PageUp = 0x110004;
inline constexpr char32_t PageDown = 0x110005;
inline constexpr char32_t Home = 0x110006;
inline constexpr char32_t End = 0x110007;
inline constexpr char32_t Resize = 0x110008; // the terminal has another size, or is back
inline constexpr char32_t Gone = 0x110009;   // the terminal is gone; no key comes any more
} // namespace Key

class Screen {
public:
  enum class Look { Plain, Reverse, Bold };

  virtual ~Screen() = default;

  // Takes over the terminal of the standard streams, until the destructor
  // restores it. Null when standard input or output is not a terminal, or when
  // curses does not know the terminal. Sets the locale of characters.
  static std::unique_ptr<Screen> open();
  // Restores the terminal if a screen has it. For a process that ends without
  // the destructor; any thread may call it.
  static void giveBack();

  virtual int rows() const = 0;
  virtual int columns() const = 0;
  virtual void clear() = 0;
  // Writes UTF-8 without control characters from this place to the right; cuts
  // off text that does not fit.
  virtual void put(int row, int column, std::string_view text, Look look) = 0;
  // Shows the written text.
  virtual void show() = 0;
  // Blocks until a key is pressed or the time is over. At ^Z it restores the
  // terminal and stops the process group, as the terminal itself does for other
  // programs; when the group goes on it returns Resize.
  virtual char32_t key(std::chrono::milliseconds wait) = 0;
};

} // namespace NS
