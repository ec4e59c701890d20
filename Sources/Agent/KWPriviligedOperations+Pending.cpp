// The messages whose handlers are still to come: known, announced, and answered
// as not supported.
#include "Agent/KWPriviligedOperations+Pending.h"
#include "Agent/KWPriviligedOperations.h"
#include "Foundation/Exception.h"

#include <algorithm>
#include <array>

namespace kw {
namespace {

constexpr std::array<std::string_view, 9> pendingSelectors{
    "removePackageWithID:withReply:",
    "removeKextAtPath:withReply:",
    "slimBinaryWithPath:archs:withReply:",
    "removeASLWithReply:",
    "repairPermissionsWithReply:",
    "runPeriodicScript:withReply:",
    "startSpotlightReindexWithReply:",
    "flushDNSWithReply:",
    "removeDiagnosticLogsWithReply:",
};

[[noreturn]] void notBuilt() {
  throw NS::Exception(NS::InternalInconsistencyException, "This operation is not built.");
}

} // namespace

bool isPendingSelector(std::string_view selector) {
  return std::find(pendingSelectors.begin(), pendingSelectors.end(), selector) !=
         pendingSelectors.end();
}

void KWPriviligedOperations::removePackageWithID(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::removeKextAtPath(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::slimBinaryWithPath(const std::string &,
                                                const std::vector<std::string> &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::removeASLWithReply(KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::repairPermissionsWithReply(KWRepairReply) {
  notBuilt();
}
void KWPriviligedOperations::runPeriodicScript(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::startSpotlightReindexWithReply(KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::flushDNSWithReply(KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::removeDiagnosticLogsWithReply(KWDiagnosticLogsReply) {
  notBuilt();
}

} // namespace kw
