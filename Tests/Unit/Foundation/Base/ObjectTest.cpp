// Identity, class names and the value objects.
#include "Foundation/Values/Date.h"
#include "Foundation/Values/Null.h"
#include "Foundation/Values/Number.h"
#include "Foundation/Values/String.h"

#include <gtest/gtest.h>

#include <limits>
#include <unordered_set>

namespace kw {

class KWNamedLikeTheToolkit : public NS::Object {};

} // namespace kw

namespace {

using NS::Date;
using NS::Number;
using NS::String;

struct Swimming {
  virtual ~Swimming() = default;
};
class Duck : public NS::Object, public Swimming {};

TEST(Object, isEqualToItselfAlone) {
  auto one = std::make_shared<NS::Object>();
  auto other = std::make_shared<NS::Object>();
  EXPECT_TRUE(one->isEqual(*one));
  EXPECT_FALSE(one->isEqual(*other));
  EXPECT_EQ(one->hash(), one->hash());
}

TEST(Object, namesItsClassAsThePlatformDoes) {
  EXPECT_EQ(NS::Object().className(), "NSObject");
  EXPECT_EQ(kw::KWNamedLikeTheToolkit().className(), "KWNamedLikeTheToolkit");
  EXPECT_EQ(Duck().className(), "Duck");
  EXPECT_EQ(NS::Class::of<Number>().name(), "NSNumber");
  EXPECT_EQ(NS::Object().description().rfind("<NSObject: 0x", 0), 0U);
}

TEST(Object, isOfItsClassItsBasesAndItsInterfaces) {
  Duck duck;
  EXPECT_TRUE(duck.isKindOfClass(NS::Class::of<Duck>()));
  EXPECT_TRUE(duck.isKindOfClass(NS::Class::of<NS::Object>()));
  EXPECT_TRUE(duck.isKindOfClass(NS::Class::of<Swimming>()));
  EXPECT_FALSE(duck.isKindOfClass(NS::Class::of<String>()));
}

TEST(Object, ofUnknownClassDescribesItselfInFormats) {
  std::shared_ptr<NS::Object> text = String::stringWithString("a b");
  EXPECT_EQ(NS::stringWithFormat("%@ %@", text, std::shared_ptr<NS::Object>()), "a b (null)");
}

TEST(Null, isOneObjectAndNoValue) {
  EXPECT_EQ(NS::Null::null(), NS::Null::null());
  EXPECT_EQ(NS::Null::null()->description(), "<null>");
  EXPECT_TRUE(NS::isNilOrNull(nullptr));
  EXPECT_TRUE(NS::isNilOrNull(NS::Null::null()));
  EXPECT_FALSE(NS::isNilOrNull(String::stringWithString("")));
}

TEST(String, isEqualByItsBytes) {
  auto one = String::stringWithString("caf\xc3\xa9");
  auto same = String::stringWithString("caf\xc3\xa9");
  EXPECT_TRUE(one->isEqual(*same));
  EXPECT_EQ(one->hash(), same->hash());
  EXPECT_FALSE(one->isEqual(*String::stringWithString("cafe\xcc\x81")));
  EXPECT_FALSE(String::stringWithString("1")->isEqual(*Number::numberWithLongLong(1)));
}

TEST(Number, isEqualByValueAcrossKinds) {
  auto one = Number::numberWithLongLong(1);
  for (const auto &same : {Number::numberWithBool(true), Number::numberWithUnsignedLongLong(1),
                           Number::numberWithDouble(1.0)}) {
    EXPECT_TRUE(one->isEqual(*same));
    EXPECT_TRUE(same->isEqual(*one));
    EXPECT_EQ(one->hash(), same->hash());
  }
  EXPECT_FALSE(one->isEqual(*Number::numberWithDouble(1.5)));
  EXPECT_FALSE(one->isEqual(*String::stringWithString("1")));
  EXPECT_TRUE(Number::numberWithDouble(-0.0)->isEqual(*Number::numberWithBool(false)));
  EXPECT_EQ(Number::numberWithDouble(1.5)->hash(), Number::numberWithDouble(1.5)->hash());
  EXPECT_NE(Number::numberWithDouble(1.5)->hash(), Number::numberWithDouble(1.25)->hash());
  EXPECT_TRUE(Number::numberWithDouble(0.5)->isEqual(*Number::numberWithDouble(0.5)));
  EXPECT_FALSE(Number::numberWithDouble(0.5)->isEqual(*Number::numberWithDouble(0.25)));
  EXPECT_TRUE(Number::numberWithLongLong(0)->isEqual(*Number::numberWithBool(false)));
}

TEST(Number, withoutAValueIsEqualToItselfAlone) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  auto one = Number::numberWithDouble(nan);
  EXPECT_TRUE(one->isEqual(*one));
  EXPECT_FALSE(one->isEqual(*Number::numberWithDouble(nan)));
}

TEST(Number, tellsApartNumbersThatOneCastWouldMakeEqual) {
  auto minusOne = Number::numberWithLongLong(-1);
  auto greatest = Number::numberWithUnsignedLongLong(std::numeric_limits<std::uint64_t>::max());
  EXPECT_FALSE(minusOne->isEqual(*greatest));
  // 2^53 + 1 has no double; the nearest one is 2^53.
  auto odd = Number::numberWithLongLong(9007199254740993);
  EXPECT_FALSE(odd->isEqual(*Number::numberWithDouble(9007199254740992.0)));
  EXPECT_FALSE(greatest->isEqual(*Number::numberWithDouble(18446744073709551616.0)));
  auto lowest = Number::numberWithLongLong(std::numeric_limits<std::int64_t>::min());
  EXPECT_TRUE(lowest->isEqual(*Number::numberWithDouble(-9223372036854775808.0)));
  // Doubles beyond all integers.
  EXPECT_FALSE(lowest->isEqual(*Number::numberWithDouble(-1e300)));
  EXPECT_FALSE(
      Number::numberWithBool(false)->isEqual(*Number::numberWithDouble(18446744073709551616.0)));
}

TEST(Number, convertsWithoutEverFailing) {
  EXPECT_EQ(Number::numberWithLongLong(-1)->unsignedLongLongValue(), 18446744073709551615U);
  EXPECT_EQ(Number::numberWithUnsignedLongLong(18446744073709551615U)->longLongValue(), -1);
  EXPECT_EQ(Number::numberWithDouble(-2.9)->longLongValue(), -2);
  EXPECT_EQ(Number::numberWithDouble(-2.9)->unsignedLongLongValue(), 0U);
  for (double beyond : {9223372036854775808.0, 1e300})
    EXPECT_EQ(Number::numberWithDouble(beyond)->longLongValue(),
              std::numeric_limits<std::int64_t>::max());
  for (double beyond : {18446744073709551616.0, 1e300})
    EXPECT_EQ(Number::numberWithDouble(beyond)->unsignedLongLongValue(),
              std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(Number::numberWithDouble(-1e300)->longLongValue(),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Number::numberWithDouble(std::numeric_limits<double>::quiet_NaN())->longLongValue(), 0);
  EXPECT_EQ(Number::numberWithBool(true)->doubleValue(), 1.0);
  EXPECT_TRUE(Number::numberWithDouble(0.1)->boolValue());
  EXPECT_TRUE(Number::numberWithLongLong(256)->boolValue());
  EXPECT_FALSE(Number::numberWithDouble(-0.0)->boolValue());
}

TEST(Number, describesItselfInDigits) {
  EXPECT_EQ(Number::numberWithBool(true)->description(), "1");
  EXPECT_EQ(Number::numberWithLongLong(-42)->description(), "-42");
  EXPECT_EQ(Number::numberWithUnsignedLongLong(18446744073709551615U)->description(),
            "18446744073709551615");
  EXPECT_EQ(Number::numberWithDouble(0.1)->description(), "0.1");
  EXPECT_EQ(Number::numberWithDouble(3)->description(), "3");
}

TEST(Date, isEqualByItsMoment) {
  auto one = Date::dateWithTimeIntervalSince1970(1.5);
  EXPECT_TRUE(one->isEqual(*Date::dateWithTimeIntervalSince1970(1.5)));
  EXPECT_EQ(one->hash(), Date::dateWithTimeIntervalSince1970(1.5)->hash());
  EXPECT_FALSE(one->isEqual(*Date::dateWithTimeIntervalSince1970(1.25)));
  EXPECT_FALSE(one->isEqual(*Number::numberWithDouble(1.5)));
}

TEST(Date, describesItselfInUniversalTime) {
  struct Row {
    double seconds;
    const char *text;
  };
  for (auto [seconds, text] :
       {Row{978307200, "2001-01-01 00:00:00 +0000"}, Row{-0.5, "1969-12-31 23:59:59 +0000"},
        Row{6.0e16, "60000000000000000.000000"}, Row{-1e17, "-100000000000000000.000000"},
        Row{std::numeric_limits<double>::quiet_NaN(), "nan"}})
    EXPECT_EQ(Date::dateWithTimeIntervalSince1970(seconds)->description(), text);
}

TEST(ObjectHash, putsEqualObjectsInOnePlace) {
  std::unordered_set<std::shared_ptr<NS::Object>, NS::ObjectHash, NS::ObjectEqual> set;
  set.insert(String::stringWithString("a"));
  set.insert(String::stringWithString("a"));
  set.insert(nullptr);
  EXPECT_EQ(set.size(), 2U);
}

} // namespace
