// What one side of a connection serves, as values: the names of its messages,
// what they carry, and how each is handed to the object behind it. The
// transport knows nothing else of the protocol above it.
//
// Values; immutable once a connection uses them, and then shared by threads.
#pragma once

#include "Foundation/Error.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace NS {

// What can be exported on a connection; the protocols above derive from it.
class XPCObject {
public:
  virtual ~XPCObject() = default;
};

// What an argument or a part of a reply can be. Strings, arrays and errors may
// be nil.
enum class XPCKind { Flag, Int32, Int64, String, StringArray, Error };

// The monostate is nil. A value must be of the kind that its place declares.
using XPCValue = std::variant<std::monostate, bool, std::int32_t, std::int64_t, std::string,
                              std::vector<std::string>, Error>;
using XPCValues = std::vector<XPCValue>;

struct XPCParameter {
  std::string name; // as shown to those who ask what is served
  XPCKind kind;
};

// How one request ended.
struct XPCOutcome {
  bool replied = false; // false: it failed, and there are no values
  XPCValues values;
  std::string reason; // why it failed, for the log
};

// The way back to the caller. Copies stand for the same request and may be
// used from any thread; the first outcome counts, later ones are dropped. When
// the last copy goes and nothing was sent, the request has failed: no caller
// is left waiting.
class XPCReply {
public:
  using Receiver = std::function<void(XPCOutcome)>;

  // The receiver is called exactly once, on whatever thread brings the
  // outcome; it must not throw.
  explicit XPCReply(Receiver receiver);

  void send(XPCValues values) const;
  void fail(std::string reason) const;

private:
  class State;
  std::shared_ptr<State> state_;
};

// Hands one request to the exported object. The arguments are as many and of
// the kinds that the method declares. May throw; the request then fails.
using XPCInvoker = std::function<void(XPCObject &exportedObject, const XPCValues &arguments,
                                      const XPCReply &reply)>;

// Whether a reply with such values says that the request was done.
using XPCSuccess = bool (*)(const XPCValues &replies);

struct XPCMethod {
  std::string selector; // the message's name in the protocol
  std::string member;   // and on a transport without selectors
  std::vector<XPCParameter> arguments;
  std::vector<XPCParameter> replies;
  bool oneWay = false;  // the caller expects no reply and gets none
  XPCInvoker invoker{}; // null: the message is known but not supported
  // Of a method that changes something, and whose requests are therefore
  // recorded; null for all others.
  XPCSuccess succeeded = nullptr;
  // Its handler neither waits for anything nor takes longer than passing the
  // request to another thread would. It may then run on the transport's own.
  bool prompt = false;
  // What a flag of its reply holds when nothing was done.
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
