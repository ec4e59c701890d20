// The bodies that both hosts share, in a program of their own: it links for
// macOS only if they call nothing that its system library lacks.
#include "Foundation/Base/Log.h"
#include "Foundation/Files/URL.h"
#include "Foundation/Text/PathUtilities.h"

int main(int argc, char **argv) {
  for (int index = 1; index < argc; ++index) {
    NS::URL url = NS::URL::fileURLWithPath(argv[index]);
    std::optional<NS::Error> error;
    if (url.checkResourceIsReachable(&error))
      NS::Log("%@: %@", NS::lastPathComponent(url.path()), url);
    else
      NS::Log("%@", error);
  }
  return 0;
}
