// Describes the protocol to the transport: a row for each message, made from the
// description of the interface, with the kinds taken from the method's own type.
#include "Agent/KWPrivilegedOperation.h"

#include "Protocol/BusNames.h"

#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace kw {
namespace {

using NS::XPCInterface;
using NS::XPCKind;
using NS::XPCMethod;
using NS::XPCObject;
using NS::XPCParameter;
using NS::XPCReply;
using NS::XPCValue;
using NS::XPCValues;

template <typename Value> XPCKind kindOf() {
  using Plain = std::remove_cvref_t<Value>;
  if constexpr (std::is_same_v<Plain, bool>)
    return XPCKind::Flag;
  else if constexpr (std::is_same_v<Plain, std::int32_t>)
    return XPCKind::Int32;
  else if constexpr (std::is_same_v<Plain, std::int64_t>)
    return XPCKind::Int64;
  else if constexpr (std::is_same_v<Plain, std::vector<std::string>>)
    return XPCKind::StringArray;
  else if constexpr (std::is_same_v<Plain, std::optional<NS::Error>>)
    return XPCKind::Error;
  else {
    static_assert(std::is_same_v<Plain, std::string> ||
                  std::is_same_v<Plain, std::optional<std::string>>);
    return XPCKind::String;
  }
}

template <typename Value> XPCValue wrapped(const Value &value) {
  return value;
}
template <typename Value> XPCValue wrapped(const std::optional<Value> &value) {
  return value ? XPCValue(*value) : XPCValue();
}

// Unwraps a value as a parameter of the plain type, optional or not.
template <typename Parameter> struct Unwrapped {
  static Parameter from(const XPCValue &value) { return std::get<Parameter>(value); }
};
template <typename Value> struct Unwrapped<std::optional<Value>> {
  static std::optional<Value> from(const XPCValue &value) {
    return std::holds_alternative<std::monostate>(value)
               ? std::nullopt
               : std::optional<Value>(std::get<Value>(value));
  }
};

// The kinds that a reply block takes, and a block that answers a request.
template <typename Reply> struct ReplyBlock;
template <typename... Values> struct ReplyBlock<std::function<void(Values...)>> {
  static std::vector<XPCKind> kinds() { return {kindOf<Values>()...}; }
  static std::function<void(Values...)> answering(const XPCReply &reply) {
    return [reply](Values... values) { reply.send({wrapped(values)...}); };
  }
};

std::vector<XPCParameter> named(const std::vector<std::string> &names,
                                const std::vector<XPCKind> &kinds) {
  std::vector<XPCParameter> parameters;
  for (std::size_t index = 0; index < kinds.size(); ++index)
    parameters.push_back({names.at(index), kinds[index]});
  return parameters;
}

using Names = std::vector<std::string>;

// A method's type: its arguments, and the reply block that ends them.
template <typename... Parameters> using Method = void (KWPrivilegedOperation::*)(Parameters...);

// Calls the method with as many arguments as it has before its reply block.
template <typename... Parameters, std::size_t... Index>
NS::XPCInvoker invokerOf(Method<Parameters...> method, std::index_sequence<Index...>) {
  using Types = std::tuple<std::remove_cvref_t<Parameters>...>;
  using Block = ReplyBlock<std::tuple_element_t<sizeof...(Index), Types>>;
  return
      [method](XPCObject &object, [[maybe_unused]] const XPCValues &values, const XPCReply &reply) {
        (dynamic_cast<KWPrivilegedOperation &>(object).*
         method)(Unwrapped<std::tuple_element_t<Index, Types>>::from(values.at(Index))...,
                 Block::answering(reply));
      };
}

template <typename... Parameters, std::size_t... Index>
std::vector<XPCKind> argumentKinds(Method<Parameters...>, std::index_sequence<Index...>) {
  return {kindOf<std::tuple_element_t<Index, std::tuple<Parameters...>>>()...};
}

template <typename... Parameters>
XPCMethod describe(const char *selector, const char *member, const Names &names,
                   Method<Parameters...> method, const Names &replyNames) {
  constexpr std::size_t count = sizeof...(Parameters) - 1;
  using Reply = std::remove_cvref_t<std::tuple_element_t<count, std::tuple<Parameters...>>>;
  std::make_index_sequence<count> arguments;
  return {.selector = selector,
          .member = member,
          .arguments = named(names, argumentKinds(method, arguments)),
          .replies = named(replyNames, ReplyBlock<Reply>::kinds()),
          .invoker = invokerOf(method, arguments)};
}

// A method without a reply.
XPCMethod describe(const char *selector, const char *member, const Names & /*none*/,
                   Method<> method, const Names & /*none*/) {
  return {.selector = selector,
          .member = member,
          .oneWay = true,
          .invoker = [method](XPCObject &object, const XPCValues &, const XPCReply &) {
            (dynamic_cast<KWPrivilegedOperation &>(object).*method)();
          }};
}

bool saysYes(const XPCValues &replies) {
  return std::get<bool>(replies.at(0));
}
bool saysNo(const XPCValues &replies) {
  return !saysYes(replies);
}
// The second value of the reply is the tool's status.
bool hasStatusZero(const XPCValues &replies) {
  return std::get<std::int64_t>(replies.at(1)) == 0;
}

// For a message without a reply: its handling is its success.
bool isAlwaysDone(const XPCValues & /*replies*/) {
  return true;
}

// The operations whose success is another than the flag of their reply. Null
// for those that change nothing: their requests leave no record.
const std::pair<const char *, NS::XPCSuccess> otherSuccesses[] = {
    {"PleaseTerminate", isAlwaysDone}, {"Echo", nullptr},
    {"FileExistsAtPath", nullptr},     {"SizeOfItemAtPath", nullptr},
    {"MoveToTrashItemAtPath", saysNo}, {"RemoveDiagnosticLogs", hasStatusZero},
};

XPCMethod &methodOf(XPCInterface &interface, std::string_view member) {
  for (XPCMethod &method : interface.methods)
    if (method.member == member)
      return method;
  throw std::logic_error("there is no such member");
}

XPCInterface description() {
  XPCInterface made{kOperationInterface,
                    {
#include "Protocol/OperationTable.inc"
                    }};
  for (XPCMethod &method : made.methods)
    method.succeeded = saysYes;
  for (const auto &[member, success] : otherSuccesses)
    methodOf(made, member).succeeded = success;
  methodOf(made, "Echo").prompt = true;
  methodOf(made, "MoveToTrashItemAtPath").failureFlag = true;
  return made;
}

} // namespace

std::shared_ptr<const NS::XPCInterface> KWPrivilegedOperation::interface() {
  static const auto shared = std::make_shared<const XPCInterface>(description());
  return shared;
}

} // namespace kw
