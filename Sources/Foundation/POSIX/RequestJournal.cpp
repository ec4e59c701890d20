// From the outcome of a request to its entry in the journal.
#include "Foundation/RequestJournal.h"

#include "Foundation/BoundedText.h"
#include "Foundation/Clock.h"
#include "Foundation/Log.h"
#include "Foundation/POSIX/HostJournal.h"
#include "Foundation/SharedInstance.h"

#include <exception>
#include <utility>

namespace NS {
namespace {

// More texts than any request has; what comes behind them is left out.
constexpr std::size_t mostItems = 8;

class RealJournal final : public RequestJournal {
public:
  void write(const RequestRecord &record) override {
    if (!writeToHostJournal(record))
      Log("%@", textOf(record));
  }
};

SharedInstance<RequestJournal> &instance() {
  // Never destroyed: requests may still be running when the process ends.
  static auto *shared = new SharedInstance<RequestJournal>(*new RealJournal);
  return *shared;
}

void addItem(RequestRecord &record, const std::string &text) {
  if (record.items.size() < mostItems)
    record.items.push_back(boundedText(text, RequestRecord::longestText));
}

std::vector<std::string> itemsOf(const XPCValues &arguments) {
  RequestRecord record;
  for (const XPCValue &value : arguments) {
    if (const auto *text = std::get_if<std::string>(&value))
      addItem(record, *text);
    else if (const auto *texts = std::get_if<std::vector<std::string>>(&value))
      for (const std::string &each : *texts)
        addItem(record, each);
  }
  return std::move(record.items);
}

std::string reasonOf(const XPCOutcome &outcome) {
  if (!outcome.replied)
    return boundedText(outcome.reason, RequestRecord::longestText);
  for (const XPCValue &value : outcome.values)
    if (const auto *error = std::get_if<Error>(&value))
      return boundedText(error->domain(), RequestRecord::longestText) + " " +
             std::to_string(error->code());
  return {};
}

// A request under way: what is known of it before its outcome.
struct Recording {
  RequestRecord record;
  XPCSuccess succeeded;
  MonotonicTime begun;
  XPCReply reply;

  void complete(const XPCOutcome &outcome) {
    const bool done = outcome.replied && succeeded(outcome.values);
    record.outcome = done ? "done" : outcome.replied ? "refused" : "failed";
    if (!done)
      record.reason = reasonOf(outcome);
    const auto took = Clock::shared().monotonicTime().sinceStart - begun.sinceStart;
    record.took = std::chrono::duration_cast<std::chrono::microseconds>(took);
  }
};

// Whatever keeps a record from being made or written, memory above all.
template <typename Work> bool attempt(Work work) noexcept {
  try {
    work();
    return true;
  } catch (const std::exception &) {
    return false;
  }
}

// The client's answer must not depend on the record.
void finish(Recording &recording, XPCOutcome outcome) noexcept {
  const bool isComplete = attempt([&] { recording.complete(outcome); });
  if (outcome.replied)
    recording.reply.send(std::move(outcome.values));
  else
    recording.reply.fail(std::move(outcome.reason));
  if (!isComplete || !attempt([&] { RequestJournal::shared().write(recording.record); }))
    attempt([&] { Log("A request of %@ was not recorded", recording.record.member); });
}

} // namespace

RequestJournal &RequestJournal::shared() {
  return instance().get();
}

RequestJournal *RequestJournal::exchangeShared(RequestJournal *replacement) {
  return instance().exchange(replacement);
}

std::string textOf(const RequestRecord &record) {
  std::string text = record.member;
  for (const std::string &item : record.items)
    text += " " + item;
  text += ": " + record.outcome;
  if (!record.reason.empty())
    text += " (" + record.reason + ")";
  return text + ", for user " + std::to_string(record.requester.user) + ", process " +
         std::to_string(record.requester.process) + ", in " + std::to_string(record.took.count()) +
         " µs";
}

XPCReply recordingReply(const XPCMethod &method, const XPCValues &arguments, XPCRequester requester,
                        XPCReply reply) {
  auto recording = std::make_shared<Recording>(
      Recording{{requester, method.member, itemsOf(arguments), {}, {}, {}},
                method.succeeded,
                Clock::shared().monotonicTime(),
                std::move(reply)});
  return XPCReply([recording = std::move(recording)](XPCOutcome outcome) {
    finish(*recording, std::move(outcome));
  });
}

} // namespace NS
