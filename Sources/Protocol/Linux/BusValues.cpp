// Writes and reads values in messages of the bus.
#include "Protocol/Linux/BusValues.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace NS {
namespace {

constexpr const char *errorContents = "sxa{sv}";
constexpr const char *errorSignature = "(sxa{sv})";

// The deepest cause of an error that is written and read, since the bus limits
// the nesting of values.
constexpr int deepestError = 8;

const char *signature(XPCKind kind) {
  switch (kind) {
  case XPCKind::Flag:
    return "b";
  case XPCKind::Int32:
    return "i";
  case XPCKind::Int64:
    return "x";
  case XPCKind::String:
    return "s";
  case XPCKind::StringArray:
    return "as";
  case XPCKind::Error:
    return errorSignature;
  }
  return "";
}

template <typename Held> constexpr const char *variantSignature() {
  if constexpr (std::is_same_v<Held, std::string>)
    return "s";
  else if constexpr (std::is_same_v<Held, bool>)
    return "b";
  else if constexpr (std::is_same_v<Held, double>)
    return "d";
  else if constexpr (std::is_same_v<Held, std::uint64_t>)
    return "t";
  else
    return "x";
}

void writeUserInfoValue(BusMessage &message, const UserInfoValue &value) {
  std::visit(
      [&](const auto &held) {
        message.open('v', variantSignature<std::decay_t<decltype(held)>>());
        message.write(held);
        message.close();
      },
      value);
}

void writeError(BusMessage &message, const Error *error, int depth);

void writeUserInfo(BusMessage &message, const Error &error, int depth) {
  for (const auto &[key, value] : error.userInfo()) {
    message.open('e', "sv");
    message.write(key);
    writeUserInfoValue(message, value);
    message.close();
  }
  const Error *underlying = error.underlyingError();
  if (!underlying || depth == deepestError)
    return;
  message.open('e', "sv");
  message.write(UnderlyingErrorKey);
  message.open('v', errorSignature);
  writeError(message, underlying, depth + 1);
  message.close();
  message.close();
}

void writeError(BusMessage &message, const Error *error, int depth) {
  message.open('r', errorContents);
  message.write(error ? std::string_view(error->domain()) : std::string_view());
  message.write(error ? error->code() : std::int64_t{0});
  message.open('a', "{sv}");
  if (error)
    writeUserInfo(message, *error, depth);
  message.close();
  message.close();
}

// Empty for a kind that user info does not hold; the reader passes over it.
std::optional<UserInfoValue> readUserInfoValue(BusMessage &message, const std::string &contents) {
  std::optional<UserInfoValue> value;
  if (contents.size() != 1 || contents.find_first_of("sbxtd") == std::string::npos) {
    message.skip("v");
    return value;
  }
  message.enter('v', contents.c_str());
  switch (contents.front()) {
  case 's':
    value = std::string(message.readText());
    break;
  case 'b':
    value = message.readBool();
    break;
  case 'x':
    value = message.readInt64();
    break;
  case 't':
    value = message.readUInt64();
    break;
  default:
    value = message.readDouble();
  }
  message.leave();
  return value;
}

std::optional<Error> readError(BusMessage &message, int depth);

// The result of reading a dictionary of user info.
struct ReadUserInfo {
  UserInfo info;
  std::shared_ptr<const Error> underlying;
};

void readUserInfoEntry(BusMessage &message, ReadUserInfo &read, int depth) {
  std::string key(message.readText());
  std::string contents = message.peek().contents;
  if (key == UnderlyingErrorKey && contents == errorSignature && depth < deepestError) {
    message.enter('v', errorSignature);
    if (auto cause = readError(message, depth + 1))
      read.underlying = std::make_shared<const Error>(std::move(*cause));
    message.leave();
  } else if (auto value = readUserInfoValue(message, contents)) {
    read.info.emplace(key, std::move(*value));
  }
}

std::optional<Error> readError(BusMessage &message, int depth) {
  message.enter('r', errorContents);
  std::string domain(message.readText());
  std::int64_t code = message.readInt64();
  ReadUserInfo read;
  message.enter('a', "{sv}");
  while (message.enter('e', "sv")) {
    readUserInfoEntry(message, read, depth);
    message.leave();
  }
  message.leave();
  message.leave();
  if (domain.empty())
    return std::nullopt;
  return Error(domain, code, std::move(read.info), std::move(read.underlying));
}

} // namespace

std::string busSignature(const std::vector<XPCParameter> &parameters) {
  std::string result;
  for (const XPCParameter &parameter : parameters)
    result += signature(parameter.kind);
  return result;
}

XPCValue readValue(BusMessage &message, XPCKind kind) {
  switch (kind) {
  case XPCKind::Flag:
    return message.readBool();
  case XPCKind::Int32:
    return message.readInt32();
  case XPCKind::Int64:
    return message.readInt64();
  case XPCKind::String:
    return std::string(message.readText());
  case XPCKind::StringArray:
    return message.readTexts();
  case XPCKind::Error:
    if (auto error = readError(message, 0))
      return std::move(*error);
    break;
  }
  return std::monostate();
}

XPCValues readValues(BusMessage &message, const std::vector<XPCKind> &kinds) {
  XPCValues values;
  for (XPCKind kind : kinds)
    values.push_back(readValue(message, kind));
  return values;
}

XPCValues readValues(BusMessage &message, const std::vector<XPCParameter> &parameters) {
  XPCValues values;
  for (const XPCParameter &parameter : parameters)
    values.push_back(readValue(message, parameter.kind));
  return values;
}

void writeValue(BusMessage &message, XPCKind kind, const XPCValue &value) {
  bool isNil = std::holds_alternative<std::monostate>(value);
  switch (kind) {
  case XPCKind::Flag:
    return message.write(std::get<bool>(value));
  case XPCKind::Int32:
    return message.write(std::get<std::int32_t>(value));
  case XPCKind::Int64:
    return message.write(std::get<std::int64_t>(value));
  case XPCKind::String:
    return message.write(isNil ? std::string_view() : std::get<std::string>(value));
  case XPCKind::StringArray:
    return message.write(isNil ? std::vector<std::string>()
                               : std::get<std::vector<std::string>>(value));
  case XPCKind::Error:
    return writeError(message, isNil ? nullptr : &std::get<Error>(value), 0);
  }
}

void writeValues(BusMessage &message, const std::vector<XPCParameter> &parameters,
                 const XPCValues &values) {
  if (values.size() != parameters.size())
    throw std::invalid_argument("a message with the wrong number of values");
  for (std::size_t index = 0; index < values.size(); ++index) {
    try {
      writeValue(message, parameters[index].kind, values[index]);
    } catch (const std::bad_variant_access &) {
      throw std::invalid_argument("a value of the wrong kind for " + parameters[index].name);
    }
  }
}

std::size_t memoryOf(const XPCValues &arguments) {
  std::size_t bytes = 0;
  for (const XPCValue &value : arguments) {
    if (const auto *text = std::get_if<std::string>(&value))
      bytes += text->size();
    else if (const auto *texts = std::get_if<std::vector<std::string>>(&value))
      for (const std::string &each : *texts)
        bytes += each.size() + sizeof(std::string);
  }
  return bytes;
}

XPCValues valuesWithoutUserInfo(XPCValues values) {
  for (XPCValue &value : values)
    if (auto *error = std::get_if<Error>(&value))
      value = Error(error->domain(), error->code());
  return values;
}

} // namespace NS
