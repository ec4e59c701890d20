// Cancels requests, and reports their progress.
#include "Service/Linux/ServiceControl.h"

#include "Protocol/BusNames.h"

#include <utility>

namespace NS {
namespace {

constexpr std::chrono::milliseconds betweenProgress{250};

bool isNews(const Progress::Snapshot &now, const Progress::Snapshot &told) {
  return now.items != told.items || now.bytes != told.bytes || now.path != told.path;
}

} // namespace

ServiceControl::ServiceControl(BusThread &thread, BusOutbox &outbox, ServiceClients &clients,
                               ServiceReplies &replies, std::string path)
    : thread_(thread), outbox_(outbox), clients_(clients), replies_(replies),
      path_(std::move(path)) {}

std::string_view ServiceControl::description() {
  return R"( <interface name="org.keepwell.KWRequestControl">
  <method name="Cancel">
   <arg type="u" name="serial" direction="in"/>
   <arg type="b" name="found" direction="out"/>
  </method>
  <method name="EndRequestsOnLeaving">
   <arg type="b" name="ends" direction="in"/>
  </method>
  <method name="SubscribeToProgress">
   <arg type="b" name="subscribes" direction="in"/>
  </method>
  <signal name="Progress">
   <arg type="u" name="serial"/>
   <arg type="t" name="items"/>
   <arg type="t" name="bytes"/>
   <arg type="s" name="path"/>
  </signal>
  <signal name="ReadingTrial">
   <arg type="s" name="padding"/>
  </signal>
 </interface>
)";
}

const char *ServiceControl::signatureOf(std::string_view member) {
  if (member == kw::kCancelMember)
    return "u";
  return member == kw::kEndMember || member == kw::kSubscribeMember ? "b" : nullptr;
}

BusMessage ServiceControl::handle(BusMessage &call) {
  BusMessage reply = call.makeReply();
  std::string_view client = call.sender();
  if (call.member() == kw::kCancelMember)
    reply.write(replies_.cancel(client, call.readUInt32()));
  else if (call.member() == kw::kEndMember)
    clients_.clientOf(client).endsOnLeaving = call.readBool();
  else
    setFollowing(client, call.readBool());
  return reply;
}

void ServiceControl::leave(std::string_view client) {
  if (auto found = followers_.find(client); found != followers_.end())
    followers_.erase(found);
}

void ServiceControl::setFollowing(std::string_view client, bool follows) {
  if (!follows)
    return leave(client);
  static_cast<void>(clients_.clientOf(client)); // makes the client, so that its leaving is noticed
  followers_.try_emplace(std::string(client));
  tellLater();
}

void ServiceControl::tellLater() {
  if (isAboutToTell_ || followers_.empty())
    return;
  thread_.callAfter(betweenProgress, [this] {
    isAboutToTell_ = false;
    tellLater(); // first, since telling may run out of memory
    tell();
  });
  isAboutToTell_ = true;
}

void ServiceControl::tell() {
  for (auto &[client, told] : followers_)
    tell(client, told);
}

// A client that does not read misses some reports; the next ones have higher
// counts.
void ServiceControl::tell(const std::string &client, Told &told) {
  Told now;
  replies_.forEach(client, [&](std::uint32_t serial, ServiceRequest &request) {
    const Progress::Snapshot &snapshot =
        now.insert_or_assign(serial, request.progress.snapshot()).first->second;
    if (!isNews(snapshot, told[serial]) || outbox_.isWaiting(client))
      return;
    BusMessage signal =
        thread_.bus().makeSignal(client, path_, kw::kControlInterface, kw::kProgressMember);
    signal.write(serial);
    signal.write(snapshot.items);
    signal.write(snapshot.bytes);
    signal.write(snapshot.path);
    outbox_.sendOrDrop(std::move(signal));
  });
  told = std::move(now);
}

BusMessage ServiceControl::makeTrial(const std::string &client, std::size_t bytes) {
  BusMessage trial =
      thread_.bus().makeSignal(client, path_, kw::kControlInterface, kw::kReadingTrialMember);
  trial.write(std::string(bytes, ' '));
  return trial;
}

} // namespace NS
