// Arguments and replies as the platform's objects and back, against GNUstep.
#include "Protocol/macOS/XPCValues.h"

#include <gtest/gtest.h>

// Text that UTF-8 cannot express, with the platform's answer to that.
@interface KWTextWithoutUTF8 : NSString
@end

@implementation KWTextWithoutUTF8
- (NSUInteger)length {
  return 1;
}
- (unichar)characterAtIndex:(NSUInteger)index {
  return 0xD800;
}
- (NSData *)dataUsingEncoding:(NSStringEncoding)encoding {
  return nil;
}
@end

namespace {

using namespace NS;
using namespace std::string_literals;

class XPCValuesTest : public ::testing::Test {
protected:
  ~XPCValuesTest() override { [pool release]; }

  // Half of a pair, say.
  static NSString *unpairedSurrogate() { return [[[KWTextWithoutUTF8 alloc] init] autorelease]; }

  static bool isNone(const XPCValue &value) {
    return std::holds_alternative<std::monostate>(value);
  }
  static std::string text(const XPCValue &value) { return std::get<std::string>(value); }
  static std::vector<std::string> texts(const XPCValue &value) {
    return std::get<std::vector<std::string>>(value);
  }

  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
};

TEST_F(XPCValuesTest, keepText) {
  for (const auto &given : {""s, "t\xC3\xA4xt \xF0\x9F\x97\x91"s, "cut\0here"s})
    EXPECT_EQ(text(requiredText(platformText(given))), given);
  EXPECT_EQ(platformText("\xFF"s), nil);
}

TEST_F(XPCValuesTest, tellNilFromEmptyTextWhereItMatters) {
  EXPECT_EQ(text(requiredText(nil)), "");
  EXPECT_TRUE(isNone(optionalText(nil)));
  EXPECT_EQ(text(optionalText(@"")), "");
  EXPECT_EQ(platformText(XPCValue()), nil);
  EXPECT_TRUE([platformText(XPCValue(""s)) isEqual:@""]);
}

TEST_F(XPCValuesTest, haveNoTextWithoutUTF8) {
  EXPECT_TRUE(isNone(requiredText(unpairedSurrogate())));
  EXPECT_TRUE(isNone(requiredTexts([NSArray arrayWithObjects:@"a", unpairedSurrogate(), nil])));
}

TEST_F(XPCValuesTest, takeArraysOfTextAlone) {
  std::vector<std::string> given = {"i386", "x86_64"};
  EXPECT_EQ(texts(requiredTexts(platformTexts(given))), given);
  EXPECT_TRUE(texts(requiredTexts(nil)).empty());
  EXPECT_TRUE(
      isNone(requiredTexts([NSArray arrayWithObjects:@"a", [NSNumber numberWithInt:1], nil])));
  EXPECT_EQ(platformTexts({"\xFF"}), nil);
}

TEST_F(XPCValuesTest, keepErrorsWithTheirCauses) {
  auto cause = std::make_shared<const Error>("NSPOSIXErrorDomain", 13);
  Error error("NSCocoaErrorDomain", -513,
              {{"text", "t\xC3\xA4xt"s},
               {"flag", true},
               {"number", std::int64_t{-5'000'000'000}},
               {"large", std::uint64_t{1} << 63},
               {"real", 0.5}},
              cause);
  XPCValue value = errorValue(platformError(error));
  const auto &read = std::get<Error>(value);
  EXPECT_EQ(read.domain(), error.domain());
  EXPECT_EQ(read.code(), error.code());
  EXPECT_EQ(read.userInfo(), error.userInfo());
  ASSERT_TRUE(read.underlyingError());
  EXPECT_EQ(read.underlyingError()->domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(read.underlyingError()->code(), 13);
}

TEST_F(XPCValuesTest, leaveUnknownValuesOutOfErrors) {
  NSDictionary *info =
      [NSDictionary dictionaryWithObjectsAndKeys:[NSDate date], @"date", @"kept", @"text",
                                                 unpairedSurrogate(), @"broken", nil];
  XPCValue value = errorValue([NSError errorWithDomain:@"d" code:1 userInfo:info]);
  EXPECT_EQ(std::get<Error>(value).userInfo(), (UserInfo{{"text", "kept"s}}));
  EXPECT_TRUE(isNone(errorValue(nil)));
  EXPECT_EQ(platformError(XPCValue()), nil);
}

TEST_F(XPCValuesTest, endAChainOfCauses) {
  NSError *chain = nil;
  for (int depth = 0; depth < 1'000; ++depth)
    chain =
        [NSError errorWithDomain:@"d"
                            code:depth
                        userInfo:chain ? [NSDictionary dictionaryWithObject:chain
                                                                     forKey:@"NSUnderlyingError"]
                                       : nil];
  XPCValue value = errorValue(chain);
  int length = 0;
  for (const Error *each = &std::get<Error>(value); each; each = each->underlyingError())
    ++length;
  EXPECT_EQ(length, 9);
}

} // namespace
