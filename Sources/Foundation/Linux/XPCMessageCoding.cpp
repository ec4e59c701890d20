// Values in and out of messages of the bus.
#include "Foundation/Linux/XPCMessageCoding.h"

#include <cstdint>
#include <sdbus-c++/sdbus-c++.h>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace NS {
namespace {

constexpr const char *errorContents = "sxa{sv}";
constexpr const char *errorSignature = "(sxa{sv})";

// The bus limits how deep values nest; errors beneath this one are left out.
constexpr int deepestError = 8;

// The text of a value; a nil one is empty.
std::string textOf(const XPCValue &value) {
  return std::holds_alternative<std::monostate>(value) ? std::string()
                                                       : busText(std::get<std::string>(value));
}

void appendUserInfoValue(sdbus::Message &message, const UserInfoValue &value) {
  std::visit(
      [&](const auto &held) {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::string>)
          message.openVariant("s") << busText(held);
        else if constexpr (std::is_same_v<Held, bool>)
          message.openVariant("b") << held;
        else if constexpr (std::is_same_v<Held, double>)
          message.openVariant("d") << held;
        else if constexpr (std::is_same_v<Held, std::uint64_t>)
          message.openVariant("t") << held;
        else
          message.openVariant("x") << held;
        message.closeVariant();
      },
      value);
}

void appendError(sdbus::Message &message, const Error *error, int depth);

void appendUserInfo(sdbus::Message &message, const Error *error, int depth) {
  message.openContainer("{sv}");
  if (error) {
    for (const auto &[key, value] : error->userInfo()) {
      message.openDictEntry("sv");
      message << busText(key);
      appendUserInfoValue(message, value);
      message.closeDictEntry();
    }
    if (const Error *underlying = error->underlyingError(); underlying && depth < deepestError) {
      message.openDictEntry("sv");
      message << std::string(UnderlyingErrorKey);
      message.openVariant(errorSignature);
      appendError(message, underlying, depth + 1);
      message.closeVariant();
      message.closeDictEntry();
    }
  }
  message.closeContainer();
}

void appendError(sdbus::Message &message, const Error *error, int depth) {
  message.openStruct(errorContents);
  message << (error ? busText(error->domain()) : std::string());
  message << (error ? error->code() : std::int64_t{0});
  appendUserInfo(message, error, depth);
  message.closeStruct();
}

void appendStrings(sdbus::Message &message, const XPCValue &value) {
  std::vector<std::string> texts;
  if (!std::holds_alternative<std::monostate>(value))
    for (const std::string &text : std::get<std::vector<std::string>>(value))
      texts.push_back(busText(text));
  message << texts;
}

void appendValue(sdbus::Message &message, XPCKind kind, const XPCValue &value) {
  switch (kind) {
  case XPCKind::Flag:
    message << std::get<bool>(value);
    break;
  case XPCKind::Int32:
    message << std::get<std::int32_t>(value);
    break;
  case XPCKind::Int64:
    message << std::get<std::int64_t>(value);
    break;
  case XPCKind::String:
    message << textOf(value);
    break;
  case XPCKind::StringArray:
    appendStrings(message, value);
    break;
  case XPCKind::Error:
    appendError(message,
                std::holds_alternative<std::monostate>(value) ? nullptr : &std::get<Error>(value),
                0);
    break;
  }
}

template <typename Value> XPCValue readValue(sdbus::Message &message) {
  Value value{};
  message >> value;
  return value;
}

std::size_t errorBytes(const Error *error) {
  std::size_t bytes = 0;
  for (int depth = 0; error && depth <= deepestError; ++depth) {
    bytes += error->domain().size();
    for (const auto &[key, value] : error->userInfo()) {
      const auto *text = std::get_if<std::string>(&value);
      bytes += key.size() + (text ? text->size() : sizeof(std::int64_t));
    }
    error = error->underlyingError();
  }
  return bytes;
}

} // namespace

std::vector<std::string> parameterNames(const std::vector<XPCParameter> &parameters) {
  std::vector<std::string> names;
  names.reserve(parameters.size());
  for (const XPCParameter &parameter : parameters)
    names.push_back(parameter.name);
  return names;
}

std::size_t textBytes(const XPCValues &values) {
  std::size_t bytes = 0;
  for (const XPCValue &value : values) {
    if (const auto *text = std::get_if<std::string>(&value))
      bytes += text->size();
    else if (const auto *texts = std::get_if<std::vector<std::string>>(&value))
      for (const std::string &each : *texts)
        bytes += each.size() + sizeof(std::string);
    else if (const auto *error = std::get_if<Error>(&value))
      bytes += errorBytes(error);
  }
  return bytes;
}

XPCValues readValues(sdbus::Message &message, const std::vector<XPCParameter> &parameters) {
  XPCValues values;
  for (const XPCParameter &parameter : parameters) {
    switch (parameter.kind) {
    case XPCKind::Flag:
      values.push_back(readValue<bool>(message));
      break;
    case XPCKind::Int32:
      values.push_back(readValue<std::int32_t>(message));
      break;
    case XPCKind::Int64:
      values.push_back(readValue<std::int64_t>(message));
      break;
    case XPCKind::String:
      values.push_back(readValue<std::string>(message));
      break;
    case XPCKind::StringArray:
      values.push_back(readValue<std::vector<std::string>>(message));
      break;
    case XPCKind::Error:
      throw sdbus::Error("org.freedesktop.DBus.Error.NotSupported", "An error is no argument.");
    }
  }
  return values;
}

void appendValues(sdbus::Message &message, const std::vector<XPCParameter> &parameters,
                  const XPCValues &values) {
  if (values.size() != parameters.size())
    throw std::invalid_argument("a message with the wrong number of values");
  for (std::size_t index = 0; index < values.size(); ++index) {
    try {
      appendValue(message, parameters[index].kind, values[index]);
    } catch (const std::bad_variant_access &) {
      throw std::invalid_argument("a value of the wrong kind for " + parameters[index].name);
    }
  }
}

XPCValues fittedValues(XPCValues values) {
  if (textBytes(values) <= maximumMessageBytes)
    return values;
  for (XPCValue &value : values)
    if (auto *error = std::get_if<Error>(&value))
      value = Error(error->domain(), error->code());
  return values;
}

} // namespace NS
