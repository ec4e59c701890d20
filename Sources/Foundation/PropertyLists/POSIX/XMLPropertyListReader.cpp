// The reader of XML property lists. It takes the events of expat and keeps the
// containers that are not closed yet in a vector, so that a deep list does not
// exhaust the stack of the thread.
#include "Foundation/PropertyLists/Internal/ParserMemory.h"
#include "Foundation/PropertyLists/Internal/PropertyListReading.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>

#include <expat.h>
#if __has_include(<xlocale.h>)
#include <xlocale.h> // where macOS declares strtod_l
#endif

namespace NS {
namespace {

enum class Tag { Plist, Dict, Key, Array, String, Integer, Real, True, False, Date, Data, Unknown };

struct TagName {
  std::string_view name;
  Tag tag;
};
constexpr std::array tagNames{
    TagName{"plist", Tag::Plist}, TagName{"dict", Tag::Dict},     TagName{"key", Tag::Key},
    TagName{"array", Tag::Array}, TagName{"string", Tag::String}, TagName{"integer", Tag::Integer},
    TagName{"real", Tag::Real},   TagName{"true", Tag::True},     TagName{"false", Tag::False},
    TagName{"date", Tag::Date},   TagName{"data", Tag::Data}};

Tag tagFor(std::string_view name) {
  auto found = std::find_if(tagNames.begin(), tagNames.end(),
                            [&](const TagName &row) { return row.name == name; });
  return found == tagNames.end() ? Tag::Unknown : found->tag;
}

constexpr std::string_view whitespace = " \t\r\n";

bool isBlank(std::string_view text) {
  return text.find_first_not_of(whitespace) == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  std::size_t first = text.find_first_not_of(whitespace);
  return first == std::string_view::npos
             ? std::string_view()
             : text.substr(first, text.find_last_not_of(whitespace) - first + 1);
}

bool isHexadecimal(std::string_view magnitude) {
  return magnitude.starts_with("0x") || magnitude.starts_with("0X");
}

// Decimal or, after "0x", hexadecimal; one sign at most.
std::optional<PropertyList> integerFrom(std::string_view text) {
  text = trimmed(text);
  bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+'))
    text.remove_prefix(1);
  int base = isHexadecimal(text) ? 16 : 10;
  if (base == 16)
    text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const char *end = text.data() + text.size();
  auto [stop, failure] = std::from_chars(text.data(), end, magnitude, base);
  if (failure != std::errc() || stop != end)
    return std::nullopt;
  if (!isNegative)
    return PropertyList(magnitude);
  constexpr std::uint64_t lowest = std::uint64_t{1} << 63;
  if (magnitude > lowest)
    return std::nullopt;
  return PropertyList(static_cast<std::int64_t>(0 - magnitude));
}

// Reads a decimal; infinity or zero beyond the range of a double. By strtod_l,
// since not every C++ library has from_chars for reals.
std::optional<PropertyList> realFrom(std::string_view text) {
  static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
  std::string number(trimmed(text));
  bool isSigned = number.starts_with('-') || number.starts_with('+');
  if (number.empty() || isHexadecimal(std::string_view(number).substr(isSigned ? 1 : 0)))
    return std::nullopt;
  char *stop = nullptr;
  double value = ::strtod_l(number.c_str(), &stop, plain);
  if (stop != number.c_str() + number.size())
    return std::nullopt;
  return PropertyList(value);
}

// "2001-01-01T00:00:00Z" and nothing else.
std::optional<PropertyList> dateFrom(std::string_view text) {
  constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";
  text = trimmed(text);
  if (text.size() != form.size())
    return std::nullopt;
  std::array<int, 6> fields{};
  std::size_t field = 0;
  for (std::size_t index = 0; index < form.size(); ++index) {
    bool isDigit = text[index] >= '0' && text[index] <= '9';
    if (form[index] == 'd' ? !isDigit : text[index] != form[index])
      return std::nullopt;
    if (form[index] == 'd')
      fields[field] = fields[field] * 10 + (text[index] - '0');
    else
      ++field;
  }
  using namespace std::chrono;
  year_month_day day{year(fields[0]), month(static_cast<unsigned>(fields[1])),
                     std::chrono::day(static_cast<unsigned>(fields[2]))};
  if (!day.ok() || fields[0] < 1 || fields[3] > 23 || fields[4] > 59 || fields[5] > 59)
    return std::nullopt;
  auto days = sys_days(day) - sys_days(year(2001) / January / 1);
  return PropertyList(PropertyList::Date{days.count() * std::int64_t{86400} + fields[3] * 3600 +
                                         fields[4] * 60 + fields[5]});
}

int base64Digit(char c) {
  if (c >= 'A' && c <= 'Z')
    return c - 'A';
  if (c >= 'a' && c <= 'z')
    return c - 'a' + 26;
  if (c >= '0' && c <= '9')
    return c - '0' + 52;
  return c == '+' ? 62 : c == '/' ? 63 : -1;
}

// Decodes as the platform does, which never refuses data: it skips characters
// that are not digits, and drops an unfinished group of four at the end.
PropertyList dataFrom(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  unsigned digits = 0;
  std::size_t padding = 0; // "=" in a row
  for (char c : text) {
    if (c == '=')
      ++padding;
    else if (whitespace.find(c) == std::string_view::npos)
      padding = 0;
    int digit = c == '=' ? 0 : base64Digit(c);
    if (digit < 0)
      continue;
    group = group << 6 | static_cast<std::uint32_t>(digit);
    if (++digits < 4)
      continue;
    std::array<char, 3> decoded = {static_cast<char>(group >> 16 & 0xff),
                                   static_cast<char>(group >> 8 & 0xff),
                                   static_cast<char>(group & 0xff)};
    bytes.append(decoded.data(), decoded.size() - std::min<std::size_t>(padding, 2));
    digits = 0;
  }
  return PropertyList(PropertyList::Data{std::move(bytes)});
}

class Reader {
public:
  std::optional<PropertyList> read(std::string_view data);

private:
  struct Frame {
    bool isDictionary;
    bool hasKey = false; // its value is the next element
    PropertyList::Array array;
    PropertyList::Dictionary dictionary;
  };

  void fail() {
    failed_ = true;
    XML_StopParser(parser_.get(), XML_FALSE);
  }
  // Keeps an exception, such as for a lack of memory, until the parser has
  // returned: it is C code, which no exception may pass.
  template <typename Handler> static void handle(void *self, const Handler &handler) {
    auto &reader = *static_cast<Reader *>(self);
    if (reader.failed_)
      return;
    try {
      handler(reader);
    } catch (...) {
      reader.thrown_ = std::current_exception();
      reader.fail();
    }
  }
  void start(Tag tag);
  void end(Tag tag);
  void characters(std::string_view text);
  bool mayBegin(Tag tag) const;
  bool openContainer(bool isDictionary);
  bool closeContainer();
  bool addKey();
  bool addLeaf(Tag tag);
  bool add(PropertyList value);
  std::optional<PropertyList> leafFrom(Tag tag);
  void install();

  struct FreeParser {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
  };
  ParserMemory memory_{PropertyListBounds::parserMemory};
  std::unique_ptr<XML_ParserStruct, FreeParser> parser_;
  PropertyListBudget budget_;
  std::vector<Frame> frames_;
  std::optional<PropertyList> root_;
  std::string text_; // of the leaf under way
  bool inLeaf_ = false;
  bool seenPlist_ = false;
  bool failed_ = false;
  std::exception_ptr thrown_;
};

// Tells whether an element may begin here: a key and a value in turn in a
// dictionary, any value in an array, one value in all outside.
bool Reader::mayBegin(Tag tag) const {
  if (inLeaf_ || tag == Tag::Unknown)
    return false;
  if (tag == Tag::Plist)
    return !seenPlist_ && frames_.empty() && !root_;
  if (frames_.empty())
    return !root_ && tag != Tag::Key;
  const Frame &frame = frames_.back();
  return (tag == Tag::Key) == (frame.isDictionary && !frame.hasKey);
}

bool Reader::openContainer(bool isDictionary) {
  if (frames_.size() == PropertyListBounds::depth ||
      !budget_.charge(PropertyListBounds::containerCost))
    return false;
  frames_.push_back({.isDictionary = isDictionary, .array = {}, .dictionary = {}});
  return true;
}

void Reader::start(Tag tag) {
  if (!mayBegin(tag))
    return fail();
  if (tag == Tag::Plist) {
    seenPlist_ = true;
  } else if (tag == Tag::Dict || tag == Tag::Array) {
    if (!openContainer(tag == Tag::Dict))
      fail();
  } else {
    inLeaf_ = true;
    text_.clear();
  }
}

bool Reader::add(PropertyList value) {
  if (!budget_.chargeValues(1))
    return false;
  if (frames_.empty()) {
    root_ = std::move(value);
  } else if (Frame &frame = frames_.back(); frame.isDictionary) {
    frame.dictionary.back().value = std::move(value);
    frame.hasKey = false;
  } else {
    frame.array.push_back(std::move(value));
  }
  return true;
}

bool Reader::closeContainer() {
  Frame frame = std::move(frames_.back());
  frames_.pop_back();
  if (frame.hasKey)
    return false;
  return add(frame.isDictionary ? PropertyList(std::move(frame.dictionary))
                                : PropertyList(std::move(frame.array)));
}

bool Reader::addKey() {
  if (!budget_.chargeValues(1))
    return false;
  Frame &frame = frames_.back();
  frame.dictionary.push_back({text_, PropertyList(false)});
  frame.hasKey = true;
  return true;
}

std::optional<PropertyList> Reader::leafFrom(Tag tag) {
  switch (tag) {
  case Tag::String:
    return PropertyList(text_);
  case Tag::Integer:
    return integerFrom(text_);
  case Tag::Real:
    return realFrom(text_);
  case Tag::Date:
    return dateFrom(text_);
  case Tag::Data:
    return dataFrom(text_);
  default: // true and false have no content
    return isBlank(text_) ? std::optional(PropertyList(tag == Tag::True)) : std::nullopt;
  }
}

bool Reader::addLeaf(Tag tag) {
  auto value = leafFrom(tag);
  return value && add(std::move(*value));
}

void Reader::end(Tag tag) {
  inLeaf_ = false;
  bool sound = true;
  if (tag == Tag::Dict || tag == Tag::Array)
    sound = closeContainer();
  else if (tag == Tag::Key)
    sound = addKey();
  else if (tag != Tag::Plist)
    sound = addLeaf(tag);
  if (!sound)
    fail();
}

void Reader::characters(std::string_view text) {
  if (inLeaf_ ? budget_.charge(text.size()) : isBlank(text)) {
    if (inLeaf_)
      text_ += text;
    return;
  }
  fail();
}

// Only entities let XML grow while it is read, or load other files. So a list
// may declare none, and may use only the five of XML itself.
void Reader::install() {
  XML_Parser parser = parser_.get();
  XML_SetUserData(parser, this);
  XML_SetElementHandler(
      parser,
      [](void *self, const XML_Char *name, const XML_Char **) {
        handle(self, [name](Reader &reader) { reader.start(tagFor(name)); });
      },
      [](void *self, const XML_Char *name) {
        handle(self, [name](Reader &reader) { reader.end(tagFor(name)); });
      });
  XML_SetCharacterDataHandler(parser, [](void *self, const XML_Char *text, int length) {
    handle(self, [text, length](Reader &reader) {
      reader.characters({text, static_cast<std::size_t>(length)});
    });
  });
  XML_SetStartDoctypeDeclHandler(parser, [](void *self, const XML_Char *, const XML_Char *,
                                            const XML_Char *, int hasInternalSubset) {
    if (hasInternalSubset)
      static_cast<Reader *>(self)->fail();
  });
  XML_SetSkippedEntityHandler(
      parser, [](void *self, const XML_Char *, int) { static_cast<Reader *>(self)->fail(); });
}

std::optional<PropertyList> Reader::read(std::string_view data) {
  static_assert(PropertyListBounds::dataSize <= INT_MAX);
  constexpr XML_Memory_Handling_Suite functions = {ParserMemory::allocate, ParserMemory::reallocate,
                                                   ParserMemory::release};
  parser_.reset(XML_ParserCreate_MM(nullptr, &functions, nullptr));
  if (!parser_)
    throw std::bad_alloc();
  install();
  XML_Status status =
      XML_Parse(parser_.get(), data.data(), static_cast<int>(data.size()), XML_TRUE);
  if (thrown_)
    std::rethrow_exception(thrown_);
  // A parser that met its bound, or one of its own, also says that it lacks memory.
  if (status == XML_STATUS_ERROR && memory_.hasRunOut())
    throw std::bad_alloc();
  return status == XML_STATUS_OK && !failed_ ? std::move(root_) : std::nullopt;
}

} // namespace

std::optional<PropertyList> readXMLPropertyList(std::string_view data) {
  return Reader().read(data);
}

} // namespace NS
