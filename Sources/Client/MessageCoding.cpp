// An error travels as domain, code and user info, its cause as another such
// structure within the user info; an empty domain is no error.
#include "Client/MessageCoding.h"

#include "Client/ClientError.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <sdbus-c++/sdbus-c++.h>
#include <string>

namespace kw {
namespace {

using BusError = sdbus::Struct<std::string, std::int64_t, std::map<std::string, sdbus::Variant>>;

// Far more than an agent sends; what lies deeper is left out.
constexpr int deepestError = 16;

template <typename Held>
bool addIfHeld(NS::UserInfo &info, const std::string &key, const sdbus::Variant &variant) {
  if (!variant.containsValueOfType<Held>())
    return false;
  info.emplace(key, variant.get<Held>());
  return true;
}

// What user info does not hold is left out.
void addUserInfo(NS::UserInfo &info, const std::string &key, const sdbus::Variant &variant) {
  static_cast<void>(
      addIfHeld<std::string>(info, key, variant) || addIfHeld<bool>(info, key, variant) ||
      addIfHeld<std::int64_t>(info, key, variant) || addIfHeld<std::uint64_t>(info, key, variant) ||
      addIfHeld<double>(info, key, variant));
}

std::optional<NS::Error> errorValue(const BusError &error, int depth = 0) {
  if (error.get<0>().empty() || depth > deepestError)
    return std::nullopt;
  NS::UserInfo info;
  std::shared_ptr<const NS::Error> underlying;
  for (const auto &[key, variant] : error.get<2>()) {
    if (variant.containsValueOfType<BusError>()) {
      if (key == NS::UnderlyingErrorKey)
        if (auto cause = errorValue(variant.get<BusError>(), depth + 1))
          underlying = std::make_shared<const NS::Error>(std::move(*cause));
    } else {
      addUserInfo(info, key, variant);
    }
  }
  return NS::Error(error.get<0>(), error.get<1>(), std::move(info), std::move(underlying));
}

template <typename Value> Value readOne(sdbus::MethodReply &reply) {
  Value value{};
  reply >> value;
  return value;
}

NS::XPCValue readValue(sdbus::MethodReply &reply, NS::XPCKind kind) {
  switch (kind) {
  case NS::XPCKind::Flag:
    return readOne<bool>(reply);
  case NS::XPCKind::Int32:
    return readOne<std::int32_t>(reply);
  case NS::XPCKind::Int64:
    return readOne<std::int64_t>(reply);
  case NS::XPCKind::String:
    return readOne<std::string>(reply);
  case NS::XPCKind::StringArray:
    return readOne<std::vector<std::string>>(reply);
  case NS::XPCKind::Error:
    if (auto error = errorValue(readOne<BusError>(reply)))
      return *error;
    break;
  }
  return std::monostate();
}

// What the agent takes in one request. A message that the bus finds too large
// would cost the connection and every request on it.
constexpr std::size_t mostBytes = std::size_t{16} << 20;

[[noreturn]] void refuseText(const std::string &name, const char *reason) {
  throw ClientError(ClientError::Kind::BadArgument, name, reason);
}

constexpr const char *noUTF8 = "text that is no UTF-8 cannot be sent to the agent";
constexpr const char *invalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";

// The bus would end the text at a NUL and so name another item.
void refuseNul(const std::string &text) {
  if (text.find('\0') != std::string::npos)
    refuseText(invalidArguments, noUTF8);
}

void refuseExcess(std::size_t bytes) {
  if (bytes > mostBytes)
    refuseText(invalidArguments, "text this long cannot be sent to the agent");
}

} // namespace

void appendArguments(sdbus::MethodCall &request, const NS::XPCValues &arguments) {
  std::size_t bytes = 0;
  auto check = [&bytes](const std::string &text) {
    refuseExcess(bytes += text.size());
    refuseNul(text);
  };
  try {
    for (const NS::XPCValue &argument : arguments) {
      if (const auto *text = std::get_if<std::string>(&argument)) {
        check(*text);
        request << *text;
      } else {
        const auto &texts = std::get<std::vector<std::string>>(argument);
        std::for_each(texts.begin(), texts.end(), check);
        request << texts;
      }
    }
  } catch (const sdbus::Error &error) {
    refuseText(error.getName(), noUTF8);
  }
}

NS::XPCValues readReply(sdbus::MethodReply &reply, const std::vector<NS::XPCKind> &kinds) {
  try {
    NS::XPCValues values;
    for (NS::XPCKind kind : kinds)
      values.push_back(readValue(reply, kind));
    return values;
  } catch (const sdbus::Error &error) {
    throw ClientError(ClientError::Kind::BadReply, error.getName(),
                      "the agent's reply is not understood");
  }
}

} // namespace kw
