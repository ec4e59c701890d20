// The Trash by the platform's file manager, whose call for it GNUstep does not
// have: the tests answer it.
#include "Foundation/Trees/Internal/HostTrash.h"

#include "Foundation/Base/macOS/Platform/Foundation.h"

#include <gtest/gtest.h>

namespace {

struct TrashCall {
  std::string path;
  BOOL answer = YES;
  NSError *error = nil;
};

TrashCall *current = nullptr;

} // namespace

@implementation NSFileManager (KWTrash)
- (BOOL)trashItemAtURL:(NSURL *)url
      resultingItemURL:(NSURL **)resultingURL
                 error:(NSError **)error {
  EXPECT_TRUE([url isFileURL]);
  EXPECT_EQ(resultingURL, nullptr) << "the request does not ask for it";
  current->path = [[url path] UTF8String];
  if (!current->answer)
    *error = current->error;
  return current->answer;
}
@end

namespace {

class HostTrash : public testing::Test {
protected:
  HostTrash() { current = &call; }
  ~HostTrash() override {
    current = nullptr;
    [pool release];
  }

  static std::string pathOf(const NS::Error &error) {
    return std::get<std::string>(error.userInfo().at(std::string(NS::FilePathErrorKey)));
  }

  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  TrashCall call;
};

TEST_F(HostTrash, takesTheItemAtThePath) {
  EXPECT_EQ(NS::host::moveToTrash("/folder/it\xC3\xA4m #1%20", "asked"), std::nullopt);
  EXPECT_EQ(call.path, "/folder/it\xC3\xA4m #1%20");
}

TEST_F(HostTrash, givesThePlatformsError) {
  call.answer = NO;
  call.error = [NSError errorWithDomain:@"NSCocoaErrorDomain" code:3328 userInfo:nil];
  auto error = NS::host::moveToTrash("/item", "asked");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain(), NS::CocoaErrorDomain);
  EXPECT_EQ(error->code(), NS::FeatureUnsupportedError);
  EXPECT_EQ(pathOf(*error), "asked");
}

TEST_F(HostTrash, hasAnErrorOfItsOwnWhenThePlatformGivesNone) {
  call.answer = NO;
  auto error = NS::host::moveToTrash("/item", "asked");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), NS::FileWriteUnknownError);
  EXPECT_EQ(pathOf(*error), "asked");
}

TEST_F(HostTrash, refusesAPathThatUTF8CannotExpress) {
  auto error = NS::host::moveToTrash("/\xFF", "asked");
  ASSERT_TRUE(error);
  EXPECT_EQ(call.path, "");
}

} // namespace
