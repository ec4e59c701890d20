// The handlers that act on single files and folders, and the two that keep
// house. Paths go down as they came: nothing here checks or restricts them.
#include "Agent/KWPriviligedOperations.h"

#include "Foundation/FileManager.h"
#include "Foundation/Process.h"

namespace kw {

void KWPriviligedOperations::pleaseTerminate() {
  // First, so that nothing further of this client is begun.
  if (auto connection = xpcConnection())
    connection->suspend();
  NS::Process::shared().exit(0);
}

void KWPriviligedOperations::echo(const std::optional<std::string> &text, KWEchoReply reply) {
  if (reply)
    reply(text, std::nullopt);
}

} // namespace kw
