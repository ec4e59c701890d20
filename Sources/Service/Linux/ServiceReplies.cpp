// Turns outcomes into messages.
#include "Service/Linux/ServiceReplies.h"

#include "Foundation/Base/Log.h"
#include "Protocol/Linux/BusValues.h"

#include <cerrno>
#include <new>
#include <utility>

namespace NS {
namespace {

constexpr const char *failed = "org.freedesktop.DBus.Error.Failed";

// A message of this size finds room, however much others leave unread.
constexpr std::size_t smallBytes = std::size_t{32} << 10;

XPCValue cancelledValue(const XPCMethod &method, XPCKind kind) {
  switch (kind) {
  case XPCKind::Flag:
    return method.failureFlag;
  case XPCKind::Int32:
    return std::int32_t{0};
  case XPCKind::Int64:
    return std::int64_t{0};
  case XPCKind::Error:
    return Error(CocoaErrorDomain, UserCancelledError, {},
                 std::make_shared<const Error>(POSIXErrorDomain, ECANCELED));
  default:
    return std::monostate();
  }
}

bool tryToWrite(BusMessage &message, const std::vector<XPCParameter> &kinds,
                const XPCValues &values) {
  try {
    writeValues(message, kinds, values);
    return true;
  } catch (const BusMessageTooLarge &) {
    return false;
  }
}

// For a call that expects no answer: only logs a failure.
XPCReply unheardReply(const std::string &member) {
  return XPCReply([member](const XPCOutcome &outcome) {
    if (!outcome.reason.empty())
      Log("%@: %@", member, outcome.reason);
  });
}

} // namespace

XPCValues cancelledValues(const XPCMethod &method) {
  XPCValues values;
  for (const XPCParameter &parameter : method.replies)
    values.push_back(cancelledValue(method, parameter.kind));
  return values;
}

ServiceReplies::Expected ServiceReplies::expect(const XPCMethod &method, const BusMessage &call) {
  auto request = std::make_shared<ServiceRequest>();
  if (method.oneWay || !call.expectsReply())
    return {unheardReply(method.member), request, 0};
  std::string client(call.sender());
  std::uint64_t number = ++lastNumber_;
  Pending pending{
      call.serial(),    &method,
      request,          call.makeReply(),
      call.makeReply(), call.makeFailure(failed, "The request failed; the agent's log says why.")};
  XPCReply reply = replyTo(client, number);
  requests_[client].emplace(number, std::move(pending));
  return {std::move(reply), request, number};
}

XPCReply ServiceReplies::replyTo(const std::string &client, std::uint64_t number) {
  // Allocated early, so that a request without memory for its answer can still
  // fail with one.
  BusMailbox::Works lastResort;
  lastResort.emplace_back(
      [this, client, number] { answer(client, number, {.reason = "out of memory"}); });
  return XPCReply([this, client, number, mailbox = thread_.mailbox(),
                   lastResort = std::move(lastResort)](XPCOutcome outcome) mutable {
    // A failure is posted even on this thread: when the queue refuses a request,
    // its reply fails before deliver() forgets the request and answers the call.
    bool isReply = outcome.replied;
    try {
      auto work = [this, client, number, outcome = std::move(outcome)] {
        answer(client, number, outcome);
      };
      isReply ? mailbox->doOrPost(std::move(work)) : mailbox->post(std::move(work));
    } catch (const std::bad_alloc &) {
      mailbox->post(std::move(lastResort));
    }
  });
}

void ServiceReplies::forget(std::string_view client, std::uint64_t number) {
  auto found = requests_.find(client);
  if (found == requests_.end())
    return;
  found->second.erase(number);
  if (found->second.empty())
    requests_.erase(found);
}

void ServiceReplies::answer(const std::string &client, std::uint64_t number,
                            const XPCOutcome &outcome) {
  auto found = requests_.find(client);
  if (found == requests_.end())
    return;
  auto node = found->second.extract(number);
  if (found->second.empty())
    requests_.erase(found);
  if (node.empty())
    return;
  Pending &pending = node.mapped();
  if (!outcome.replied)
    return fail(pending, outcome.reason);
  try {
    sendReply(pending, outcome.values);
  } catch (const std::exception &exception) {
    fail(pending, exception.what());
  }
}

// A reply that is too large for a message, or finds no room for long, goes
// without the details of its errors. If it is still too large, the request
// fails.
void ServiceReplies::sendReply(Pending &pending, const XPCValues &values) {
  const std::vector<XPCParameter> &kinds = pending.method->replies;
  bool isWhole = tryToWrite(pending.reply, kinds, values);
  if (isWhole && pending.reply.size() <= smallBytes)
    return outbox_.send(std::move(pending.reply));
  if (!tryToWrite(pending.brief, kinds, valuesWithoutUserInfo(values)) && !isWhole)
    throw BusMessageTooLarge();
  bool isSmall = pending.brief.size() <= smallBytes;
  outbox_.send(std::move(isWhole ? pending.reply : pending.brief),
               std::move(isWhole && isSmall ? pending.brief : pending.failure));
}

void ServiceReplies::fail(Pending &pending, std::string_view reason) {
  try {
    Log("%@ failed: %@", pending.method->member, reason);
  } catch (const std::bad_alloc &) { // the answer matters more than this text
  }
  outbox_.send(std::move(pending.failure));
}

bool ServiceReplies::cancel(std::string_view client, std::uint32_t serial) {
  auto found = requests_.find(client);
  if (found == requests_.end())
    return false;
  for (auto &[number, pending] : found->second) {
    if (pending.serial != serial)
      continue;
    pending.request->progress.cancel();
    if (pending.request->drop())
      answer(found->first, number, {.replied = true, .values = cancelledValues(*pending.method)});
    return true;
  }
  return false;
}

void ServiceReplies::leave(std::string_view client, bool endsRequests) {
  auto found = requests_.find(client);
  if (found == requests_.end())
    return;
  if (endsRequests)
    for (auto &[number, pending] : found->second) {
      pending.request->progress.cancel();
      pending.request->drop();
    }
  requests_.erase(found);
}

void ServiceReplies::forEach(std::string_view client,
                             const std::function<void(std::uint32_t, ServiceRequest &)> &receiver) {
  if (auto found = requests_.find(client); found != requests_.end())
    for (auto &[number, pending] : found->second)
      receiver(pending.serial, *pending.request);
}

} // namespace NS
