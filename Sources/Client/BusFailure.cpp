// Sorts the bus's names of errors by their meaning for the request.
#include "Client/BusFailure.h"

#include <algorithm>
#include <array>

namespace kw {
namespace {

constexpr std::string_view busErrorPrefix = "org.freedesktop.DBus.Error.";

std::string_view shortName(std::string_view name) {
  return name.starts_with(busErrorPrefix) ? name.substr(busErrorPrefix.size()) : name;
}

template <std::size_t size>
bool isAmong(std::string_view name, const std::array<std::string_view, size> &names) {
  return std::find(names.begin(), names.end(), shortName(name)) != names.end();
}

// There is no agent to deliver the request to, or no right to deliver it.
bool meansUnreachable(std::string_view name) {
  constexpr std::array<std::string_view, 6> names{"AccessDenied", "NameHasNoOwner", "NoNetwork",
                                                  "NoServer",     "ServiceUnknown", "TimedOut"};
  return isAmong(name, names) || shortName(name).starts_with("Spawn.") ||
         name.starts_with("System.Error.");
}

// The agent refused the request before any work; other errors may have come in
// the middle of it.
bool meansUntouched(std::string_view name) {
  constexpr std::array<std::string_view, 7> names{
      "InvalidArgs",   "LimitsExceeded", "NotSupported",    "UnknownInterface",
      "UnknownMethod", "UnknownObject",  "InvalidSignature"};
  return isAmong(name, names);
}

} // namespace

bool meansInterrupted(std::string_view name) {
  return isAmong(name, std::array<std::string_view, 2>{"NoReply", "Disconnected"});
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
