// The reader of binary lists: sound ones of every kind, and the many ways in
// which one can be wrong.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Support/BinaryPropertyList.h"
#include "Support/MemoryLimit.h"
#include "Support/Sanitizers.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <new>

namespace {

using kwtest::arrayObject;
using kwtest::asciiObject;
using kwtest::bigEndian;
using kwtest::binaryPropertyList;
using kwtest::BinaryTrailer;
using kwtest::dictionaryObject;
using kwtest::MemoryLimit;
using NS::PropertyList;

std::optional<PropertyList> read(const std::string &data) {
  return NS::propertyListWithData(data, nullptr);
}

std::optional<PropertyList> readOne(const std::string &object) {
  return read(binaryPropertyList({object}));
}

std::string realObject(double number) {
  return std::string("\x23") + bigEndian(std::bit_cast<std::uint64_t>(number), 8);
}

std::string dateObject(double seconds) {
  return std::string("\x33") + bigEndian(std::bit_cast<std::uint64_t>(seconds), 8);
}

std::string integer128(std::uint64_t high, std::uint64_t low) {
  return std::string("\x14") + bigEndian(high, 8) + bigEndian(low, 8);
}

TEST(BinaryPropertyList, readsEveryKind) {
  EXPECT_EQ(readOne("\x08"), PropertyList(false));
  EXPECT_EQ(readOne("\x09"), PropertyList(true));
  EXPECT_EQ(readOne("\x10\xff"), PropertyList(255));
  EXPECT_EQ(readOne("\x11\xff\xfe"), PropertyList(65534));
  EXPECT_EQ(readOne("\x12\xff\xff\xff\xff"), PropertyList(4294967295));
  EXPECT_EQ(readOne(std::string("\x13") + bigEndian(~std::uint64_t{0}, 8)), PropertyList(-1));
  EXPECT_EQ(readOne(std::string("\x22") + bigEndian(std::bit_cast<std::uint32_t>(1.5f), 4)),
            PropertyList(1.5));
  EXPECT_EQ(readOne(realObject(-0.1)), PropertyList(-0.1));
  EXPECT_EQ(readOne("\x43xyz"), PropertyList(PropertyList::Data{"xyz"}));
  EXPECT_EQ(readOne(asciiObject("text")), PropertyList("text"));
  EXPECT_EQ(readOne(asciiObject(std::string(1000, 'x'))), PropertyList(std::string(1000, 'x')));
  EXPECT_EQ(readOne(std::string("\x63\0a\x20\xac\0\xe9", 7)), PropertyList("a€é"));
  EXPECT_EQ(readOne(std::string("\x62\xd8\x3d\xde\0", 5)), PropertyList("\xf0\x9f\x98\x80"));
  EXPECT_EQ(readOne(std::string("\x62\xd8\0\xdc\0", 5)), PropertyList("\xf0\x90\x80\x80"));
  EXPECT_EQ(readOne("\x62\xdb\xff\xdf\xff"), PropertyList("\xf4\x8f\xbf\xbf"));
  EXPECT_EQ(readOne("\xa0"), PropertyList(PropertyList::Array{}));
  EXPECT_EQ(readOne("\xd0"), PropertyList(PropertyList::Dictionary{}));
}

TEST(BinaryPropertyList, takesACountOfOneToEightBytes) {
  std::string text(20, 'x');
  for (unsigned power = 0; power <= 4; ++power) {
    std::string count =
        bigEndian(0x10 + power, 1) + bigEndian(text.size(), std::size_t{1} << power);
    auto list = readOne("\x5f" + count + text);
    if (power < 4)
      EXPECT_EQ(list, PropertyList(text)) << power;
    else
      EXPECT_FALSE(list) << "no count needs sixteen bytes";
  }
  EXPECT_EQ(readOne(std::string("\x5f\x10\0", 3)), PropertyList(""));
}

TEST(BinaryPropertyList, readsContainersWithinContainers) {
  EXPECT_EQ(read(binaryPropertyList({dictionaryObject({1, 2}, {3, 4}), asciiObject("b"),
                                     asciiObject("a"), arrayObject({4, 5, 4}), "\x09", "\xd0"})),
            PropertyList(PropertyList::Dictionary{
                {"a", true}, {"b", PropertyList::Array{true, PropertyList::Dictionary{}, true}}}));
}

TEST(BinaryPropertyList, takesAnyWidthOfOffsetsAndReferences) {
  for (std::size_t offsetSize = 1; offsetSize <= 8; ++offsetSize)
    EXPECT_EQ(read(binaryPropertyList({arrayObject({1}), "\x09"}, {.offsetSize = offsetSize})),
              PropertyList(PropertyList::Array{true}));
  for (std::size_t size = 1; size <= 8; ++size)
    EXPECT_EQ(read(binaryPropertyList({std::string("\xa1") + bigEndian(1, size), "\x09"},
                                      {.referenceSize = size})),
              PropertyList(PropertyList::Array{true}));
  for (std::size_t size : {0u, 9u, 255u}) {
    EXPECT_EQ(read(binaryPropertyList({"\x09"}, {.offsetSize = size})), std::nullopt);
    EXPECT_EQ(read(binaryPropertyList({"\x09"}, {.referenceSize = size})), std::nullopt);
  }
}

TEST(BinaryPropertyList, readsIntegersOf128BitsThatFitIn64) {
  constexpr std::uint64_t ones = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(readOne(integer128(0, ones)), PropertyList(ones));
  EXPECT_EQ(readOne(integer128(0, 5)), PropertyList(5));
  EXPECT_EQ(readOne(integer128(ones, ones)), PropertyList(-1));
  EXPECT_EQ(readOne(integer128(ones, std::uint64_t{1} << 63)),
            PropertyList(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(readOne(integer128(1, 0)), std::nullopt);
  EXPECT_EQ(readOne(integer128(ones, 5)), std::nullopt);
}

TEST(BinaryPropertyList, dropsTheFractionOfADate) {
  EXPECT_EQ(readOne(dateObject(1.75)), PropertyList(PropertyList::Date{1}));
  EXPECT_EQ(readOne(dateObject(-0.25)), PropertyList(PropertyList::Date{-1}));
  EXPECT_EQ(readOne(dateObject(252423993599.5)), PropertyList(PropertyList::Date{252423993599}));
  EXPECT_EQ(readOne(dateObject(-63113904000.0)), PropertyList(PropertyList::Date{-63113904000}));
  for (double seconds : {252423993600.0, -63113904000.5, 1e300, -HUGE_VAL, std::nan("")})
    EXPECT_EQ(readOne(dateObject(seconds)), std::nullopt) << seconds;
}

TEST(BinaryPropertyList, isUnparseableWithValuesThatThisTypeCannotHold) {
  for (const std::string &object :
       {std::string(1, '\0'), std::string("\x0f"), std::string("\x80\x01"), // null, fill, UID
        std::string("\xc0"), std::string("\xb0"), std::string("\x70"), std::string("\xe0"),
        std::string("\x15") + std::string(32, '\0'), std::string("\x21\0\0", 3),
        std::string("\x24") + std::string(16, '\0'), std::string("\x32") + std::string(4, '\0'),
        std::string("\x51\x80"), std::string("\x61\xd8\x00", 3), std::string("\x61\xdc\x00", 3),
        std::string("\x62\xd8\x00\x00\x61", 5), std::string("\x62\xd8\x00\xd8\x00", 5),
        std::string("\x62\xdc\x00\xdc\x00", 5), std::string("\x62\xd8\x00\xe0\x00", 5),
        std::string("\x61\xdf\xff")})
    EXPECT_EQ(readOne(object), std::nullopt) << ::testing::PrintToString(object);
}

TEST(BinaryPropertyList, isUnparseableWithCountsBeyondItsEnd) {
  for (const std::string &object :
       {std::string("\x5e"), std::string("\x5f"), std::string("\x5f\x10\xff"),
        std::string("\x5f\x09"), std::string("\x5f\x13") + bigEndian(~std::uint64_t{0}, 8),
        std::string("\x6f\x13") + bigEndian(std::uint64_t{1} << 63, 8),
        std::string("\xaf\x13") + bigEndian(std::uint64_t{1} << 63, 8),
        std::string("\xdf\x13") + bigEndian(std::uint64_t{1} << 62, 8),
        std::string("\x4f\x14") + bigEndian(0, 8) + bigEndian(1, 8) + "x", std::string("\xa1"),
        std::string("\xd1"), std::string("\x5f\x11\0", 3), std::string("\x61\0", 2),
        std::string("\x11\x01"), std::string("\x22\0\0\0", 4), std::string("\x33\0", 2)})
    EXPECT_EQ(readOne(object), std::nullopt) << ::testing::PrintToString(object);
}

TEST(BinaryPropertyList, isUnparseableWithACountOfAnotherKind) {
  std::string text(20, 'x');
  ASSERT_EQ(readOne("\x5f\x10\x14" + text), PropertyList(text));
  for (const char *kind : {"\x20", "\x50", "\x08"})
    EXPECT_EQ(readOne(std::string("\x5f") + kind + "\x14" + text), std::nullopt);
}

// The table of offsets, which follows the objects, begins with zeros.
TEST(BinaryPropertyList, takesNoReferencesFromTheTableOfOffsets) {
  BinaryTrailer last{.offsetSize = 8, .top = 1};
  EXPECT_EQ(read(binaryPropertyList({"\x09", arrayObject({0})}, last)),
            PropertyList(PropertyList::Array{true}));
  EXPECT_EQ(read(binaryPropertyList({"\x09", "\xa1"}, last)), std::nullopt);
  EXPECT_EQ(read(binaryPropertyList({asciiObject("a"), dictionaryObject({0}, {0})}, last)),
            PropertyList(PropertyList::Dictionary{{"a", "a"}}));
  for (const std::string &cut : {std::string("\xd1"), std::string("\xd1\0\0", 3)})
    EXPECT_EQ(read(binaryPropertyList({asciiObject("a"), cut}, last)), std::nullopt);
}

TEST(BinaryPropertyList, isUnparseableOfAnotherVersion) {
  std::string data = binaryPropertyList({"\x09"});
  ASSERT_TRUE(read(data));
  EXPECT_EQ(read(std::string(data).replace(6, 2, "01")), std::nullopt);
  EXPECT_EQ(read(std::string(data).replace(6, 2, "15")), std::nullopt);
}

TEST(BinaryPropertyList, isUnparseableWithAWrongTrailer) {
  std::vector<std::string> objects{arrayObject({1}), "\x09"};
  ASSERT_TRUE(read(binaryPropertyList(objects)));
  for (const BinaryTrailer &trailer :
       {BinaryTrailer{.top = 2}, BinaryTrailer{.top = ~std::uint64_t{0}},
        BinaryTrailer{.extraObjects = 1}, BinaryTrailer{.extraObjects = -2},
        BinaryTrailer{.extraObjects = std::int64_t{1} << 61}, BinaryTrailer{.extraObjects = -3},
        BinaryTrailer{.extraTableOffset = 1}, BinaryTrailer{.extraTableOffset = 1000},
        BinaryTrailer{.extraTableOffset = -100}, BinaryTrailer{.extraTableOffset = -12}})
    EXPECT_EQ(read(binaryPropertyList(objects, trailer)), std::nullopt)
        << trailer.top << ' ' << trailer.extraObjects << ' ' << trailer.extraTableOffset;
}

TEST(BinaryPropertyList, isUnparseableWithOffsetsAndReferencesOutOfRange) {
  EXPECT_EQ(read(binaryPropertyList({arrayObject({2}), "\x09"})), std::nullopt);
  EXPECT_EQ(read(binaryPropertyList({arrayObject({65535}), "\x09"})), std::nullopt);
  std::string data = binaryPropertyList({arrayObject({1}), "\x09"});
  std::size_t secondOffset = data.size() - 32 - 4;
  for (std::uint32_t offset : {0u, 7u, 12u, 1000u, 0xffffffffu})
    EXPECT_EQ(read(std::string(data).replace(secondOffset, 4, bigEndian(offset, 4))), std::nullopt)
        << offset;
}

TEST(BinaryPropertyList, takesNoObjectFromBeyondTheObjects) {
  // The table's first byte, the offset 8, would be an object too.
  std::string data = binaryPropertyList({arrayObject({1}), "\x09"}, {.offsetSize = 1});
  std::size_t table = data.size() - 32 - 2;
  ASSERT_EQ(data.substr(table, 2), "\x08\x0b");
  EXPECT_EQ(read(data.replace(table + 1, 1, "\x0c")), std::nullopt);
  // The unused bytes of the trailer would be a further offset.
  data = binaryPropertyList({arrayObject({2}), "\x09"});
  EXPECT_EQ(read(data.replace(data.size() - 32, 4, bigEndian(11, 4))), std::nullopt);
  // The count would be the table's first byte.
  data = binaryPropertyList({std::string(8, '\x09'), "\x5f"}, {.offsetSize = 1});
  EXPECT_EQ(read(data.replace(data.size() - 32 - 2, 1, "\x10")), std::nullopt);
}

TEST(BinaryPropertyList, isUnparseableWithKeysOtherThanStrings) {
  EXPECT_EQ(read(binaryPropertyList({dictionaryObject({1}, {1}), "\x09"})), std::nullopt);
  EXPECT_EQ(read(binaryPropertyList({dictionaryObject({1}, {2}), "\xa0", "\x09"})), std::nullopt);
}

TEST(BinaryPropertyList, isUnparseableWhenItHoldsItself) {
  EXPECT_EQ(read(binaryPropertyList({arrayObject({0})})), std::nullopt);
  EXPECT_EQ(read(binaryPropertyList({arrayObject({1}), arrayObject({2}), arrayObject({0})})),
            std::nullopt);
  EXPECT_EQ(read(binaryPropertyList({dictionaryObject({1}, {0}), asciiObject("k")})), std::nullopt);
  EXPECT_EQ(read(binaryPropertyList({dictionaryObject({0}, {0})})), std::nullopt);
}

TEST(BinaryPropertyList, isUnparseableWhenCutAnywhere) {
  std::string data = binaryPropertyList({dictionaryObject({1, 2}, {3, 4}), asciiObject("key"),
                                         std::string("\x61\x20\xac", 3), arrayObject({4, 4, 5}),
                                         realObject(1), dateObject(1)});
  ASSERT_TRUE(read(data));
  for (std::size_t length = 0; length < data.size(); ++length)
    EXPECT_EQ(read(data.substr(0, length)), std::nullopt) << length;
}

TEST(BinaryPropertyList, survivesAnyByteChangedToAnyOther) {
  std::string data = binaryPropertyList({dictionaryObject({1, 2}, {3, 4}), asciiObject("key"),
                                         std::string("\x61\x20\xac", 3), arrayObject({4, 4, 5}),
                                         realObject(1), dateObject(1)},
                                        {.offsetSize = 1});
  std::size_t readable = 0;
  for (std::size_t index = 0; index < data.size(); ++index)
    for (int value = 0; value < 256; ++value) {
      std::string changed = data;
      changed[index] = static_cast<char>(value);
      if (auto list = read(changed))
        readable += NS::describe(*list).empty() ? 0u : 1u;
    }
  EXPECT_GE(readable, data.size());
}

// Each level names the one below twice: 2^n leaves in a few bytes each.
std::vector<std::string> doublingLevels(std::uint64_t levels) {
  std::vector<std::string> objects;
  for (std::uint64_t level = 1; level < levels; ++level)
    objects.push_back(arrayObject({level, level}));
  objects.push_back("\x09");
  return objects;
}

TEST(BinaryPropertyList, countsSharedPartsEachTime) {
  EXPECT_TRUE(read(binaryPropertyList(doublingLevels(12))));
  EXPECT_FALSE(read(binaryPropertyList(doublingLevels(25))));
  EXPECT_FALSE(read(binaryPropertyList(doublingLevels(400))));
  std::vector<std::string> wide{arrayObject(std::vector<std::uint64_t>(60'000, 1)),
                                asciiObject(std::string(1000, 'x'))};
  EXPECT_FALSE(read(binaryPropertyList(wide)));
  wide[0] = arrayObject(std::vector<std::uint64_t>(10'000, 1));
  EXPECT_TRUE(read(binaryPropertyList(wide)));
}

// A container of either form with equal elements.
std::string xmlContainer(const std::string &tag, const std::string &element, std::size_t count) {
  std::string elements;
  for (std::size_t index = 0; index < count; ++index)
    elements += element;
  return "<plist><" + tag + ">" + elements + "</" + tag + "></plist>";
}

std::string binaryArray(std::size_t count) {
  return binaryPropertyList({arrayObject(std::vector<std::uint64_t>(count, 1)), "\x09"});
}

// The one object is each key and each value.
std::string binaryDictionary(std::size_t count) {
  std::vector<std::uint64_t> references(count, 1);
  return binaryPropertyList({dictionaryObject(references, references), asciiObject("")});
}

// The bound on contents, 24 MiB, has room for so many values of 96 bytes after
// the list and its container of 128 bytes.
TEST(PropertyListBounds, allowAsManyValuesAsFitAndNoMore) {
  constexpr std::size_t most = ((24u << 20) - 96 - 128) / 96;
  EXPECT_TRUE(read(binaryArray(most)));
  EXPECT_FALSE(read(binaryArray(most + 1)));
  EXPECT_TRUE(read(xmlContainer("array", "<true/>", most)));
  EXPECT_FALSE(read(xmlContainer("array", "<true/>", most + 1)));
}

TEST(PropertyListBounds, countKeysAsValues) {
  constexpr std::size_t most = ((24u << 20) - 96 - 128) / (2 * 96);
  EXPECT_TRUE(read(binaryDictionary(most)));
  EXPECT_FALSE(read(binaryDictionary(most + 1)));
  EXPECT_TRUE(read(xmlContainer("dict", "<key/><true/>", most)));
  EXPECT_FALSE(read(xmlContainer("dict", "<key/><true/>", most + 1)));
}

// The unit of UTF-16 counts as three bytes, the most that it takes in UTF-8.
TEST(PropertyListBounds, countTheUnitsOfEachUseOfAText) {
  constexpr std::size_t uses = 10, most = ((24u << 20) - 96 - 128 - uses * 96) / (uses * 3);
  std::string array = arrayObject(std::vector<std::uint64_t>(uses, 1));
  auto reads = [&](std::size_t units) {
    std::string text = kwtest::marked(0x6, units);
    for (std::size_t unit = 0; unit < units; ++unit)
      text += std::string_view("\0x", 2);
    return read(binaryPropertyList({array, text})).has_value();
  };
  EXPECT_TRUE(reads(most));
  EXPECT_FALSE(reads(most + 1));
}

TEST(PropertyListBounds, allowAsManyObjectsAsValues) {
  constexpr std::size_t most = (24u << 20) / 96;
  EXPECT_EQ(read(binaryPropertyList(std::vector<std::string>(most, "\x09"))), PropertyList(true));
  EXPECT_FALSE(read(binaryPropertyList(std::vector<std::string>(most + 1, "\x09"))));
}

TEST(PropertyListBounds, allowEightMebibytesOfData) {
  std::string data = "<true/>";
  data.resize(8u << 20, ' ');
  EXPECT_EQ(read(data), PropertyList(true));
  EXPECT_FALSE(read(data + ' '));
}

TEST(BinaryPropertyList, takesADepthOf512AndNoMore) {
  auto chain = [](std::uint64_t depth) {
    std::vector<std::string> objects;
    for (std::uint64_t level = 1; level < depth; ++level)
      objects.push_back(arrayObject({level}));
    objects.push_back("\xa0");
    return objects;
  };
  EXPECT_TRUE(read(binaryPropertyList(chain(512))));
  EXPECT_FALSE(read(binaryPropertyList(chain(513))));
  EXPECT_FALSE(read(binaryPropertyList(chain(60'000))));
  // The deep part is met first beside the top, then below a chain.
  std::vector<std::string> shared = chain(500);
  for (int level = 0; level < 13; ++level) {
    auto previous = static_cast<std::uint64_t>(shared.size() - 1);
    shared.push_back(arrayObject({level == 0 ? std::uint64_t{0} : previous}));
  }
  auto last = static_cast<std::uint64_t>(shared.size() - 1);
  shared.push_back(arrayObject({0, last - 2}));
  shared.push_back(arrayObject({0, last}));
  EXPECT_TRUE(read(binaryPropertyList(shared, {.top = last + 1})));
  EXPECT_FALSE(read(binaryPropertyList(shared, {.top = last + 2})));
}

// Attributes with names of their own, which a parser keeps for long: a text of so
// many bytes.
std::string attributes(std::size_t size) {
  constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_";
  std::string text;
  for (std::size_t number = 0; text.size() < size; ++number) {
    text += ' ';
    for (std::size_t rest = number; text.back() == ' ' || rest != 0; rest /= letters.size())
      text += letters[rest % letters.size()];
    text += "=''";
  }
  return text;
}

bool readsWithin64MiB(const std::string &data, bool expected) {
  MemoryLimit limit(64u << 20);
  try {
    return read(data).has_value() == expected;
  } catch (const std::bad_alloc &) {
    return false;
  }
}

// The reader's own memory and that of the XML parser run out at different limits.
TEST(PropertyListMemory, throwsWhenThereIsTooLittle) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  std::string text = "<string>" + std::string(7u << 20, 'x') + "</string>";
  int thrown = 0;
  for (std::size_t limit = 0; limit < (40u << 20); limit += 1u << 20) {
    MemoryLimit scarcity(limit);
    try {
      EXPECT_TRUE(read(text)) << limit;
    } catch (const std::bad_alloc &) {
      ++thrown;
    }
  }
  EXPECT_GT(thrown, 4);
}

TEST(PropertyListMemory, staysWithinItsBoundForTheWorstOfEachForm) {
  if (kwtest::addsMemory)
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit in the limit";
  constexpr std::size_t size = 8u << 20;
  std::string deep, keys, trues, attribute = "<plist a=\"";
  while (deep.size() < size - 100)
    deep += "<array>";
  while (trues.size() < size - 200)
    trues += "<array/>";
  for (int count = 0; keys.size() < size - 200; ++count)
    keys += "<key>" + std::to_string(count) + "</key><dict/>";
  attribute += std::string(size - 100, 'x') + "\"><true/></plist>";
  EXPECT_TRUE(readsWithin64MiB(deep, false));
  EXPECT_TRUE(readsWithin64MiB(std::string("<array>") + trues + "</array>", false));
  EXPECT_TRUE(readsWithin64MiB(std::string("<dict>") + keys + "</dict>", false));
  EXPECT_TRUE(
      readsWithin64MiB(std::string("<string>") + std::string(size - 100, 'x') + "</string>", true));
  EXPECT_TRUE(
      readsWithin64MiB(std::string("<data>") + std::string(size - 100, 'A') + "</data>", true));
  EXPECT_TRUE(readsWithin64MiB(attribute, true));
  EXPECT_TRUE(readsWithin64MiB("<plist" + attributes(size - 100) + "><true/></plist>", false));
  EXPECT_TRUE(readsWithin64MiB(std::string("<") + std::string(size - 100, 'x') + ">", false));
  EXPECT_TRUE(readsWithin64MiB(std::string("<string>") + std::string(size - 100, 'x'), false));
  // A list near the bound of the parser's memory that also has large contents.
  EXPECT_TRUE(readsWithin64MiB("<plist" + attributes(700'000) + "><array>" +
                                   trues.substr(0, 8 * 90'000) + "<string>" +
                                   std::string(5'000'000, 'x') + "</string></array></plist>",
                               true));
  // As many empty arrays as the bound allows, and one array of as many flags.
  std::vector<std::string> arrays(60'000, "\xa0");
  std::vector<std::uint64_t> numbers;
  for (std::uint64_t number = 1; number < arrays.size(); ++number)
    numbers.push_back(number);
  arrays[0] = arrayObject(numbers);
  EXPECT_TRUE(readsWithin64MiB(binaryPropertyList(arrays), true));
  EXPECT_TRUE(readsWithin64MiB(
      binaryPropertyList({arrayObject(std::vector<std::uint64_t>(240'000, 1)), "\x09"}), true));
  EXPECT_TRUE(readsWithin64MiB(
      binaryPropertyList({arrayObject(std::vector<std::uint64_t>(400'000, 1)), "\x09"}), false));
  EXPECT_TRUE(
      readsWithin64MiB(binaryPropertyList({asciiObject(std::string(size - 100, 'x'))}), true));
}

} // namespace
