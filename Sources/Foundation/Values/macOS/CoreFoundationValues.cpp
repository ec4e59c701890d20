// Conversions between CoreFoundation's values and ours.
#include "Foundation/Values/macOS/CoreFoundationValues.h"

#include "Foundation/Values/Date.h"
#include "Foundation/Values/Null.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"

#include <cstdint>

namespace NS {
namespace {

constexpr double from1970To2001 = 978307200; // seconds

const UInt8 *bytesOf(const std::string &text) {
  return reinterpret_cast<const UInt8 *>(text.data());
}

std::shared_ptr<Object> numberOf(CFNumberRef number) {
  if (::CFNumberIsFloatType(number)) {
    double value = 0;
    ::CFNumberGetValue(number, kCFNumberFloat64Type, &value);
    return Number::numberWithDouble(value);
  }
  std::int64_t value = 0;
  ::CFNumberGetValue(number, kCFNumberSInt64Type, &value);
  return Number::numberWithLongLong(value);
}

} // namespace

Owned<CFStringRef> platformString(const std::string &text) {
  return Owned(::CFStringCreateWithBytes(kCFAllocatorDefault, bytesOf(text),
                                         static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                                         false));
}

std::optional<std::string> textOf(CFStringRef string) {
  if (!string)
    return std::nullopt;
  CFRange all = {0, ::CFStringGetLength(string)};
  CFIndex size = 0;
  if (::CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size) !=
      all.length)
    return std::nullopt;
  std::string text(static_cast<std::size_t>(size), '\0');
  ::CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false,
                     reinterpret_cast<UInt8 *>(text.data()), size, nullptr);
  return text;
}

Owned<CFURLRef> platformURL(const std::string &path, bool isDirectory) {
  if (path.empty() || path.find('\0') != std::string::npos)
    return Owned<CFURLRef>();
  return Owned(::CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, bytesOf(path), static_cast<CFIndex>(path.size()), isDirectory));
}

std::optional<std::string> pathOf(CFURLRef url) {
  if (!url)
    return std::nullopt;
  return textOf(Owned(::CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle)).get());
}

std::shared_ptr<Object> objectOf(CFTypeRef value) {
  if (!value)
    return nullptr;
  CFTypeID type = ::CFGetTypeID(value);
  if (type == ::CFNumberGetTypeID())
    return numberOf(static_cast<CFNumberRef>(value));
  if (type == ::CFBooleanGetTypeID())
    return Number::numberWithBool(::CFBooleanGetValue(static_cast<CFBooleanRef>(value)));
  if (type == ::CFDateGetTypeID())
    return Date::dateWithTimeIntervalSince1970(
        ::CFDateGetAbsoluteTime(static_cast<CFDateRef>(value)) + from1970To2001);
  if (auto text =
          type == ::CFStringGetTypeID() ? textOf(static_cast<CFStringRef>(value)) : std::nullopt)
    return String::stringWithString(*text);
  return Null::null();
}

} // namespace NS
