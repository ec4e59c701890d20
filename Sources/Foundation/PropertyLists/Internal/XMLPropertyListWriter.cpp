// The writer of XML property lists, byte for byte in the platform's layout,
// with one exception: it writes a carriage return as a character reference,
// since a reader would take it for a line feed.
#include "Foundation/PropertyLists/Internal/PropertyListReading.h"
#include "Foundation/PropertyLists/Internal/PropertyListWalk.h"
#include "Foundation/Text/Unicode.h"

#include <chrono>
#include <cmath>

#include <fmt/format.h>

namespace NS {
namespace {

constexpr std::string_view header = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                    "<plist version=\"1.0\">\n";

class Writer {
public:
  bool leaf(const PropertyList &value, std::size_t depth);
  bool begin(const PropertyList &value, std::size_t depth);
  bool key(const std::string &name, std::size_t depth) {
    indent(depth);
    return element("key", name);
  }
  bool end(const PropertyList &value, std::size_t depth);

  std::string text_{header};

private:
  void indent(std::size_t depth) { text_.append(depth, '\t'); }
  bool element(std::string_view name, std::string_view content);
  bool appendEscaped(std::string_view content);
  void appendData(const std::string &bytes, std::size_t depth);
  void appendReal(double number);
  bool appendDate(PropertyList::Date date);
};

bool Writer::appendEscaped(std::string_view content) {
  // XML excludes U+FFFE and U+FFFF.
  if (!isWellFormedUTF8(content) || content.find("\xef\xbf\xbe") != std::string_view::npos ||
      content.find("\xef\xbf\xbf") != std::string_view::npos)
    return false;
  for (char c : content) {
    if (c == '&')
      text_ += "&amp;";
    else if (c == '<')
      text_ += "&lt;";
    else if (c == '>')
      text_ += "&gt;";
    else if (c == '\r')
      text_ += "&#13;";
    else if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n')
      return false;
    else
      text_ += c;
  }
  return true;
}

bool Writer::element(std::string_view name, std::string_view content) {
  text_ += fmt::format("<{}>", name);
  if (!appendEscaped(content))
    return false;
  text_ += fmt::format("</{}>\n", name);
  return true;
}

// Breaks lines at 76 columns, with a tab as eight of them, but after 16
// characters at least.
void Writer::appendData(const std::string &bytes, std::size_t depth) {
  static constexpr char digits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::size_t groupsInLine = depth < 8 ? (76 - 8 * depth) / 4 : 4;
  auto byteAt = [&](std::size_t index) {
    return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0u;
  };
  text_ += "<data>\n";
  for (std::size_t index = 0; index < bytes.size(); index += 3) {
    if (index / 3 % groupsInLine == 0)
      indent(depth);
    std::size_t left = bytes.size() - index;
    unsigned group = byteAt(index) << 16 | byteAt(index + 1) << 8 | byteAt(index + 2);
    text_ += digits[group >> 18];
    text_ += digits[group >> 12 & 0x3f];
    text_ += left > 1 ? digits[group >> 6 & 0x3f] : '=';
    text_ += left > 2 ? digits[group & 0x3f] : '=';
    if (left <= 3 || index / 3 % groupsInLine == groupsInLine - 1)
      text_ += '\n';
  }
  indent(depth);
  text_ += "</data>\n";
}

void Writer::appendReal(double number) {
  if (std::isnan(number))
    text_ += "<real>nan</real>\n";
  else if (std::isinf(number))
    text_ += number > 0 ? "<real>+infinity</real>\n" : "<real>-infinity</real>\n";
  else if (number == 0)
    text_ += "<real>0.0</real>\n";
  else
    text_ += fmt::format("<real>{:.17g}</real>\n", number);
}

bool Writer::appendDate(PropertyList::Date date) {
  using namespace std::chrono;
  constexpr std::int64_t secondsInDay = 86400;
  if (date.secondsSince2001 < earliestDate || date.secondsSince2001 > latestDate)
    return false;
  std::int64_t ofDay = (date.secondsSince2001 % secondsInDay + secondsInDay) % secondsInDay;
  auto wholeDays = static_cast<int>((date.secondsSince2001 - ofDay) / secondsInDay);
  year_month_day day(sys_days(year(2001) / January / 1) + days(wholeDays));
  text_ += fmt::format("<date>{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z</date>\n",
                       static_cast<int>(day.year()), static_cast<unsigned>(day.month()),
                       static_cast<unsigned>(day.day()), ofDay / 3600, ofDay / 60 % 60, ofDay % 60);
  return true;
}

bool Writer::leaf(const PropertyList &value, std::size_t depth) {
  indent(depth);
  if (const std::string *string = value.string())
    return element("string", *string);
  if (auto date = value.date())
    return appendDate(*date);
  if (const std::string *bytes = value.data())
    appendData(*bytes, depth);
  else if (auto flag = value.boolean())
    text_ += *flag ? "<true/>\n" : "<false/>\n";
  else if (auto number = value.real())
    appendReal(*number);
  else if (auto integer = value.integer())
    text_ += fmt::format("<integer>{}</integer>\n", *integer);
  else
    text_ += fmt::format("<integer>{}</integer>\n", *value.unsignedInteger());
  return true;
}

bool Writer::begin(const PropertyList &value, std::size_t depth) {
  indent(depth);
  if (const auto *array = value.array())
    text_ += array->empty() ? "<array/>\n" : "<array>\n";
  else
    text_ += value.dictionary()->empty() ? "<dict/>\n" : "<dict>\n";
  return true;
}

bool Writer::end(const PropertyList &value, std::size_t depth) {
  const auto *array = value.array();
  if (array ? array->empty() : value.dictionary()->empty())
    return true;
  indent(depth);
  text_ += array ? "</array>\n" : "</dict>\n";
  return true;
}

} // namespace

std::optional<std::string> dataWithPropertyList(const PropertyList &list, ErrorSlot error) {
  Writer writer;
  if (walk(list, writer)) {
    writer.text_ += "</plist>\n";
    return std::move(writer.text_);
  }
  storeError(error, Error(CocoaErrorDomain, PropertyListWriteInvalidError,
                          userInfoWith(LocalizedDescriptionKey,
                                       "The property list holds what its XML form cannot.")));
  return std::nullopt;
}

} // namespace NS
