// Writes a request's entry in the journal at its outcome.
#include "Service/RequestJournal.h"

#include "Foundation/Base/BoundedText.h"
#include "Foundation/Base/Clock.h"
#include "Foundation/Base/Log.h"
#include "Service/Internal/HostJournal.h"

#include <condition_variable>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace NS {
namespace {

// More texts than any request has; further ones are left out.
constexpr std::size_t mostItems = 8;

constexpr std::chrono::seconds longestWaitAtEnd{1};

class RealJournal final : public RequestJournal {
public:
  void write(const RequestRecord &record) override {
    if (!writeToHostJournal(record))
      Log("%@", textOf(record));
  }
};

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

// A request under way and its data before its outcome.
struct Recording {
  const RequestRecord record;
  const XPCSuccess succeeded;
  const MonotonicTime begun;
  const XPCReply reply;
  std::thread::id thread = std::this_thread::get_id();

  bool isOfThisThread() const { return thread == std::this_thread::get_id(); }
  RequestRecord with(const char *outcome, std::string reason = {}) const {
    RequestRecord made = record;
    made.outcome = outcome;
    made.reason = std::move(reason);
    auto took = Clock::shared().monotonicTime().sinceStart - begun.sinceStart;
    made.took = std::chrono::duration_cast<std::chrono::microseconds>(took);
    return made;
  }
  RequestRecord with(const XPCOutcome &outcome) const {
    if (outcome.replied && succeeded(outcome.values))
      return with("done");
    return with(outcome.replied ? "refused" : "failed", reasonOf(outcome));
  }
};

// Ignores every failure to make or write a record, above all a lack of memory.
template <typename Work> bool attempt(Work work) noexcept {
  try {
    work();
    return true;
  } catch (const std::exception &) {
    return false;
  }
}

// The requests whose records are still to be written, so that each is written
// once: by the thread that brings its outcome, or at the end of the process.
class RequestsUnderWay {
public:
  void add(const Recording &request) {
    std::lock_guard lock(mutex_);
    if (isEnding_)
      throw std::runtime_error("the process is about to end");
    records_.emplace(&request, std::nullopt);
  }

  void setRecord(const Recording &request, RequestRecord record) noexcept {
    std::lock_guard lock(mutex_);
    if (auto found = records_.find(&request); found != records_.end())
      found->second = std::move(record);
  }

  // Nothing when the end of the process has taken it. hasWritten() must follow.
  std::optional<RequestRecord> takeToWrite(const Recording &request) noexcept {
    std::lock_guard lock(mutex_);
    ++writers_;
    auto node = records_.extract(&request);
    return node ? std::move(node.mapped()) : std::nullopt;
  }

  void hasWritten() noexcept {
    std::lock_guard lock(mutex_);
    --writers_;
    written_.notify_all();
  }

  void waitForWriters() {
    std::unique_lock lock(mutex_);
    written_.wait(lock, [this] { return writers_ == 0; });
  }

  // Drops a request that was not handed to its handler and has no outcome.
  void drop(const Recording &request) noexcept {
    std::lock_guard lock(mutex_);
    records_.erase(&request);
  }

  // Afterwards no request begins, until the end is over or turns out to be
  // none.
  std::vector<RequestRecord> takeAllAtEnd() {
    std::lock_guard lock(mutex_);
    isEnding_ = true;
    std::vector<RequestRecord> taken;
    for (auto &[request, record] : std::exchange(records_, {}))
      taken.push_back(record ? std::move(*record)
                             : request->with(request->isOfThisThread() ? "done" : "cut off"));
    return taken;
  }

  void endIsOver() noexcept {
    std::lock_guard lock(mutex_);
    isEnding_ = false;
  }

private:
  std::mutex mutex_;
  std::condition_variable written_;
  // Each until its record is taken; without one until it has an outcome.
  std::map<const Recording *, std::optional<RequestRecord>> records_;
  int writers_ = 0;
  bool isEnding_ = false;
};

RequestsUnderWay &underWay() {
  // Never destroyed, like the journal.
  static auto *requests = new RequestsUnderWay;
  return *requests;
}

void writeOrTell(const RequestRecord &record) noexcept {
  if (!attempt([&] { RequestJournal::shared().write(record); }))
    attempt([&] { Log("A request of %@ was not recorded", record.member); });
}

// The client's answer must not depend on the record.
void finish(const Recording &request, XPCOutcome outcome) noexcept {
  if (!attempt([&] { underWay().setRecord(request, request.with(outcome)); }))
    attempt([&] { Log("A request of %@ was not recorded", request.record.member); });
  if (outcome.replied)
    request.reply.send(std::move(outcome.values));
  else
    request.reply.fail(std::move(outcome.reason));
  if (auto record = underWay().takeToWrite(request))
    writeOrTell(*record);
  underWay().hasWritten();
}

void writeAllAtEnd() {
  auto written = std::make_shared<std::promise<void>>();
  std::future<void> future = written->get_future();
  // On a thread of its own: the journal may be stuck.
  std::thread([written, records = underWay().takeAllAtEnd()] {
    for (const RequestRecord &record : records)
      writeOrTell(record);
    underWay().waitForWriters();
    written->set_value();
  }).detach();
  static_cast<void>(future.wait_for(longestWaitAtEnd));
}

} // namespace

RequestJournal &RequestJournal::real() {
  return lastingInstance<RealJournal>();
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
  std::shared_ptr<const Recording> recording(
      new Recording{{requester, method.member, itemsOf(arguments), {}, {}, {}},
                    method.succeeded,
                    Clock::shared().monotonicTime(),
                    std::move(reply)},
      [](const Recording *request) {
        underWay().drop(*request);
        delete request;
      });
  underWay().add(*recording);
  return XPCReply([recording = std::move(recording)](XPCOutcome outcome) {
    finish(*recording, std::move(outcome));
  });
}

void recordRequestsAtEnd() noexcept {
  attempt(writeAllAtEnd);
  underWay().endIsOver();
}

} // namespace NS
