// Sorts the bus's names of errors by their meaning for the request.
#include "Client/BusFailure.h"

#include <algorithm>
#include <initializer_list>

namespace kw {
namespace {

constexpr std::string_view busErrorPrefix = "org.freedesktop.DBus.Error.";

std::string_view shortName(std::string_view name) {
  return name.starts_with(busErrorPrefix) ? name.substr(busErrorPrefix.size()) : name;
}

bool isAmong(std::string_view name, std::initializer_list<std::string_view> names) {
  return std::find(names.begin(), names.end(), shortName(name)) != names.end();
}

// There is no agent to deliver the request to, or no right to deliver it.
bool meansUnreachable(std::string_view name) {
  return isAmong(name, {"AccessDenied", "NameHasNoOwner", "NoNetwork", "NoServer", "ServiceUnknown",
                        "TimedOut"}) ||
         shortName(name).starts_with("Spawn.") || name.starts_with("System.Error.");
}

// The agent refused the request before any work; other errors may have come in
// the middle of it.
bool meansUntouched(std::string_view name) {
  return isAmong(name, {"InvalidArgs", "LimitsExceeded", "NotSupported", "UnknownInterface",
                        "UnknownMethod", "UnknownObject", "InvalidSignature"});
}

} // namespace

bool meansInterrupted(std::string_view name) {
  return isAmong(name, {"NoReply", "Disconnected"});
}

ClientError errorOfReply(std::string_view name, const std::string &text) {
  using Kind = ClientError::Kind;
  std::string held(name);
  if (meansInterrupted(name))
    return {Kind::Interrupted, held, text};
  if (meansUnreachable(name))
    return {Kind::Unreachable, held, text};
  return {Kind::Refused, held, text,
          meansUntouched(name) ? ClientError::Effect::None : ClientError::Effect::Unknown};
}

} // namespace kw
