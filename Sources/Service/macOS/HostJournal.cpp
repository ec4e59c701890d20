// macOS has no journal with fields: the caller then writes a line to the
// diagnostic log, which the host's log keeps.
#include "Service/Internal/HostJournal.h"

namespace NS {

bool writeToHostJournal(const RequestRecord & /*record*/) {
  return false;
}

} // namespace NS
