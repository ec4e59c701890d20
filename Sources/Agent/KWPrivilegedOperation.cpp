// Describes the protocol to the transport: one line for each message, in the
// protocol's order, with the kinds taken from the method's own type.
#include "Agent/KWPrivilegedOperation.h"

#include "Protocol/BusNames.h"

#include <cstddef>
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
const Names flagNames{"success", "error"};

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
                   Method<Parameters...> method, const Names &replyNames = flagNames) {
  constexpr std::size_t count = sizeof...(Parameters) - 1;
  using Reply = std::remove_cvref_t<std::tuple_element_t<count, std::tuple<Parameters...>>>;
  const std::make_index_sequence<count> arguments;
  return {selector,
          member,
          named(names, argumentKinds(method, arguments)),
          named(replyNames, ReplyBlock<Reply>::kinds()),
          false,
          invokerOf(method, arguments)};
}

XPCMethod prompt(XPCMethod method) {
  method.prompt = true;
  return method;
}

XPCMethod inverted(XPCMethod method) {
  method.failureFlag = true;
  return method;
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

// When it has been handled at all.
bool isAlwaysDone(const XPCValues & /*replies*/) {
  return true;
}

XPCMethod changing(XPCMethod method, NS::XPCSuccess succeeded = saysYes) {
  method.succeeded = succeeded;
  return method;
}

XPCMethod pleaseTerminate() {
  return {"pleaseTerminate",
          "PleaseTerminate",
          {},
          {},
          true,
          [](XPCObject &object, const XPCValues &, const XPCReply &) {
            dynamic_cast<KWPrivilegedOperation &>(object).pleaseTerminate();
          }};
}

// clang-format off
XPCInterface description() {
  using P = KWPrivilegedOperation;
  return {kOperationInterface, {
      changing(pleaseTerminate(), isAlwaysDone),
      prompt(describe("echo:withReply:", "Echo", {"text"},
                      &P::echo, {"text", "error"})),
      describe("fileExistsAtPath:withReply:", "FileExistsAtPath", {"path"},
               &P::fileExistsAtPath, {"exists", "error"}),
      changing(describe("moveItemAtPath:toPath:withReply:", "MoveItemAtPath", {"srcPath", "dstPath"},
               &P::moveItemAtPath)),
      changing(describe("removeItemAtPath:withReply:", "RemoveItemAtPath", {"path"},
               &P::removeItemAtPath)),
      changing(describe("securelyRemoveItemAtPath:withReply:", "SecurelyRemoveItemAtPath", {"path"},
               &P::securelyRemoveItemAtPath)),
      changing(inverted(describe("moveToTrashItemAtPath:withReply:", "MoveToTrashItemAtPath", {"path"},
                        &P::moveToTrashItemAtPath)), saysNo),
      changing(describe("truncateFileAtPath:withReply:", "TruncateFileAtPath", {"path"},
               &P::truncateFileAtPath)),
      changing(describe("removePackageWithID:withReply:", "RemovePackageWithID", {"packageID"},
               &P::removePackageWithID)),
      changing(describe("removeKextAtPath:withReply:", "RemoveKextAtPath", {"path"},
               &P::removeKextAtPath)),
      changing(describe("removeASLWithReply:", "RemoveASL", {},
               &P::removeASLWithReply)),
      changing(describe("slimBinaryWithPath:archs:withReply:", "SlimBinaryWithPath", {"path", "archs"},
               &P::slimBinaryWithPath)),
      changing(describe("removeLaunchdAgentAtPath:withReply:", "RemoveLaunchdAgentAtPath", {"plistPath"},
               &P::removeLaunchdAgentAtPath)),
      changing(describe("enableLaunchdAgentAtPath:withReply:", "EnableLaunchdAgentAtPath", {"plistPath"},
               &P::enableLaunchdAgentAtPath)),
      changing(describe("disableLaunchdAgentAtPath:withReply:", "DisableLaunchdAgentAtPath", {"plistPath"},
               &P::disableLaunchdAgentAtPath)),
      changing(describe("removeSMLoginItem:withReply:", "RemoveSMLoginItem", {"bundleID"},
               &P::removeSMLoginItem)),
      changing(describe("startStartupItem:withReply:", "StartStartupItem", {"name"},
               &P::startStartupItem)),
      changing(describe("stopStartupItem:withReply:", "StopStartupItem", {"name"},
               &P::stopStartupItem)),
      changing(describe("repairPermissionsWithReply:", "RepairPermissions", {},
               &P::repairPermissionsWithReply, {"success", "value", "text"})),
      changing(describe("runPeriodicScript:withReply:", "RunPeriodicScript", {"scriptName"},
               &P::runPeriodicScript)),
      changing(describe("startSpotlightReindexWithReply:", "StartSpotlightReindex", {},
               &P::startSpotlightReindexWithReply)),
      changing(describe("removeGlobalLoginItemForAppWithPath:withReply:", "RemoveGlobalLoginItemForAppWithPath", {"appPath"},
               &P::removeGlobalLoginItemForAppWithPath)),
      changing(describe("removeLibraryFromLauchdConf:withReply:", "RemoveLibraryFromLauchdConf", {"libraryPath"},
               &P::removeLibraryFromLauchdConf)),
      changing(describe("flushDNSWithReply:", "FlushDNS", {},
               &P::flushDNSWithReply)),
      changing(describe("removeDiagnosticLogsWithReply:", "RemoveDiagnosticLogs", {},
               &P::removeDiagnosticLogsWithReply,
               {"output", "status", "errorOutput", "error"}), hasStatusZero),
      describe("sizeOfItemAtPath:reply:", "SizeOfItemAtPath", {"path"},
               &P::sizeOfItemAtPath,
               {"size", "error"}),
  }};
}
// clang-format on

} // namespace

std::shared_ptr<const NS::XPCInterface> KWPrivilegedOperation::interface() {
  static const auto shared = std::make_shared<const XPCInterface>(description());
  return shared;
}

} // namespace kw
