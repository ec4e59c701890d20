// Conversions between the transport's objects and ours.
#include "Protocol/macOS/XPCValues.h"

#include "Foundation/Text/Unicode.h"

#include <memory>
#include <utility>

namespace NS {
namespace {

// The errors of a chain of causes that are kept.
constexpr int deepestError = 8;

// Nothing for nil and for text that UTF-8 cannot express.
std::optional<std::string> textOf(NSString *text) {
  NSData *data = [text dataUsingEncoding:NSUTF8StringEncoding];
  if (!data)
    return std::nullopt;
  std::string held(static_cast<const char *>([data bytes]), [data length]);
  return isWellFormedUTF8(held) ? std::optional(std::move(held)) : std::nullopt;
}

bool isA(id object, Class kind) {
  return [object isKindOfClass:kind];
}

struct ObjectOfUserInfo {
  id operator()(const std::string &text) const { return platformText(text); }
  id operator()(std::int64_t number) const { return [NSNumber numberWithLongLong:number]; }
  id operator()(std::uint64_t number) const { return [NSNumber numberWithUnsignedLongLong:number]; }
  id operator()(double number) const { return [NSNumber numberWithDouble:number]; }
  id operator()(bool flag) const { return [NSNumber numberWithBool:flag]; }
};

NSError *platformError(const Error &error, int depth) {
  NSMutableDictionary *info = [NSMutableDictionary dictionaryWithCapacity:4];
  auto put = [info](std::string_view key, id object) {
    NSString *name = platformText(std::string(key));
    if (name && object)
      [info setObject:object forKey:name];
  };
  for (const auto &[key, value] : error.userInfo())
    put(key, std::visit(ObjectOfUserInfo(), value));
  if (const Error *cause = error.underlyingError(); cause && depth < deepestError)
    put(UnderlyingErrorKey, platformError(*cause, depth + 1));
  NSString *domain = platformText(error.domain());
  return [NSError errorWithDomain:domain ? domain : platformText(std::string())
                             code:static_cast<NSInteger>(error.code())
                         userInfo:info];
}

UserInfoValue numberOf(NSNumber *number) {
  switch (*[number objCType]) {
  case 'f':
  case 'd':
    return static_cast<double>([number doubleValue]);
  case 'c': // truth values; no other number is kept as one byte
  case 'C':
  case 'B':
    return static_cast<bool>([number boolValue]);
  case 'Q':
  case 'L':
    return static_cast<std::uint64_t>([number unsignedLongLongValue]);
  default:
    return static_cast<std::int64_t>([number longLongValue]);
  }
}

Error errorOf(NSError *error, int depth) {
  UserInfo info;
  std::shared_ptr<const Error> cause;
  NSDictionary *given = [error userInfo];
  NSArray *keys = [given allKeys];
  for (NSUInteger index = 0; index < [keys count]; ++index) {
    id key = [keys objectAtIndex:index];
    id value = [given objectForKey:key];
    auto name = isA(key, [NSString class]) ? textOf(key) : std::nullopt;
    if (!name)
      continue;
    if (isA(value, [NSError class]) && *name == UnderlyingErrorKey && depth < deepestError)
      cause = std::make_shared<const Error>(errorOf(value, depth + 1));
    else if (isA(value, [NSNumber class]))
      info.emplace(*name, numberOf(value));
    else if (auto text = isA(value, [NSString class]) ? textOf(value) : std::nullopt)
      info.emplace(*name, std::move(*text));
  }
  return {textOf([error domain]).value_or(""), static_cast<std::int64_t>([error code]),
          std::move(info), std::move(cause)};
}

} // namespace

NSString *platformText(const std::string &text) {
  return [[[NSString alloc] initWithBytes:text.data()
                                   length:text.size()
                                 encoding:NSUTF8StringEncoding] autorelease];
}

NSArray *platformTexts(const std::vector<std::string> &texts) {
  NSMutableArray *result = [NSMutableArray arrayWithCapacity:texts.size()];
  for (const std::string &text : texts) {
    NSString *object = platformText(text);
    if (!object)
      return nil;
    [result addObject:object];
  }
  return result;
}

NSError *platformError(const Error &error) {
  return platformError(error, 0);
}

NSString *platformText(const XPCValue &value) {
  const auto *text = std::get_if<std::string>(&value);
  return text ? platformText(*text) : nil;
}

NSError *platformError(const XPCValue &value) {
  const auto *error = std::get_if<Error>(&value);
  return error ? platformError(*error) : nil;
}

XPCValue requiredText(NSString *text) {
  return text ? optionalText(text) : XPCValue(std::string());
}

XPCValue optionalText(NSString *text) {
  auto held = textOf(text);
  return held ? XPCValue(std::move(*held)) : XPCValue();
}

XPCValue requiredTexts(NSArray *texts) {
  std::vector<std::string> result;
  for (NSUInteger index = 0; index < [texts count]; ++index) {
    id object = [texts objectAtIndex:index];
    auto text = isA(object, [NSString class]) ? textOf(object) : std::nullopt;
    if (!text)
      return {};
    result.push_back(std::move(*text));
  }
  return result;
}

XPCValue errorValue(NSError *error) {
  return error ? XPCValue(errorOf(error, 0)) : XPCValue();
}

} // namespace NS
