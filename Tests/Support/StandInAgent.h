// Serves the agent's name on a test's own bus, with the members that the tests
// of the client need, and records its settings.
#pragma once

#include "Foundation/Base/Error.h"
#include "Protocol/Linux/BusConnection.h"
#include "Protocol/Linux/BusValues.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kwtest {

// Until it goes out of scope.
class StandInAgent {
public:
  static constexpr const char *name = "org.keepwell.pro.agent";
  static constexpr const char *path = "/org/keepwell/pro/agent";
  static constexpr const char *outputInterface = "org.keepwell.KWPrivilegedOperationProgress";
  static constexpr const char *controlInterface = "org.keepwell.KWRequestControl";

  // An old one knows of no control; one to come answers it in another way.
  enum class Age { Old, Young, ToCome };

  explicit StandInAgent(const std::string &address, Age age = Age::Young)
      : age_(age), bus_(address) {
    static_cast<void>(bus_.requestName(name));
    thread_ = std::thread([this] { serve(); });
  }
  ~StandInAgent() {
    stopping_ = true;
    waker_.wake();
    thread_.join();
  }
  StandInAgent(const StandInAgent &) = delete;
  StandInAgent &operator=(const StandInAgent &) = delete;

  // A request to shred is answered when it is cancelled, else never.
  void waitUntilShredding() { waitUntilCalled("SecurelyRemoveItemAtPath"); }
  void waitUntilCalled(const std::string &member, std::ptrdiff_t times = 1) {
    std::unique_lock lock(mutex_);
    called_.wait(lock, [&] { return std::count(calls_.begin(), calls_.end(), member) >= times; });
  }
  // The members called so far, settings with their value.
  std::vector<std::string> calls() {
    std::lock_guard lock(mutex_);
    return calls_;
  }
  // Has the next request to shred be done as soon as it is to be cancelled.
  void finishWhenCancelled() { finishes_ = true; }
  // Has the first request that is to be cancelled end all others to shred too.
  void endAllWhenOneIsCancelled() { endsAll_ = true; }
  // From now on it answers before it leaves, and leaves with the answer to the
  // echo of this text.
  void leaveAtEchoOnly(const char *text) { leavesAt_ = text; }
  // From now on it loses its name when it is to leave, but says that it stays.
  void refuseToLeave() { refusesToLeave_ = true; }
  // From now on it also reports progress in messages of another form, and that
  // of calls that do not exist, and of a call to cancel.
  void talkNonsense() { talksNonsense_ = true; }

  // Called by a repair before its first chunk, and by a removal before it is
  // done; with the caller, and with the serial of the call.
  std::function<void(const std::string &caller, std::uint32_t serial)> duringWork;

private:
  using BusMessage = NS::BusMessage;

  void serve() {
    try {
      while (!stopping_) {
        while (BusMessage message = bus_.next())
          if (message.kind() == BusMessage::Kind::Call)
            answer(message);
        bus_.wait(waker_, std::nullopt);
      }
    } catch (const NS::BusError &) { // the bus has gone
    }
  }

  void answer(BusMessage &call) {
    std::string member(call.member());
    {
      std::lock_guard lock(mutex_); // a test may look as soon as it has the answer
      calls_.push_back(member + valueOfSetting(call, member));
      called_.notify_all();
    }
    if (call.interface() == controlInterface && age_ == Age::Old)
      fail(call, "org.freedesktop.DBus.Error.UnknownInterface", "there is no such interface");
    else
      answer(call, member);
  }
  static std::string valueOfSetting(BusMessage &call, const std::string &member) {
    if (call.interface() != controlInterface || member == "Cancel")
      return "";
    if (call.signature() != "b")
      return " nothing";
    return call.readBool() ? " true" : " false";
  }
  void answer(BusMessage &call, const std::string &member) {
    if (member == "Echo")
      echo(call);
    else if (member == "MoveItemAtPath")
      failWithACause(call);
    else if (member == "FlushDNS")
      fail(call, "org.freedesktop.DBus.Error.NotSupported", "FlushDNS is not here");
    else if (member == "SizeOfItemAtPath")
      reply(call, std::string("no number"));
    else if (member == "RepairPermissions")
      repair(call);
    else if (member == "RemoveItemAtPath")
      remove(call);
    else if (member == "SecurelyRemoveItemAtPath")
      shredding_.emplace(call.serial(), std::move(call));
    else if (member == "Cancel")
      cancel(call);
    else if (member == "PleaseTerminate")
      leave(call);
    else if (call.interface() == controlInterface)
      reply(call);
  }

  template <typename... Values> void reply(const BusMessage &call, Values... values) {
    BusMessage answer = call.makeReply();
    (write(answer, NS::XPCValue(std::move(values))), ...);
    bus_.send(answer);
  }
  static void write(BusMessage &answer, const NS::XPCValue &value) {
    NS::XPCKind kind = NS::XPCKind::Error;
    if (std::holds_alternative<bool>(value))
      kind = NS::XPCKind::Flag;
    else if (std::holds_alternative<std::int32_t>(value))
      kind = NS::XPCKind::Int32;
    else if (std::holds_alternative<std::string>(value))
      kind = NS::XPCKind::String;
    NS::writeValue(answer, kind, value);
  }
  void fail(const BusMessage &call, const char *error, const char *text) {
    BusMessage answer = call.makeFailure(error, text);
    bus_.send(answer);
  }

  void echo(BusMessage &call) {
    std::string text(call.readText());
    if (!text.empty() && text == leavesAt_.load())
      bus_.releaseName(name);
    reply(call, text, std::monostate());
  }

  // As the end of a process looks to the bus.
  void leave(const BusMessage &call) {
    if (!*leavesAt_.load())
      bus_.releaseName(name);
    if (refusesToLeave_)
      fail(call, "org.freedesktop.DBus.Error.Failed", "there is work to do");
    else
      reply(call);
  }

  // With user info that the client knows and some that it does not.
  void failWithACause(const BusMessage &call) {
    BusMessage answer = call.makeReply();
    answer.write(false);
    answer.open('r', "sxa{sv}");
    answer.write("NSCocoaErrorDomain");
    answer.write(std::int64_t{513});
    answer.open('a', "{sv}");
    entry(answer, "NSFilePath", "s", [](BusMessage &to) { to.write("/a"); });
    entry(answer, "count", "t", [](BusMessage &to) { to.write(std::uint64_t{7}); });
    entry(answer, "strange", "as", [](BusMessage &to) { to.write(std::vector<std::string>{"x"}); });
    entry(answer, "NSUnderlyingError", "(sxa{sv})", [](BusMessage &to) {
      NS::writeValue(to, NS::XPCKind::Error,
                     NS::Error(NS::POSIXErrorDomain, 13,
                               NS::userInfoWith(NS::LocalizedDescriptionKey,
                                                std::string("Permission denied"))));
    });
    answer.close();
    answer.close();
    bus_.send(answer);
  }
  template <typename Write>
  static void entry(BusMessage &answer, const char *key, const char *signature, Write write) {
    answer.open('e', "sv");
    answer.write(key);
    answer.open('v', signature);
    write(answer);
    answer.close();
    answer.close();
  }

  void repair(const BusMessage &call) {
    std::string caller(call.sender());
    if (duringWork)
      duringWork(caller, call.serial());
    for (const char *chunk : {"first\n", "second\n"}) {
      BusMessage signal = bus_.makeSignal(caller, path, outputInterface, "ReceiveNewOutput");
      signal.write(chunk);
      bus_.send(signal);
    }
    reply(call, true, std::int32_t{0}, std::string());
  }

  void remove(const BusMessage &call) {
    std::string caller(call.sender());
    if (duringWork)
      duringWork(caller, call.serial());
    if (talksNonsense_)
      reportNonsense(caller, call.serial());
    for (std::uint64_t items : {1U, 2U})
      report(caller, call.serial(), items, "/a/" + std::to_string(items));
    reply(call, true, std::monostate());
  }

  void report(const std::string &caller, std::uint32_t serial, std::uint64_t items,
              const std::string &at) {
    BusMessage signal = bus_.makeSignal(caller, path, controlInterface, "Progress");
    signal.write(serial);
    signal.write(items);
    signal.write(items * 4096);
    signal.write(at);
    bus_.send(signal);
  }

  void reportNonsense(const std::string &caller, std::uint32_t serial) {
    BusMessage text = bus_.makeSignal(caller, path, controlInterface, "Progress");
    text.write("half of it");
    bus_.send(text);
    report(caller, serial + 1000, 9, "/of/another/call");
  }

  void cancel(BusMessage &call) {
    if (age_ == Age::ToCome)
      return reply(call, std::string("no flag"));
    if (talksNonsense_)
      report(std::string(call.sender()), call.serial(), 9, "/of/the/cancellation");
    auto node = shredding_.extract(call.readUInt32());
    if (endsAll_)
      for (auto &[serial, shredding] : std::exchange(shredding_, {}))
        reply(shredding, true, std::monostate());
    reply(call, !node.empty());
    if (node) // the reply gives no reason for the unfinished work
      reply(node.mapped(), finishes_.load(), std::monostate());
  }

  const Age age_;
  NS::BusConnection bus_;
  NS::BusWaker waker_;
  std::map<std::uint32_t, BusMessage> shredding_; // by the serial of the call
  std::atomic<const char *> leavesAt_ = "";
  std::atomic<bool> refusesToLeave_ = false;
  std::atomic<bool> finishes_ = false;
  std::atomic<bool> endsAll_ = false;
  std::atomic<bool> talksNonsense_ = false;
  std::atomic<bool> stopping_ = false;
  std::mutex mutex_;
  std::condition_variable called_;
  std::vector<std::string> calls_;
  std::thread thread_;
};

} // namespace kwtest
