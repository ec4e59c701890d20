// Terminals by the C library.
#include "Foundation/Terminal.h"

#include <unistd.h>

namespace NS {

bool standardOutputIsTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

} // namespace NS
