// The messages whose handlers are still to come: known, announced, and answered
// as not supported.
#include "Agent/KWPriviligedOperations+Pending.h"
#include "Agent/KWPriviligedOperations.h"
#include "Foundation/Exception.h"

#include <algorithm>
#include <array>

namespace kw {
namespace {

constexpr std::array<std::string_view, 16> pendingSelectors{
    "fileExistsAtPath:withReply:",
    "moveItemAtPath:toPath:withReply:",
    "removeItemAtPath:withReply:",
    "securelyRemoveItemAtPath:withReply:",
    "moveToTrashItemAtPath:withReply:",
    "truncateFileAtPath:withReply:",
    "sizeOfItemAtPath:reply:",
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

void KWPriviligedOperations::fileExistsAtPath(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::moveItemAtPath(const std::string &, const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::removeItemAtPath(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::securelyRemoveItemAtPath(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::moveToTrashItemAtPath(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::truncateFileAtPath(const std::string &, KWFlagReply) {
  notBuilt();
}
void KWPriviligedOperations::sizeOfItemAtPath(const std::string &, KWSizeReply) {
  notBuilt();
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
