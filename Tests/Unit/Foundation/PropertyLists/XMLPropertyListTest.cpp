// The reading and writing of the XML form.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Support/Allocations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <new>

namespace {

using NS::PropertyList;

std::optional<PropertyList> readXML(const std::string &body) {
  return NS::propertyListWithData("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
                                  "<plist version=\"1.0\">" +
                                      body + "</plist>",
                                  nullptr);
}

std::string writtenBody(const PropertyList &list) {
  std::string text = NS::dataWithPropertyList(list, nullptr).value_or("unwritten");
  std::size_t start = text.find("<plist version=\"1.0\">\n");
  EXPECT_NE(start, std::string::npos) << text;
  EXPECT_TRUE(text.ends_with("</plist>\n"));
  start += 22;
  return text.substr(start, text.size() - start - 9);
}

TEST(XMLPropertyList, isWrittenInThePlatformsLayout) {
  PropertyList list(PropertyList::Dictionary{
      {"string", "a < b & c > \"d\""},
      {"array", PropertyList::Array{1, -1, true, false, 0.5}},
      {"empty", PropertyList::Array{}},
      {"none", PropertyList::Dictionary{}},
      {"date", PropertyList::Date{0}},
      {"data", PropertyList::Data{std::string(60, 'x')}},
  });
  EXPECT_EQ(NS::dataWithPropertyList(list, nullptr),
            R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>array</key>
	<array>
		<integer>1</integer>
		<integer>-1</integer>
		<true/>
		<false/>
		<real>0.5</real>
	</array>
	<key>data</key>
	<data>
	eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4
	eHh4eHh4eHh4
	</data>
	<key>date</key>
	<date>2001-01-01T00:00:00Z</date>
	<key>empty</key>
	<array/>
	<key>none</key>
	<dict/>
	<key>string</key>
	<string>a &lt; b &amp; c &gt; "d"</string>
</dict>
</plist>
)");
}

TEST(XMLPropertyList, sortsKeysByTheirUTF16Units) {
  // U+D7FF, U+1F600 with the unit 0xd83d, U+E000 and U+FF5E.
  std::vector<std::string> keys{"\xed\x9f\xbf", "\xf0\x9f\x98\x80", "\xee\x80\x80", "\xef\xbd\x9e"};
  PropertyList::Dictionary entries;
  std::string sorted;
  for (const std::string &key : keys) {
    entries.insert(entries.begin(), {key, true});
    sorted += "\t<key>" + key + "</key>\n\t<true/>\n";
  }
  EXPECT_EQ(writtenBody(entries), "<dict>\n" + sorted + "</dict>\n");
}

// Of 76 columns the indentation takes eight for each level.
TEST(XMLPropertyList, breaksTheLinesOfDataInTheLastColumns) {
  auto line = [](std::size_t depth, std::size_t groups) {
    std::string text = std::string(depth, '\t');
    for (std::size_t group = 0; group < groups; ++group)
      text += "eHh4";
    return text + "\n";
  };
  for (std::size_t depth : {7u, 8u, 9u}) {
    PropertyList list(PropertyList::Data{std::string(36, 'x')});
    for (std::size_t level = 0; level < depth; ++level)
      list = PropertyList(PropertyList::Array{list});
    std::string body = writtenBody(list), tabs(depth, '\t');
    std::size_t start = body.find(tabs + "<data>\n");
    ASSERT_NE(start, std::string::npos) << depth;
    body = body.substr(start, body.find("</data>") - start);
    std::size_t inLine = depth == 7 ? 5 : 4; // four is the least
    std::string lines = line(depth, inLine) + line(depth, inLine) + line(depth, 12 - 2 * inLine);
    EXPECT_EQ(body, tabs + "<data>\n" + lines + tabs) << depth;
  }
  EXPECT_EQ(writtenBody(PropertyList::Data{"xxxx"}), "<data>\neHh4eA==\n</data>\n");
}

TEST(XMLPropertyList, writesAndReadsTheTimeOfADate) {
  for (auto [seconds, text] :
       {std::pair{72'000, "2001-01-01T20:00:00Z"}, std::pair{326'336'399, "2011-05-06T00:59:59Z"},
        std::pair{3'600, "2001-01-01T01:00:00Z"}}) {
    std::string element = "<date>" + std::string(text) + "</date>";
    EXPECT_EQ(writtenBody(PropertyList::Date{seconds}), element + "\n");
    EXPECT_EQ(readXML(element), PropertyList(PropertyList::Date{seconds}));
  }
}

TEST(XMLPropertyList, writesNumbersAsThePlatformDoes) {
  EXPECT_EQ(writtenBody(0.1), "<real>0.10000000000000001</real>\n");
  EXPECT_EQ(writtenBody(0.0), "<real>0.0</real>\n");
  EXPECT_EQ(writtenBody(1.0), "<real>1</real>\n");
  EXPECT_EQ(writtenBody(1e300), "<real>1.0000000000000001e+300</real>\n");
  EXPECT_EQ(writtenBody(std::nan("")), "<real>nan</real>\n");
  EXPECT_EQ(writtenBody(-HUGE_VAL), "<real>-infinity</real>\n");
  EXPECT_EQ(writtenBody(HUGE_VAL), "<real>+infinity</real>\n");
  EXPECT_EQ(writtenBody(std::numeric_limits<std::uint64_t>::max()),
            "<integer>18446744073709551615</integer>\n");
  EXPECT_EQ(writtenBody(std::numeric_limits<std::int64_t>::min()),
            "<integer>-9223372036854775808</integer>\n");
}

TEST(XMLPropertyList, readsItsOwnOutputBack) {
  PropertyList::Array everything{"",
                                 "a\r\n\tb",
                                 " spaces ",
                                 "\xf0\x9f\x98\x80\xc2\x85\xe2\x80\xa8\x7f",
                                 PropertyList::Data{""},
                                 PropertyList::Data{std::string("\0\xff\x80", 3)},
                                 PropertyList::Data{"xy"},
                                 PropertyList::Data{"x"},
                                 PropertyList::Date{-1},
                                 PropertyList::Date{-63113904000},
                                 PropertyList::Date{252423993599},
                                 std::numeric_limits<std::uint64_t>::max(),
                                 std::numeric_limits<std::int64_t>::min(),
                                 5e-324,
                                 -0.0,
                                 1.7976931348623157e308,
                                 std::nan(""),
                                 HUGE_VAL,
                                 -HUGE_VAL};
  for (const PropertyList &value : everything) {
    auto text = NS::dataWithPropertyList(value, nullptr);
    ASSERT_TRUE(text) << NS::describe(value);
    auto back = NS::propertyListWithData(*text, nullptr);
    ASSERT_TRUE(back) << *text;
    EXPECT_EQ(*back, value) << *text;
  }
}

TEST(XMLPropertyList, refusesToWriteStringsThatXMLCannotHold) {
  for (const std::string &text :
       {std::string("\x01"), std::string(1, '\0'), std::string("\x1b[0m"), std::string("\xff"),
        std::string("\xed\xa0\x80"), std::string("\xef\xbf\xbe"), std::string("\xef\xbf\xbf")}) {
    std::optional<NS::Error> error;
    EXPECT_EQ(NS::dataWithPropertyList(PropertyList(PropertyList::Array{text}), &error),
              std::nullopt);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NS::PropertyListWriteInvalidError);
    EXPECT_EQ(NS::dataWithPropertyList(PropertyList(PropertyList::Dictionary{{text, 1}}), nullptr),
              std::nullopt);
  }
  EXPECT_EQ(NS::dataWithPropertyList(PropertyList::Date{252423993600}, nullptr), std::nullopt);
  EXPECT_EQ(NS::dataWithPropertyList(PropertyList::Date{std::numeric_limits<std::int64_t>::min()},
                                     nullptr),
            std::nullopt);
}

TEST(XMLPropertyList, takesValuesWithoutThePlistElement) {
  EXPECT_EQ(NS::propertyListWithData("<dict><key>a</key><true/></dict>", nullptr),
            PropertyList(PropertyList::Dictionary{{"a", true}}));
  EXPECT_EQ(NS::propertyListWithData("\n <string>x</string>\n", nullptr), PropertyList("x"));
}

TEST(XMLPropertyList, readsEveryKind) {
  EXPECT_EQ(readXML("<integer> -12 </integer>"), PropertyList(-12));
  EXPECT_EQ(readXML("<integer>+0x1F</integer>"), PropertyList(31));
  EXPECT_EQ(readXML("<integer>-0Xa</integer>"), PropertyList(-10));
  EXPECT_EQ(readXML("<real>1e3</real>"), PropertyList(1000.0));
  EXPECT_EQ(readXML("<true></true>"), PropertyList(true));
  EXPECT_EQ(readXML("<date>2011-05-05T20:00:01Z</date>"),
            PropertyList(PropertyList::Date{326318401}));
  EXPECT_EQ(readXML("<data>\n\teHh4\n\teHg=\n</data>"), PropertyList(PropertyList::Data{"xxxxx"}));
  EXPECT_EQ(readXML("<string>a<!-- b -->c<![CDATA[<&]]>&#100;</string>"), PropertyList("ac<&d"));
  EXPECT_EQ(readXML("<dict><key>k</key><array/><key>k</key><dict/></dict>"),
            PropertyList(PropertyList::Dictionary{{"k", PropertyList::Dictionary{}}}));
}

TEST(XMLPropertyList, readsEveryFormOfReal) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(readXML("<real> +0.1\n</real>"), PropertyList(0.1));
  EXPECT_EQ(readXML("<real>-.5E-1</real>"), PropertyList(-0.05));
  EXPECT_EQ(readXML("<real>017.</real>"), PropertyList(17.0));
  EXPECT_EQ(readXML("<real>4.9406564584124654e-324</real>"),
            PropertyList(std::numeric_limits<double>::denorm_min()));
  EXPECT_EQ(readXML("<real>+infinity</real>"), PropertyList(infinity));
  EXPECT_EQ(readXML("<real>-inf</real>"), PropertyList(-infinity));
  auto noNumber = readXML("<real>nan</real>");
  ASSERT_TRUE(noNumber);
  EXPECT_TRUE(std::isnan(*noNumber->real()));
}

TEST(XMLPropertyList, takesRealsBeyondTheRangeForInfinityOrZero) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(readXML("<real>1e999</real>"), PropertyList(infinity));
  EXPECT_EQ(readXML("<real>-1e999</real>"), PropertyList(-infinity));
  EXPECT_EQ(readXML("<real>" + std::string(400, '9') + "</real>"), PropertyList(infinity));
  EXPECT_EQ(readXML("<real>1e-999</real>"), PropertyList(0.0));
}

TEST(XMLPropertyList, takesTheWholeGroupsOfData) {
  auto data = [](std::string_view bytes) {
    return PropertyList(PropertyList::Data{std::string(bytes)});
  };
  EXPECT_EQ(readXML("<data>YWJjZGU</data>"), data("abc"));
  EXPECT_EQ(readXML("<data>ab</data>"), data(""));
  EXPECT_EQ(readXML("<data>=</data>"), data(""));
  EXPECT_EQ(readXML("<data>Y-W_J*j</data>"), data("abc"));
  EXPECT_EQ(readXML("<data>YQ==YmM=</data>"), data("abc"));
  EXPECT_EQ(readXML("<data>YQ=\n=</data>"), data("a"));
  EXPECT_EQ(readXML("<data>YWJj=</data>"), data("abc"));
  // Two = at most shorten a group; before another digit, one counts as zero.
  EXPECT_EQ(readXML("<data>YQ===</data>"), data("a"));
  EXPECT_EQ(readXML("<data>Y===</data>"), data("`"));
  EXPECT_EQ(readXML("<data>YQ=j</data>"), data(std::string_view("a\0#", 3)));
}

TEST(XMLPropertyList, readsAndWritesEachDigitOfBase64) {
  std::string bytes;
  for (unsigned digit = 0; digit < 64; digit += 4) {
    unsigned group = digit << 18 | (digit + 1) << 12 | (digit + 2) << 6 | (digit + 3);
    for (unsigned shift : {16u, 8u, 0u})
      bytes += static_cast<char>(group >> shift & 0xff);
  }
  PropertyList list(PropertyList::Data{bytes});
  std::string written = "<data>\nABCDEFGHIJKLMNOPQRSTUVWXYZ"
                        "abcdefghijklmnopqrstuvwxyz0123456789+/\n</data>\n";
  EXPECT_EQ(writtenBody(list), written);
  EXPECT_EQ(readXML(written), list);
}

TEST(XMLPropertyList, isReadAsAWholeInSpiteOfOneOddLeaf) {
  auto list = readXML("<dict><key>Label</key><string>a</string><key>Odd</key><real>1e999</real>"
                      "<key>Data</key><data>YQ</data></dict>");
  ASSERT_TRUE(list && list->objectForKey("Label"));
  EXPECT_EQ(*list->objectForKey("Label"), PropertyList("a"));
}

TEST(XMLPropertyList, isUnparseableWhenNotWellFormed) {
  for (const char *body : {"",
                           "text",
                           "<dict>",
                           "<dict><key>a</key></dict>",
                           "<dict><string>a</string></dict>",
                           "<dict><key>a</key><key>b</key></dict>",
                           "<key>a</key>",
                           "<array><key>a</key></array>",
                           "<array>text</array>",
                           "<string/><string/>",
                           "<string/><array/>",
                           "<array><array><unknown/></array></array>",
                           "<array><dict><key>a</key></dict></array>",
                           "<plist><true/></plist>",
                           "<unknown/>",
                           "<string><string/></string>",
                           "<plist/>",
                           "<true>x</true>",
                           "<integer/>",
                           "<integer>1x</integer>",
                           "<integer>18446744073709551616</integer>",
                           "<integer>-9223372036854775809</integer>",
                           "<integer>--1</integer>",
                           "<integer>1 2</integer>",
                           "<real/>",
                           "<real>1,5</real>",
                           "<real>+-1</real>",
                           "<date>2011-02-30T00:00:00Z</date>",
                           "<date>2011-02-03</date>",
                           "<date>0000-01-01T00:00:00Z</date>",
                           "<date>2011-01-01T24:00:00Z</date>",
                           "<date>2011-01-01T00:60:00Z</date>",
                           "<date>2011-01-01T00:00:60Z</date>",
                           "<date>2011-01-0aT00:00:00Z</date>",
                           "<date>2011-01-01T00:00:0/Z</date>",
                           "<real>1e</real>",
                           "<real>0x10</real>",
                           "<real>-0X1p3</real>",
                           "<real>++1</real>",
                           "<real>+ 1</real>",
                           "<real>1 2</real>",
                           "<real> </real>",
                           "<real>1e999x</real>",
                           "<string>&none;</string>",
                           "<string>\x01</string>",
                           "<string>\xff</string>",
                           "<dict/>text"}) {
    std::optional<NS::Error> error;
    EXPECT_EQ(NS::propertyListWithData(std::string("<plist>") + body + "</plist>", &error),
              std::nullopt)
        << body;
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NS::PropertyListReadCorruptError);
  }
  for (const char *data : {"", " ", "<", "<plist>", "\xff\xfe", "bplist", "{ a = b; }",
                           "<plist><true/>", "<true/>x", "<array><plist/></array>"})
    EXPECT_EQ(NS::propertyListWithData(data, nullptr), std::nullopt) << data;
}

// The number of allocations of which one failed, each in its turn.
int failedAllocationsOfReading(const std::string &text) {
  int rounds = 0;
  for (bool wasShort = true; wasShort; ++rounds) {
    std::optional<PropertyList> list;
    kwtest::allocationsLeft() = rounds;
    try {
      list = NS::propertyListWithData(text, nullptr);
    } catch (const std::bad_alloc &) {
    }
    wasShort = !kwtest::allocationsLeft();
    kwtest::allocationsLeft().reset();
    EXPECT_NE(list.has_value(), wasShort) << rounds;
  }
  return rounds - 1;
}

// The parser still reports the ends of elements after a failure.
TEST(XMLPropertyList, isReadUnlessSomePartLacksMemory) {
  EXPECT_GT(failedAllocationsOfReading("<array/>"), 0);
  EXPECT_GT(failedAllocationsOfReading("<array><dict><key>a</key><array/></dict></array>"), 4);
}

TEST(XMLPropertyList, expandsNoEntity) {
  for (const char *subset :
       {"[<!ENTITY a \"aaaa\">]", "[<!ENTITY a SYSTEM \"file:///etc/hostname\">]",
        "[<!ENTITY % p SYSTEM \"file:///etc/hostname\"> %p;]", "[]",
        "SYSTEM \"file:///etc/hostname\" [<!ENTITY a \"b\">]"})
    EXPECT_EQ(NS::propertyListWithData(std::string("<!DOCTYPE plist ") + subset +
                                           "><plist><string>x&a;</string></plist>",
                                       nullptr),
              std::nullopt)
        << subset;
  EXPECT_EQ(NS::propertyListWithData("<!DOCTYPE plist SYSTEM \"file:///etc/hostname\">"
                                     "<plist><string>x&a;</string></plist>",
                                     nullptr),
            std::nullopt);
  EXPECT_EQ(NS::propertyListWithData("<!DOCTYPE plist SYSTEM \"file:///etc/hostname\">"
                                     "<plist><string>x</string></plist>",
                                     nullptr),
            PropertyList("x"));
}

TEST(XMLPropertyList, takesADepthOf512AndNoMore) {
  auto body = [](std::size_t depth) {
    std::string text;
    for (std::size_t level = 0; level < depth; ++level)
      text += "<array>";
    for (std::size_t level = 0; level < depth; ++level)
      text += "</array>";
    return text;
  };
  EXPECT_TRUE(readXML(body(512)));
  EXPECT_FALSE(readXML(body(513)));
  EXPECT_FALSE(readXML(body(200'000)));
  std::string opening;
  for (int level = 0; level < 1'000'000; ++level)
    opening += "<array>";
  EXPECT_FALSE(NS::propertyListWithData(opening, nullptr));
}

TEST(XMLPropertyList, takesNoMoreThanItsShareOfValuesAndData) {
  std::string many;
  for (int count = 0; count < 400'000; ++count)
    many += "<true/>";
  EXPECT_FALSE(readXML("<array>" + many + "</array>"));
  EXPECT_TRUE(readXML("<array>" + many.substr(0, many.size() / 4) + "</array>"));
  EXPECT_TRUE(readXML("<string>" + std::string(8'000'000, 'x') + "</string>"));
  EXPECT_FALSE(readXML("<string>" + std::string(9'000'000, 'x') + "</string>"));
}

} // namespace
