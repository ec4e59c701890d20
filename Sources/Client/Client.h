// The typed client of the agent. Each operation of the agent has a form that
// blocks until the reply and a form that does not.
//
//   auto client = kw::Client::connect();
//   std::uint64_t bytes = client->sizeOfItemAtPath("/usr").allocatedBytes;
//
//   std::vector<kw::Request<kw::RemovalReply>> removals;
//   for (const std::string &path : paths)
//     removals.push_back(client->removeItemAtPathAsync(path));
//   for (const auto &removal : removals)
//     if (const kw::ClientError *error = removal.wait().error()) ...
//
// Threads: any thread may use everything here at any time. A client has one
// thread of its own, on which callbacks and progress arrive (Request::then has
// their rules).
//
// Order: the agent works on the requests of one client one after the other, in
// the order in which they were started; use several clients for work side by
// side. Only memory bounds the number of started requests: the client sends a
// part of them at a time and keeps the rest.
//
// Time: a request has no time limit unless RequestOptions gives one, since an
// operation may take as long as a disk is large. The agent goes on with a
// request after its time limit.
//
// Failure: the blocking form throws ClientError, and the other form's Result
// holds it. Its kind tells "never reached the agent" from "interrupted, unknown
// how far it came" and from "refused". When the agent could not do the work,
// that is its reply and no ClientError. After an end of the agent or of the bus
// the next request starts the agent and connects anew.
//
// Arguments: paths must be absolute, since the agent has a working folder of
// its own. Text must be UTF-8, as everything on the bus.
#pragma once

#include "Client/ClientError.h"
#include "Client/Export.h"
#include "Client/Replies.h"
#include "Client/Request.h"

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

class RequestEngine;

struct ClientOptions {
  // When the client goes, or its program ends, the agent cancels the requests
  // that have not ended, as Request::cancel() does. Otherwise, or if it is too
  // old for that, the agent carries them out.
  bool endRequestsOnLeaving = false;
  // Called with an exception that a callback of this client threw, on the
  // thread that called the callback. When null, the client reports the
  // exception in a line on standard error.
  std::function<void(std::exception_ptr)> callbackFailed = nullptr;
  // How long connect() waits for the bus to accept the connection. After that it
  // throws ClientError of kind DeadlinePassed. When null, it waits as long as the
  // bus's own library does, about two minutes.
  std::optional<std::chrono::milliseconds> connectTimeLimit = std::nullopt;
  // connect() calls it some times a second while it waits, on its own thread. When
  // the result is false, it throws ClientError of kind Cancelled.
  std::function<bool()> keepConnecting = nullptr;
};

class KEEPWELL_EXPORT Client {
public:
  // A piece of a running tool's output.
  using Progress = std::function<void(const std::string &chunk)>;

  // Connects to a bus: "system", "session" or a bus address. Blocks until the bus
  // has accepted the connection, or until the options' time limit. The agent
  // itself is started by the first request. Throws ClientError.
  static std::unique_ptr<Client> connect(const std::string &bus = "system",
                                         const ClientOptions &options = {});

  // Ends all requests that have not ended with ClientError::Kind::Cancelled and
  // calls their callbacks before it returns. It also ends requests that these
  // callbacks start, so a callback that starts its request anew each time keeps
  // it from returning. When it runs in a callback of this client, the requests
  // end soon after. A forked child may destroy its parent's client; a request
  // started there throws ClientError.
  ~Client();
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  // Cancels all requests that were started before, as Request::cancel() does. A
  // thread that waits for one wakes when it has ended. Does not block.
  void cancelAll();

  // --- the agent itself

  // Ends the agent, with its work for other clients unfinished, and waits until
  // its name has no owner. The bus starts an agent for this when none is
  // running.
  TerminationReply pleaseTerminate(const RequestOptions &options = {});
  Request<TerminationReply> pleaseTerminateAsync(const RequestOptions &options = {});
  // The agent replies with the same text.
  EchoReply echo(const std::string &text, const RequestOptions &options = {});
  Request<EchoReply> echoAsync(const std::string &text, const RequestOptions &options = {});

  // --- files

  // Tells whether an item exists at the path. The agent follows a final link.
  ExistenceReply fileExistsAtPath(const std::string &path, const RequestOptions &options = {});
  Request<ExistenceReply> fileExistsAtPathAsync(const std::string &path,
                                                const RequestOptions &options = {});
  // Gives the item a new path, also across volumes, and makes missing folders.
  // It is also Done when the destination is the folder that already holds the
  // item.
  FlagReply moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                           const RequestOptions &options = {});
  Request<FlagReply> moveItemAtPathAsync(const std::string &srcPath, const std::string &dstPath,
                                         const RequestOptions &options = {});
  // Removes the item with all that it holds, locked items included. A missing
  // item counts as removed. Items that a failure leaves are still in place.
  RemovalReply removeItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<RemovalReply> removeItemAtPathAsync(const std::string &path,
                                              const RequestOptions &options = {});
  // Overwrites the data of the item's files once, then removes the item. Unlocks
  // only the item itself, so a locked item inside a folder makes it fail. A
  // failure has no reason.
  FlagReply securelyRemoveItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> securelyRemoveItemAtPathAsync(const std::string &path,
                                                   const RequestOptions &options = {});
  // Done means that the item is in the Trash of the agent's user. (On the bus
  // the flag has the opposite sense.)
  FlagReply moveToTrashItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> moveToTrashItemAtPathAsync(const std::string &path,
                                                const RequestOptions &options = {});
  // Cuts the file to length zero. NotDone for a folder, a missing item and a
  // locked file; a failure has no reason.
  FlagReply truncateFileAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> truncateFileAtPathAsync(const std::string &path,
                                             const RequestOptions &options = {});
  // The bytes on disk that the item and all that it holds occupy. A folder's own
  // blocks count twice, and a file with several hard links once for each.
  SizeReply sizeOfItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<SizeReply> sizeOfItemAtPathAsync(const std::string &path,
                                           const RequestOptions &options = {});

  // --- system software

  // Forgets the package's receipt and leaves its files. Done when pkgutil ends
  // with status 0, and on a system without pkgutil.
  FlagReply removePackageWithID(const std::string &packageID, const RequestOptions &options = {});
  Request<FlagReply> removePackageWithIDAsync(const std::string &packageID,
                                              const RequestOptions &options = {});
  // Unloads a kernel extension as far as possible and deletes its bundle.
  // NotDone for a path without a bundle identifier.
  FlagReply removeKextAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> removeKextAtPathAsync(const std::string &path,
                                           const RequestOptions &options = {});
  // Strips a universal binary. The architectures are options of ditto, passed on
  // unchanged ("--arch", "x86_64"). Done also for a missing binary.
  FlagReply slimBinaryWithPath(const std::string &path, const std::vector<std::string> &archs,
                               const RequestOptions &options = {});
  Request<FlagReply> slimBinaryWithPathAsync(const std::string &path,
                                             const std::vector<std::string> &archs,
                                             const RequestOptions &options = {});

  // --- what starts by itself

  // Unloads the job and deletes its list and its privileged tool. For the list
  // of its own job the agent removes itself and ends.
  JobRemovalReply removeLaunchdAgentAtPath(const std::string &plistPath,
                                           const RequestOptions &options = {});
  Request<JobRemovalReply> removeLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                         const RequestOptions &options = {});
  // Loads the job and enables it for later starts. Done also when it is loaded
  // already.
  FlagReply enableLaunchdAgentAtPath(const std::string &plistPath,
                                     const RequestOptions &options = {});
  Request<FlagReply> enableLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                   const RequestOptions &options = {});
  // Unloads the job, disables it for later starts and stops it. Done also,
  // without any work, when it is not loaded.
  FlagReply disableLaunchdAgentAtPath(const std::string &plistPath,
                                      const RequestOptions &options = {});
  Request<FlagReply> disableLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                    const RequestOptions &options = {});
  // Removes a login item that an application registered for itself. Done also
  // when it is not registered.
  FlagReply removeSMLoginItem(const std::string &bundleID, const RequestOptions &options = {});
  Request<FlagReply> removeSMLoginItemAsync(const std::string &bundleID,
                                            const RequestOptions &options = {});
  // Removes the application from the login items of all users. Also Done when
  // none of them names it.
  FlagReply removeGlobalLoginItemForAppWithPath(const std::string &appPath,
                                                const RequestOptions &options = {});
  Request<FlagReply> removeGlobalLoginItemForAppWithPathAsync(const std::string &appPath,
                                                              const RequestOptions &options = {});
  // Start and stop a startup item with SystemStarter. Always Made, even on a
  // system without that tool.
  AttemptReply startStartupItem(const std::string &name, const RequestOptions &options = {});
  Request<AttemptReply> startStartupItemAsync(const std::string &name,
                                              const RequestOptions &options = {});
  AttemptReply stopStartupItem(const std::string &name, const RequestOptions &options = {});
  Request<AttemptReply> stopStartupItemAsync(const std::string &name,
                                             const RequestOptions &options = {});
  // Removes the library from those that launchd's configuration inserts into
  // every program. "Lauchd" (sic) is the interface's.
  FlagReply removeLibraryFromLauchdConf(const std::string &libraryPath,
                                        const RequestOptions &options = {});
  Request<FlagReply> removeLibraryFromLauchdConfAsync(const std::string &libraryPath,
                                                      const RequestOptions &options = {});

  // --- maintenance

  // Empties the system log store. NotDone when one of its two jobs could not be
  // stopped or started.
  FlagReply removeASL(const RequestOptions &options = {});
  Request<FlagReply> removeASLAsync(const RequestOptions &options = {});
  // The progress may be null. The client calls it on its own thread before the
  // request ends, under the rules of a Request's callback.
  RepairReply repairPermissions(const Progress &progress, const RequestOptions &options = {});
  Request<RepairReply> repairPermissionsAsync(const Progress &progress,
                                              const RequestOptions &options = {});
  // Runs periodic with this name as its one argument. Always Made.
  AttemptReply runPeriodicScript(const std::string &scriptName, const RequestOptions &options = {});
  Request<AttemptReply> runPeriodicScriptAsync(const std::string &scriptName,
                                               const RequestOptions &options = {});
  // Erases the search index, which the system then builds anew. Always Made.
  AttemptReply startSpotlightReindex(const RequestOptions &options = {});
  Request<AttemptReply> startSpotlightReindexAsync(const RequestOptions &options = {});
  // Flushes the caches of the name service with two tools. Done when both ended
  // with status 0; a missing tool counts as such.
  FlagReply flushDNS(const RequestOptions &options = {});
  Request<FlagReply> flushDNSAsync(const RequestOptions &options = {});
  // Erases the unified log.
  LogErasureReply removeDiagnosticLogs(const RequestOptions &options = {});
  Request<LogErasureReply> removeDiagnosticLogsAsync(const RequestOptions &options = {});

private:
  friend struct ClientMaker;
  explicit Client(std::shared_ptr<RequestEngine> engine);

  const std::shared_ptr<RequestEngine> engine_;
};

} // namespace kw
