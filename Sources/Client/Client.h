// The typed client of the agent: each operation that the agent offers in a form
// that blocks until the reply and in one that does not.
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
// Threads: everything here may be used from any thread at once. A client has
// one thread of its own, on which callbacks and progress arrive (see
// Request::then for what they may do).
//
// Order: the agent does the requests of one client one after the other in the
// order in which they were started; use several clients for work side by side.
// As many requests as memory holds may be started: a part of them is on its
// way at a time, the rest waits in the client.
//
// Time: no request has a time limit unless RequestOptions gives one, since an
// operation may take as long as a disk is large. The agent goes on with a
// request whose time has passed.
//
// Failure: the blocking form throws ClientError, the other form's Result holds
// it; its kind tells "never reached the agent" from "interrupted, nobody knows
// how far it came" and from "refused". That the agent could not do what it was
// asked is no such failure but the reply. After an end of the agent or of the
// bus the next request starts and connects anew.
//
// Arguments: paths must be absolute, since the agent has a working folder of
// its own. Text must be UTF-8, as everything on the bus.
#pragma once

#include "Client/ClientError.h"
#include "Client/Export.h"
#include "Client/Replies.h"
#include "Client/Request.h"

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kw {

class RequestEngine;

struct ClientOptions {
  // Requests that have not ended when the client goes, or its program ends,
  // are cancelled by the agent as Request::cancel() does. Else the agent
  // carries them out, as one does that is too old to end them.
  bool endRequestsOnLeaving = false;
  // Called with what a callback of this client threw, on the thread that
  // called the callback. Null: a line on standard error tells of it.
  std::function<void(std::exception_ptr)> callbackFailed = nullptr;
};

class KEEPWELL_EXPORT Client {
public:
  // A piece of a running tool's output.
  using Progress = std::function<void(const std::string &chunk)>;

  // Connects to a bus: "system", "session" or a bus address. The agent itself
  // is started by the first request. Throws ClientError.
  static std::unique_ptr<Client> connect(const std::string &bus = "system",
                                         const ClientOptions &options = {});

  // All requests that have not ended end with ClientError::Kind::Cancelled,
  // their callbacks called, before this returns; so do requests that these
  // callbacks start, so one that starts its request anew each time keeps this
  // from returning. In a callback of this client they end soon after.
  // A forked child may destroy its parent's client; to start a request there
  // throws ClientError.
  ~Client();
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;

  // Cancels all requests that were started before, as Request::cancel() does;
  // a thread that is blocked in one wakes when it has ended. Does not block.
  void cancelAll();

  // --- the agent itself

  // Ends the agent, whatever it is doing for others, and waits until its name
  // has no owner. An agent that is not running is started for it.
  TerminationReply pleaseTerminate(const RequestOptions &options = {});
  Request<TerminationReply> pleaseTerminateAsync(const RequestOptions &options = {});
  // The text comes back as it was sent.
  EchoReply echo(const std::string &text, const RequestOptions &options = {});
  Request<EchoReply> echoAsync(const std::string &text, const RequestOptions &options = {});

  // --- files

  // Whether something stands at the path, a final link followed.
  ExistenceReply fileExistsAtPath(const std::string &path, const RequestOptions &options = {});
  Request<ExistenceReply> fileExistsAtPathAsync(const std::string &path,
                                                const RequestOptions &options = {});
  // Gives the item a new path, also across volumes; missing folders are made.
  // Done also where the destination is the folder that holds the item already.
  FlagReply moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                           const RequestOptions &options = {});
  Request<FlagReply> moveItemAtPathAsync(const std::string &srcPath, const std::string &dstPath,
                                         const RequestOptions &options = {});
  // Removes the item with all that it holds, what is locked included. What is
  // not there counts as removed. What a failure leaves behind is still there.
  RemovalReply removeItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<RemovalReply> removeItemAtPathAsync(const std::string &path,
                                              const RequestOptions &options = {});
  // Overwrites what the item's files hold once, then removes it.
  FlagReply securelyRemoveItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> securelyRemoveItemAtPathAsync(const std::string &path,
                                                   const RequestOptions &options = {});
  // Done means that the item lies in the Trash of the agent's user. (On the bus
  // the flag has the opposite sense.)
  FlagReply moveToTrashItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> moveToTrashItemAtPathAsync(const std::string &path,
                                                const RequestOptions &options = {});
  // Cuts the file to length zero.
  FlagReply truncateFileAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> truncateFileAtPathAsync(const std::string &path,
                                             const RequestOptions &options = {});
  // What the item and all that it holds occupy.
  SizeReply sizeOfItemAtPath(const std::string &path, const RequestOptions &options = {});
  Request<SizeReply> sizeOfItemAtPathAsync(const std::string &path,
                                           const RequestOptions &options = {});

  // --- system software

  // Forgets the package's receipt; its files stay.
  FlagReply removePackageWithID(const std::string &packageID, const RequestOptions &options = {});
  Request<FlagReply> removePackageWithIDAsync(const std::string &packageID,
                                              const RequestOptions &options = {});
  // Unloads and deletes a kernel extension.
  FlagReply removeKextAtPath(const std::string &path, const RequestOptions &options = {});
  Request<FlagReply> removeKextAtPathAsync(const std::string &path,
                                           const RequestOptions &options = {});
  // Strips a universal binary; the architectures are the tool's own options.
  FlagReply slimBinaryWithPath(const std::string &path, const std::vector<std::string> &archs,
                               const RequestOptions &options = {});
  Request<FlagReply> slimBinaryWithPathAsync(const std::string &path,
                                             const std::vector<std::string> &archs,
                                             const RequestOptions &options = {});

  // --- what starts by itself

  // Unloads the job and deletes its list and its privileged tool. With its own
  // job's list the agent removes itself and ends.
  JobRemovalReply removeLaunchdAgentAtPath(const std::string &plistPath,
                                           const RequestOptions &options = {});
  Request<JobRemovalReply> removeLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                         const RequestOptions &options = {});
  // Loads the job, now and from now on.
  FlagReply enableLaunchdAgentAtPath(const std::string &plistPath,
                                     const RequestOptions &options = {});
  Request<FlagReply> enableLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                   const RequestOptions &options = {});
  // Unloads the job for good and stops it.
  FlagReply disableLaunchdAgentAtPath(const std::string &plistPath,
                                      const RequestOptions &options = {});
  Request<FlagReply> disableLaunchdAgentAtPathAsync(const std::string &plistPath,
                                                    const RequestOptions &options = {});
  // Removes a login item that an application registered for itself.
  FlagReply removeSMLoginItem(const std::string &bundleID, const RequestOptions &options = {});
  Request<FlagReply> removeSMLoginItemAsync(const std::string &bundleID,
                                            const RequestOptions &options = {});
  // Done also when no login item of all users names the application.
  FlagReply removeGlobalLoginItemForAppWithPath(const std::string &appPath,
                                                const RequestOptions &options = {});
  Request<FlagReply> removeGlobalLoginItemForAppWithPathAsync(const std::string &appPath,
                                                              const RequestOptions &options = {});
  AttemptReply startStartupItem(const std::string &name, const RequestOptions &options = {});
  Request<AttemptReply> startStartupItemAsync(const std::string &name,
                                              const RequestOptions &options = {});
  AttemptReply stopStartupItem(const std::string &name, const RequestOptions &options = {});
  Request<AttemptReply> stopStartupItemAsync(const std::string &name,
                                             const RequestOptions &options = {});
  // Takes the library out of those that launchd's configuration inserts into
  // every program.
  FlagReply removeLibraryFromLauchdConf(const std::string &libraryPath,
                                        const RequestOptions &options = {});
  Request<FlagReply> removeLibraryFromLauchdConfAsync(const std::string &libraryPath,
                                                      const RequestOptions &options = {});

  // --- maintenance

  // Empties the system log store.
  FlagReply removeASL(const RequestOptions &options = {});
  Request<FlagReply> removeASLAsync(const RequestOptions &options = {});
  // The progress may be null. It is called on the client's thread, under the
  // same rules as a Request's callback, before the request ends.
  RepairReply repairPermissions(const Progress &progress, const RequestOptions &options = {});
  Request<RepairReply> repairPermissionsAsync(const Progress &progress,
                                              const RequestOptions &options = {});
  AttemptReply runPeriodicScript(const std::string &scriptName, const RequestOptions &options = {});
  Request<AttemptReply> runPeriodicScriptAsync(const std::string &scriptName,
                                               const RequestOptions &options = {});
  AttemptReply startSpotlightReindex(const RequestOptions &options = {});
  Request<AttemptReply> startSpotlightReindexAsync(const RequestOptions &options = {});
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
