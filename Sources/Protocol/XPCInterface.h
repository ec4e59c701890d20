// The interface of one side of a connection, as values: the names of its
// messages, their arguments and replies, and the calls of the object behind it.
// The transport knows the protocol only through these.
//
// Values; immutable once a connection uses them, and then shared by threads.
#pragma once

#include "Foundation/Base/Error.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace NS {

// The base class of exported objects; the protocols derive from it.
class XPCObject {
public:
  virtual ~XPCObject() = default;
};

// The kinds of an argument or a part of a reply. Strings, arrays and errors may
// be nil.
enum class XPCKind { Flag, Int32, Int64, String, StringArray, Error };

// The monostate is nil. A value must be of the kind that its place declares.
using XPCValue = std::variant<std::monostate, bool, std::int32_t, std::int64_t, std::string,
                              std::vector<std::string>, Error>;
using XPCValues = std::vector<XPCValue>;

struct XPCParameter {
  std::string name; // for descriptions of the interface
  XPCKind kind;
};

// The outcome of one request.
struct XPCOutcome {
  bool replied = false; // false: it failed, and there are no values
  XPCValues values{};
  std::string reason{}; // the reason of the failure, for the log
};

// The way back to the caller. Copies refer to the same request, and any thread
// may use them; the first outcome counts, later ones are dropped. When the last
// copy is destroyed without an outcome, the request fails: no caller is left
// waiting.
class XPCReply {
public:
  using Receiver = std::function<void(XPCOutcome)>;

  // Calls the receiver exactly once, on the thread that brings the outcome; the
  // receiver must not throw.
  explicit XPCReply(Receiver receiver);

  // The request was handled, and these are the values of its reply, of the kinds
  // that the method declares.
  void send(XPCValues values) const;
  // The request gets no reply. The reason is for the log.
  void fail(std::string reason) const;

private:
  class State;
  std::shared_ptr<State> state_;
};

// Passes one request to the exported object. The arguments have the number and
// the kinds that the method declares. May throw; the request then fails.
using XPCInvoker = std::function<void(XPCObject &exportedObject, const XPCValues &arguments,
                                      const XPCReply &reply)>;

// Tells whether a reply with such values means success.
using XPCSuccess = bool (*)(const XPCValues &replies);

struct XPCMethod {
  std::string selector; // the message's name in the protocol
  std::string member;   // its name on a transport without selectors
  std::vector<XPCParameter> arguments{};
  std::vector<XPCParameter> replies{};
  bool oneWay = false;  // the caller expects no reply and gets none
  XPCInvoker invoker{}; // null: the message is known but not supported
  // For a method that changes something, and whose requests are therefore
  // recorded; null for all others.
  XPCSuccess succeeded = nullptr;
  // Its handler waits for nothing and takes no longer than passing the request
  // to another thread would. It may then run on the transport's own.
  bool prompt = false;
  // The flag of its reply when no work was done.
  bool failureFlag = false;
};

struct XPCInterface {
  std::string name; // reverse-DNS
  std::vector<XPCMethod> methods;

  // Null when there is none.
  const XPCMethod *methodWithMember(std::string_view member) const;
  const XPCMethod *methodWithSelector(std::string_view selector) const;
};

} // namespace NS
