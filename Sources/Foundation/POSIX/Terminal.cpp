// Terminals by the C library.
#include "Foundation/Terminal.h"

#include <unistd.h>

namespace NS {

bool standardInputIsTerminal() {
  return ::isatty(STDIN_FILENO) == 1;
}

bool standardErrorIsTerminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

bool standardOutputIsTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

} // namespace NS
