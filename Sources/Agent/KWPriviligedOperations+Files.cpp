// The handlers for single files and folders, echo and pleaseTerminate. They
// pass paths on unchanged: no code here checks or restricts them.
#include "Agent/KWPriviligedOperations.h"

#include "Additions/NSFileManager+FileModificationsAdditions.h"
#include "Agent/Answer.h"
#include "Foundation/Processes/Process.h"
#include "Foundation/Trees/FileManager.h"
#include "Tools/RVFileSizer.h"

namespace kw {

void KWPriviligedOperations::pleaseTerminate() {
  // Comes first, so that no further request of this client begins.
  if (auto connection = xpcConnection())
    connection->suspend();
  NS::Process::shared().exit(0);
}

void KWPriviligedOperations::echo(const std::optional<std::string> &text, KWEchoReply reply) {
  answer(reply, text, std::nullopt);
}

void KWPriviligedOperations::fileExistsAtPath(const std::string &path, KWFlagReply reply) {
  bool exists = NS::FileManager::defaultManager().fileExistsAtPath(path);
  answer(reply, exists);
}

void KWPriviligedOperations::moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                                            KWFlagReply reply) {
  std::optional<NS::Error> error;
  bool moved = advancedMoveItemAtPath(NS::FileManager::defaultManager(), srcPath, dstPath, &error);
  answer(reply, moved, error);
}

void KWPriviligedOperations::removeItemAtPath(const std::string &path, KWFlagReply reply) {
  std::optional<NS::Error> error;
  bool removed = removeFileAtPath(NS::FileManager::defaultManager(), path, &error);
  answer(reply, removed, error);
}

void KWPriviligedOperations::securelyRemoveItemAtPath(const std::string &path, KWFlagReply reply) {
  std::optional<NS::Error> error;
  bool removed = securelyRemoveFileAtPath(NS::FileManager::defaultManager(), path, &error);
  // Clients get no error of a shredding, unless they cancelled it themselves.
  if (error && error->code() != NS::UserCancelledError)
    error.reset();
  answer(reply, removed, error);
}

void KWPriviligedOperations::moveToTrashItemAtPath(const std::string &path, KWFlagReply reply) {
  std::optional<NS::Error> error;
  bool moved =
      advancedMoveItemAtPath(NS::FileManager::defaultManager(), path, std::nullopt, &error);
  // Inverted, as clients have always read it: true means failure.
  answer(reply, !moved, error);
}

void KWPriviligedOperations::truncateFileAtPath(const std::string &path, KWFlagReply reply) {
  bool truncated = kw::truncateFileAtPath(NS::FileManager::defaultManager(), path);
  answer(reply, truncated);
}

void KWPriviligedOperations::sizeOfItemAtPath(const std::string &path, KWSizeReply reply) {
  std::optional<NS::Error> error;
  std::uint64_t size = RVFileSizer::shared().wholeItemSizeAtPath(path, &error);
  // A client must not take a part of the size for the whole.
  reply(error ? 0 : static_cast<std::int64_t>(size), error);
}

} // namespace kw
