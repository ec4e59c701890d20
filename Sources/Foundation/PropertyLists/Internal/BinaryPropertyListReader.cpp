// The reader of binary property lists.
//
// The data has four parts: a header; the objects; a table with the offset of each
// object; and a trailer with the place and the sizes of the table and the number
// of the top object. An object begins with a byte of its type and its count. A
// container holds the numbers of its elements, so objects may be shared, and
// hostile data may refer in circles or multiply its contents.
//
// The reader keeps a stack of the containers that it is in, instead of recursing.
// It reads each container once, and shares its value afterwards; it decodes a
// leaf at each use. It charges each use of an object, shared contents included,
// against the budget, before it reserves memory. A container that is met again
// while it is open contains itself, which is an error. So is a number or an offset
// that leads outside of its part of the data.
#include "Foundation/PropertyLists/Internal/PropertyListReading.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace NS {
namespace {

constexpr std::size_t headerSize = 8;   // "bplist" and the version
constexpr std::size_t trailerSize = 32; // five unused bytes first

enum Type : unsigned { // the upper half of an object's first byte
  typeSimple = 0x0,
  typeInteger = 0x1,
  typeReal = 0x2,
  typeDate = 0x3,
  typeData = 0x4,
  typeASCII = 0x5,
  typeUTF16 = 0x6,
  typeArray = 0xa,
  typeDictionary = 0xd,
};

std::uint64_t bigEndian(const char *bytes, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t index = 0; index < size; ++index)
    number = number << 8 | static_cast<unsigned char>(bytes[index]);
  return number;
}

class Reader {
public:
  explicit Reader(std::string_view data) : data_(data) {}
  std::optional<PropertyList> read();

private:
  // The fixed part of an object: its type, its count or size, and the offset of
  // its content.
  struct Object {
    unsigned type = 0;
    unsigned detail = 0;     // the lower half of the first byte
    std::uint64_t count = 0; // of bytes, units, elements or entries
    std::size_t content = 0; // offset in the data
  };
  // A container whose elements are being read.
  struct Frame {
    std::uint64_t number; // of the object
    bool isDictionary;
    std::uint64_t count;      // elements or entries
    std::uint64_t next;       // of them
    std::size_t references;   // offset of the table of object numbers
    std::uint64_t budgetLeft; // when it was opened
    std::size_t height;       // of the highest container within, so far
    PropertyList::Array array;
    PropertyList::Dictionary dictionary;
  };
  // A container that has been read.
  struct Finished {
    PropertyList value;
    std::uint64_t cost; // of its contents, shared parts counted each time
    std::size_t height; // containers from this one to the deepest within
  };
  enum : std::uint32_t { stateUnread = 0, stateOpen = 1, stateFinished = 2 }; // and the index

  bool readTrailer();
  std::optional<std::size_t> offsetOf(std::uint64_t number) const;
  std::optional<Object> objectAt(std::size_t offset) const;
  bool readCount(Object &object) const;
  bool fits(const Object &object, std::uint64_t unitSize) const;
  std::optional<PropertyList> integer(const Object &object) const;
  std::optional<PropertyList> real(const Object &object) const;
  std::optional<PropertyList> date(const Object &object) const;
  std::optional<std::string> text(const Object &object);
  std::optional<std::string> textFromUTF16(const Object &object);
  std::optional<PropertyList> leaf(const Object &object);

  bool open(std::uint64_t number, const Object &object);
  bool readElement(Frame &frame);
  bool readKey(Frame &frame);
  bool addFinished(Frame &frame, const Finished &finished);
  void add(Frame &frame, PropertyList value);
  void close();
  std::uint64_t reference(const Frame &frame, std::uint64_t index) const {
    return bigEndian(data_.data() + frame.references + index * referenceSize_, referenceSize_);
  }

  std::string_view data_;
  std::size_t offsetSize_ = 0, referenceSize_ = 0, table_ = 0;
  std::uint64_t objectCount_ = 0, top_ = 0;
  PropertyListBudget budget_;
  std::vector<std::uint32_t> states_; // per object, containers only
  std::vector<Frame> frames_;
  std::vector<Finished> finished_;
};

// Expects the header, and room for a trailer after it.
bool Reader::readTrailer() {
  const char *trailer = data_.data() + data_.size() - trailerSize;
  offsetSize_ = static_cast<unsigned char>(trailer[6]);
  referenceSize_ = static_cast<unsigned char>(trailer[7]);
  objectCount_ = bigEndian(trailer + 8, 8);
  top_ = bigEndian(trailer + 16, 8);
  table_ = static_cast<std::size_t>(bigEndian(trailer + 24, 8));
  std::size_t tableEnd = data_.size() - trailerSize;
  return offsetSize_ >= 1 && offsetSize_ <= 8 && referenceSize_ >= 1 && referenceSize_ <= 8 &&
         table_ >= headerSize && table_ <= tableEnd &&
         objectCount_ <= (tableEnd - table_) / offsetSize_ &&
         objectCount_ <= PropertyListBounds::contents / PropertyListBounds::valueCost;
}

std::optional<std::size_t> Reader::offsetOf(std::uint64_t number) const {
  if (number >= objectCount_)
    return std::nullopt;
  std::uint64_t offset = bigEndian(data_.data() + table_ + number * offsetSize_, offsetSize_);
  if (offset < headerSize || offset >= table_)
    return std::nullopt;
  return static_cast<std::size_t>(offset);
}

// A count of 15 means that the count follows as an integer object.
bool Reader::readCount(Object &object) const {
  object.count = object.detail;
  if (object.detail != 0xf)
    return true;
  // After the last object comes a byte of the table; the integer is too long then.
  auto marker = static_cast<unsigned char>(data_[object.content++]);
  std::size_t size = std::size_t{1} << (marker & 0xf);
  if (marker >> 4 != typeInteger || (marker & 0xf) > 3 || object.content + size > table_)
    return false;
  object.count = bigEndian(data_.data() + object.content, size);
  object.content += size;
  return true;
}

bool Reader::fits(const Object &object, std::uint64_t unitSize) const {
  return object.count <= (table_ - object.content) / unitSize;
}

std::optional<Reader::Object> Reader::objectAt(std::size_t offset) const {
  unsigned marker = static_cast<unsigned char>(data_[offset]);
  Object object{.type = marker >> 4, .detail = marker & 0xf, .count = 0, .content = offset + 1};
  bool sound = true;
  switch (object.type) {
  case typeSimple:
    break;
  case typeInteger:
  case typeReal:
  case typeDate:
    object.count = object.detail <= 4 ? std::uint64_t{1} << object.detail : 0;
    sound = object.count > 0 && fits(object, 1);
    break;
  case typeData:
  case typeASCII:
    sound = readCount(object) && fits(object, 1);
    break;
  case typeUTF16:
    sound = readCount(object) && fits(object, 2);
    break;
  case typeArray:
    sound = readCount(object) && fits(object, referenceSize_);
    break;
  case typeDictionary:
    sound = readCount(object) && fits(object, 2 * referenceSize_);
    break;
  default:
    sound = false;
  }
  return sound ? std::optional(object) : std::nullopt;
}

// Up to four bytes are unsigned, eight are signed; sixteen occur for values
// that need the unsigned range.
std::optional<PropertyList> Reader::integer(const Object &object) const {
  const char *bytes = data_.data() + object.content;
  if (object.count < 8)
    return PropertyList(bigEndian(bytes, static_cast<std::size_t>(object.count)));
  if (object.count == 8)
    return PropertyList(static_cast<std::int64_t>(bigEndian(bytes, 8)));
  std::uint64_t high = bigEndian(bytes, 8), low = bigEndian(bytes + 8, 8);
  if (high == 0)
    return PropertyList(low);
  bool isNegative = high == ~std::uint64_t{0} && low >> 63 != 0;
  return isNegative ? std::optional(PropertyList(static_cast<std::int64_t>(low))) : std::nullopt;
}

std::optional<PropertyList> Reader::real(const Object &object) const {
  const char *bytes = data_.data() + object.content;
  if (object.count == 4)
    return PropertyList(std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(bytes, 4))));
  if (object.count == 8)
    return PropertyList(std::bit_cast<double>(bigEndian(bytes, 8)));
  return std::nullopt;
}

std::optional<PropertyList> Reader::date(const Object &object) const {
  if (object.count != 8)
    return std::nullopt;
  double seconds = std::floor(std::bit_cast<double>(bigEndian(data_.data() + object.content, 8)));
  if (!(seconds >= static_cast<double>(earliestDate) && seconds <= static_cast<double>(latestDate)))
    return std::nullopt;
  return PropertyList(PropertyList::Date{static_cast<std::int64_t>(seconds)});
}

std::optional<std::string> Reader::textFromUTF16(const Object &object) {
  const char *bytes = data_.data() + object.content;
  auto count = static_cast<std::size_t>(object.count);
  std::string text;
  text.reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    auto unit = static_cast<char32_t>(bigEndian(bytes + 2 * index, 2));
    if (unit >= 0xd800 && unit <= 0xdfff) {
      if (unit >= 0xdc00 || ++index == count)
        return std::nullopt;
      auto second = static_cast<char32_t>(bigEndian(bytes + 2 * index, 2));
      if (second < 0xdc00 || second > 0xdfff)
        return std::nullopt;
      unit = 0x10000 + ((unit & 0x3ff) << 10) + (second & 0x3ff);
    }
    appendCharacter(text, unit);
  }
  return text;
}

std::optional<std::string> Reader::text(const Object &object) {
  if (object.type == typeASCII) {
    std::string_view bytes = data_.substr(object.content, static_cast<std::size_t>(object.count));
    if (!isASCII(bytes) || !budget_.charge(object.count))
      return std::nullopt;
    return std::string(bytes);
  }
  // Three bytes of UTF-8 at most for each unit.
  if (object.type != typeUTF16 || !budget_.charge(3 * object.count))
    return std::nullopt;
  return textFromUTF16(object);
}

std::optional<PropertyList> Reader::leaf(const Object &object) {
  switch (object.type) {
  case typeSimple:
    if (object.detail != 0x8 && object.detail != 0x9)
      return std::nullopt;
    return PropertyList(object.detail == 0x9);
  case typeInteger:
    return integer(object);
  case typeReal:
    return real(object);
  case typeDate:
    return object.detail == 3 ? date(object) : std::nullopt;
  case typeData: {
    auto size = static_cast<std::size_t>(object.count);
    if (!budget_.charge(size))
      return std::nullopt;
    return PropertyList(PropertyList::Data{std::string(data_.substr(object.content, size))});
  }
  default:
    auto string = text(object);
    return string ? std::optional(PropertyList(std::move(*string))) : std::nullopt;
  }
}

// Charges all elements at once, before it reserves memory for them.
bool Reader::open(std::uint64_t number, const Object &object) {
  bool isDictionary = object.type == typeDictionary;
  std::uint64_t budgetBefore = budget_.left();
  if (frames_.size() == PropertyListBounds::depth || states_[number] == stateOpen ||
      !budget_.charge(PropertyListBounds::containerCost) || !budget_.chargeValues(object.count) ||
      (isDictionary && !budget_.chargeValues(object.count)))
    return false;
  states_[number] = stateOpen;
  Frame &frame = frames_.emplace_back(Frame{.number = number,
                                            .isDictionary = isDictionary,
                                            .count = object.count,
                                            .next = 0,
                                            .references = object.content,
                                            .budgetLeft = budgetBefore,
                                            .height = 0,
                                            .array = {},
                                            .dictionary = {}});
  if (isDictionary)
    frame.dictionary.reserve(static_cast<std::size_t>(object.count));
  else
    frame.array.reserve(static_cast<std::size_t>(object.count));
  return true;
}

bool Reader::readKey(Frame &frame) {
  auto offset = offsetOf(reference(frame, frame.next));
  auto object = offset ? objectAt(*offset) : std::nullopt;
  auto key = object ? text(*object) : std::nullopt;
  if (!key)
    return false;
  frame.dictionary.push_back({std::move(*key), PropertyList(false)});
  return true;
}

void Reader::add(Frame &frame, PropertyList value) {
  ++frame.next;
  if (frame.isDictionary)
    frame.dictionary.back().value = std::move(value);
  else
    frame.array.push_back(std::move(value));
}

bool Reader::addFinished(Frame &frame, const Finished &finished) {
  if (!budget_.charge(finished.cost) ||
      frames_.size() + finished.height > PropertyListBounds::depth)
    return false;
  frame.height = std::max(frame.height, finished.height);
  add(frame, finished.value);
  return true;
}

// Reads the next element, or opens it when it is a container met for the first
// time.
bool Reader::readElement(Frame &frame) {
  if (frame.isDictionary && !readKey(frame))
    return false;
  std::uint64_t number = reference(frame, frame.next + (frame.isDictionary ? frame.count : 0));
  auto offset = offsetOf(number);
  auto object = offset ? objectAt(*offset) : std::nullopt;
  if (!object)
    return false;
  if (object->type == typeArray || object->type == typeDictionary) {
    if (states_[number] >= stateFinished)
      return addFinished(frame, finished_[states_[number] - stateFinished]);
    return open(number, *object);
  }
  auto value = leaf(*object);
  if (value)
    add(frame, std::move(*value));
  return value.has_value();
}

// Finishes the innermost container and passes it to the one around it.
void Reader::close() {
  Frame frame = std::move(frames_.back());
  frames_.pop_back();
  Finished finished{.value = frame.isDictionary ? PropertyList(std::move(frame.dictionary))
                                                : PropertyList(std::move(frame.array)),
                    .cost = frame.budgetLeft - budget_.left(),
                    .height = frame.height + 1};
  if (!frames_.empty()) {
    frames_.back().height = std::max(frames_.back().height, finished.height);
    add(frames_.back(), finished.value);
  }
  states_[frame.number] = static_cast<std::uint32_t>(stateFinished + finished_.size());
  finished_.push_back(std::move(finished));
}

std::optional<PropertyList> Reader::read() {
  bool hasForm = data_.size() >= headerSize + trailerSize && data_.starts_with("bplist00");
  if (!hasForm || !readTrailer())
    return std::nullopt;
  auto offset = offsetOf(top_);
  auto object = offset ? objectAt(*offset) : std::nullopt;
  if (!object || !budget_.chargeValues(1))
    return std::nullopt;
  if (object->type != typeArray && object->type != typeDictionary)
    return leaf(*object);
  states_.resize(static_cast<std::size_t>(objectCount_));
  if (!open(top_, *object))
    return std::nullopt;
  while (!frames_.empty()) {
    Frame &frame = frames_.back();
    if (frame.next == frame.count)
      close();
    else if (!readElement(frame))
      return std::nullopt;
  }
  return std::move(finished_.back().value);
}

} // namespace

std::optional<PropertyList> readBinaryPropertyList(std::string_view data) {
  return Reader(data).read();
}

} // namespace NS
