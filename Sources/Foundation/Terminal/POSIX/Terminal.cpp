// Terminals by the C library.
#include "Foundation/Terminal/Terminal.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace NS {
namespace {

Descriptor controllingTerminal() {
  return Descriptor(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
}

bool writeWhole(int descriptor, std::string_view text) {
  while (!text.empty()) {
    ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0)
      return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string readLine(int descriptor) {
  std::string line;
  char letter = 0;
  for (;;) {
    ssize_t count = ::read(descriptor, &letter, 1);
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0 || letter == '\n')
      return line;
    line += letter;
  }
}

} // namespace

bool standardInputIsTerminal() {
  return ::isatty(STDIN_FILENO) == 1;
}

bool standardErrorIsTerminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

bool standardOutputIsTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

bool hasControllingTerminal() {
  return static_cast<bool>(controllingTerminal());
}

std::optional<std::string> answerOnTerminal(const std::string &question) {
  Descriptor terminal = controllingTerminal();
  if (!terminal)
    return std::nullopt;
  if (!writeWhole(terminal.get(), question))
    return "";
  return readLine(terminal.get());
}

} // namespace NS
