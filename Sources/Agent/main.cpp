// The process entry of the agent: one listener, its delegate, the run loop.
//
// A map of the source, from a message to the disk:
//
//   Service/XPCListener           the well-known name; one connection per client
//   Agent/KWAgentServiceDelegate  the exported object of a new connection
//   Agent/KWPrivilegedOperation   the protocol: 26 messages and their replies
//   Agent/KWPriviligedOperations  their handlers, one file for each kind of work
//   Tools/                        the system's own tools, launchd jobs, sizes
//   Additions/                    removing, moving, searching; strings and more
//   Foundation/                   the platform; its bodies in POSIX, Linux, macOS
#include "Agent/KWAgentServiceDelegate.h"
#include "Agent/KWPrivilegedOperation.h"
#include "Agent/KWPrivilegedOperationProgress.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Processes/Process.h"
#include "Foundation/Threads/RunLoop.h"
#include "Protocol/Identity.h"
#include "Service/RequestJournal.h"
#include "Service/XPCListener.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr const char *usage =
    "Usage: keepwell-agent [--bus system|session|ADDRESS]\n"
    "\n"
    "The privileged agent of Keepwell. It is started by the message bus when a\n"
    "client calls it; without --bus it serves the bus that started it, else the\n"
    "system bus.\n";

// The bus sets this variable for a process that it starts.
std::string defaultBus() {
  const char *address = std::getenv("DBUS_STARTER_ADDRESS");
  return address && *address ? address : "system";
}

struct Options {
  std::string bus = defaultBus();
  bool help = false;
  bool version = false;
};

// Empty when an argument is unknown or lacks its value.
std::optional<Options> parse(int count, char **arguments) {
  Options options;
  for (int index = 1; index < count; ++index) {
    std::string_view argument = arguments[index];
    if (argument == "--help")
      options.help = true;
    else if (argument == "--version")
      options.version = true;
    else if (argument == "--bus" && index + 1 < count && *arguments[index + 1])
      options.bus = arguments[++index];
    else if (argument.substr(0, 6) == "--bus=" && argument.size() > 6)
      options.bus = argument.substr(6);
    else
      return std::nullopt;
  }
  return options;
}

int serve(const std::string &bus) {
  NS::Process::shared().installSignalDispositions();
  NS::raiseDescriptorLimit();
  auto listener = NS::XPCListener::listenerWithMachServiceName(kw::kAgentServiceName, bus);
  // The listener holds its delegate weakly; this reference keeps it.
  auto delegate = std::make_shared<kw::KWAgentServiceDelegate>();
  listener->setDelegate(delegate);
  listener->announce(kw::KWPrivilegedOperation::interface(),
                     kw::KWPrivilegedOperationProgress::interface());
  NS::Process::shared().beforeExit(NS::recordRequestsAtEnd);
  listener->resume();
  NS::RunLoop::currentRunLoop().run();
  return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv) {
  auto options = parse(argc, argv);
  if (!options) {
    std::fputs(usage, stderr);
    return 2;
  }
  if (options->help || options->version) {
    std::fputs(options->help ? usage : "keepwell-agent ", stdout);
    if (options->version && !options->help)
      std::printf("%s\n", std::string(kw::kAgentBundleVersion).c_str());
    return EXIT_SUCCESS;
  }
  try {
    return serve(options->bus);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "keepwell-agent: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
