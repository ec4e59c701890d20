// The value, and the reading and writing of the XML form.
#include "Foundation/PropertyLists/PropertyList.h"

#include "Support/FakeFileContents.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/ResourceShortage.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

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

PropertyList nested(std::size_t depth) {
  PropertyList list("innermost");
  for (std::size_t level = 0; level < depth; ++level) {
    PropertyList::Array outer;
    outer.push_back(std::move(list));
    list = PropertyList(std::move(outer));
  }
  return list;
}

TEST(PropertyListValue, tellsItsKindAndGivesNothingAsAnotherKind) {
  PropertyList text("x"), number(7), flag(true), real(1.5);
  EXPECT_EQ(text.kind(), PropertyList::Kind::String);
  EXPECT_EQ(number.kind(), PropertyList::Kind::Integer);
  EXPECT_EQ(flag.kind(), PropertyList::Kind::Boolean);
  EXPECT_EQ(real.kind(), PropertyList::Kind::Real);
  EXPECT_EQ(number.string(), nullptr);
  EXPECT_EQ(text.integer(), std::nullopt);
  EXPECT_EQ(flag.integer(), std::nullopt);
  EXPECT_EQ(text.objectForKey("x"), nullptr);
  EXPECT_EQ(PropertyList(PropertyList::Array{}).kind(), PropertyList::Kind::Array);
  EXPECT_EQ(PropertyList(PropertyList::Dictionary{}).kind(), PropertyList::Kind::Dictionary);
}

TEST(PropertyListValue, copiesShareUntilOneIsChanged) {
  PropertyList original(PropertyList::Dictionary{{"a", 1}});
  PropertyList copy = original;
  copy.setObjectForKey("two", "b");
  copy.setObjectForKey(3, "a");
  copy.removeObjectForKey("nothing");
  EXPECT_EQ(original, PropertyList(PropertyList::Dictionary{{"a", 1}}));
  EXPECT_EQ(copy, PropertyList(PropertyList::Dictionary{{"a", 3}, {"b", "two"}}));
  original.removeObjectForKey("a");
  EXPECT_TRUE(original.dictionary()->empty());
  EXPECT_EQ(copy.dictionary()->size(), 2u);
}

TEST(PropertyListValue, becomesAPartOfItself) {
  for (const PropertyList &part :
       {PropertyList(1), PropertyList(0.5), PropertyList("a text too long to stand in place"),
        PropertyList(PropertyList::Array{1, 2})}) {
    PropertyList list(PropertyList::Dictionary{{"part", part}});
    list = *list.objectForKey("part");
    EXPECT_EQ(list, part);
  }
}

TEST(PropertyListValue, ofEntriesWithOneKeyTheLastStays) {
  PropertyList list(PropertyList::Dictionary{{"b", 1}, {"a", 2}, {"b", 3}, {"a", 4}, {"b", 5}});
  EXPECT_EQ(list, PropertyList(PropertyList::Dictionary{{"a", 4}, {"b", 5}}));
}

TEST(PropertyListValue, equalsOnlyItsOwnKind) {
  EXPECT_NE(PropertyList(1), PropertyList(true));
  EXPECT_NE(PropertyList(1), PropertyList(1.0));
  EXPECT_NE(PropertyList("1"), PropertyList(PropertyList::Data{"1"}));
  EXPECT_NE(PropertyList(PropertyList::Array{}), PropertyList(PropertyList::Dictionary{}));
  EXPECT_EQ(PropertyList(std::nan("")), PropertyList(std::nan("")));
  EXPECT_NE(PropertyList(std::uint64_t{1} << 63),
            PropertyList(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(PropertyList(std::uint64_t{5}), PropertyList(5));
}

TEST(PropertyListValue, equalsAListWithTheSameContentsAlone) {
  using Array = PropertyList::Array;
  using Dictionary = PropertyList::Dictionary;
  PropertyList array(Array{1, "a"}), dictionary(Dictionary{{"a", 1}, {"b", 2}});
  PropertyList sameArray = array, sameDictionary = dictionary;
  EXPECT_EQ(array, sameArray);
  EXPECT_EQ(dictionary, sameDictionary);
  EXPECT_EQ(array, PropertyList(Array{1, "a"}));
  EXPECT_EQ(dictionary, PropertyList(Dictionary{{"b", 2}, {"a", 1}}));
  for (const Array &other : {Array{}, Array{1}, Array{1, "b"}, Array{1, "a", 2}})
    EXPECT_NE(array, PropertyList(other));
  for (const Dictionary &other : {Dictionary{}, Dictionary{{"a", 1}},
                                  Dictionary{{"a", 1}, {"c", 2}}, Dictionary{{"a", 1}, {"b", 3}}})
    EXPECT_NE(dictionary, PropertyList(other));
}

TEST(PropertyListValue, ofAMillionLevelsIsComparedAndDestroyed) {
  PropertyList deep = nested(1'000'000), other = nested(1'000'000), shallower = nested(999'999);
  EXPECT_TRUE(deep == other);
  EXPECT_FALSE(deep == shallower);
  PropertyList copy = deep;
  deep = PropertyList(1);
  EXPECT_TRUE(copy == other);
}

TEST(PropertyListValue, isSharedByThreadsThatCopyChangeAndDestroyIt) {
  PropertyList shared(PropertyList::Dictionary{{"a", nested(50)}, {"b", 1}});
  PropertyList untouched = shared;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread)
    threads.emplace_back([copy = shared]() mutable {
      for (int round = 0; round < 500; ++round) {
        PropertyList own = copy;
        own.setObjectForKey(round, "b");
        own.removeObjectForKey("a");
        copy = PropertyList(PropertyList::Dictionary{{"outer", copy}});
        copy = *copy.objectForKey("outer");
      }
    });
  shared = PropertyList(1);
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(untouched.objectForKey("b")->integer(), 1);
  EXPECT_EQ(*untouched.objectForKey("a"), nested(50));
}

TEST(PropertyListValue, readsAsBoolAsThePlatformDoes) {
  EXPECT_TRUE(PropertyList(true).boolValue());
  EXPECT_FALSE(PropertyList(false).boolValue());
  EXPECT_TRUE(PropertyList(-1).boolValue());
  EXPECT_FALSE(PropertyList(0).boolValue());
  EXPECT_TRUE(PropertyList(0.5).boolValue());
  EXPECT_TRUE(PropertyList(std::uint64_t{1} << 63).boolValue());
  EXPECT_FALSE(PropertyList(PropertyList::Date{1}).boolValue());
  EXPECT_FALSE(PropertyList(PropertyList::Data{"1"}).boolValue());
  for (const char *text : {"YES", "yes", "true", "T", "1", " 9", "+01", "-5"})
    EXPECT_TRUE(PropertyList(text).boolValue()) << text;
  for (const char *text : {"", "NO", "false", "0", "000", "on", "x1", " "})
    EXPECT_FALSE(PropertyList(text).boolValue()) << text;
  EXPECT_FALSE(PropertyList(PropertyList::Array{}).boolValue());
}

TEST(PropertyListValue, describesItselfAsThePlatformDoes) {
  EXPECT_EQ(NS::describe(PropertyList("bare text")), "bare text");
  EXPECT_EQ(NS::describe(PropertyList(true)), "1");
  EXPECT_EQ(NS::describe(PropertyList(PropertyList::Dictionary{
                {"Label", "org.example"}, {"two words", PropertyList::Array{"a b", 2}}})),
            "{\n    Label = org.example;\n    \"two words\" =     (\n        \"a b\",\n"
            "        2\n    );\n}");
  EXPECT_LT(NS::describe(nested(100'000)).size(), 100'000u);
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
  // U+FF5E has the larger unit, U+1F600 the larger code point.
  std::string body = writtenBody(
      PropertyList(PropertyList::Dictionary{{"\xef\xbd\x9e", 1}, {"\xf0\x9f\x98\x80", 2}}));
  EXPECT_LT(body.find("\xf0\x9f\x98\x80"), body.find("\xef\xbd\x9e"));
}

TEST(XMLPropertyList, writesNumbersAsThePlatformDoes) {
  EXPECT_EQ(writtenBody(0.1), "<real>0.10000000000000001</real>\n");
  EXPECT_EQ(writtenBody(0.0), "<real>0.0</real>\n");
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
  for (const char *data : {"", " ", "<", "<plist>", "\xff\xfe", "bplist", "{ a = b; }"})
    EXPECT_EQ(NS::propertyListWithData(data, nullptr), std::nullopt) << data;
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

TEST(DictionaryWithContentsOfFile, isNothingForAnythingElse) {
  kwtest::ScratchFolder scratch;
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.path("missing")));
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.path()));
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.file("a", "<array/>")));
  EXPECT_FALSE(NS::dictionaryWithContentsOfFile(scratch.file("b", "garbage")));
  EXPECT_TRUE(NS::dictionaryWithContentsOfFile(scratch.file("c", "<dict/>")));
}

TEST(DictionaryWithContentsOfFile, isNotNothingForLackOfDescriptors) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  kwtest::ScratchFolder scratch;
  std::string path = scratch.file("a", "<dict/>");
  for (std::size_t left : {0u, 1u}) {
    kwtest::FewDescriptorsLeft few(left);
    EXPECT_THROW(NS::dictionaryWithContentsOfFile(path), NS::ResourceShortage) << left;
  }
  kwtest::FewDescriptorsLeft few(2);
  EXPECT_TRUE(NS::dictionaryWithContentsOfFile(path));
}

// A lack of memory that only the kernel meets.
TEST(DictionaryWithContentsOfFile, tellsALackFromAnUnreadableFile) {
  kwtest::FakeFileContents contents;
  NS::ScopedOverride<NS::FileContents> override(contents);
  for (int lack : {ENOMEM, ENFILE}) {
    contents.readFailure = lack;
    EXPECT_THROW(NS::dictionaryWithContentsOfFile("/a"), NS::ResourceShortage) << lack;
  }
  for (int failure : {EACCES, EIO, EISDIR, EFBIG}) {
    contents.readFailure = failure;
    EXPECT_FALSE(NS::dictionaryWithContentsOfFile("/a")) << failure;
  }
}

} // namespace
