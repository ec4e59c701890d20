// The answer to a request that is cancelled before its turn.
#include "Service/Linux/ServiceReplies.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using namespace NS;

TEST(CancelledValues, sayThatNothingWasDoneAndWhy) {
  XPCMethod method;
  for (XPCKind kind : {XPCKind::Flag, XPCKind::Int32, XPCKind::Int64, XPCKind::String})
    method.replies.push_back({"value", kind});
  XPCValues values = cancelledValues(method);
  ASSERT_EQ(values.size(), 4u);
  EXPECT_FALSE(std::get<bool>(values[0]));
  EXPECT_EQ(std::get<std::int32_t>(values[1]), 0);
  EXPECT_EQ(std::get<std::int64_t>(values[2]), 0);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(values[3]));
  method.replies = {{"flag", XPCKind::Flag}, {"error", XPCKind::Error}};
  method.failureFlag = true;
  values = cancelledValues(method);
  EXPECT_TRUE(std::get<bool>(values.at(0)));
  const auto *error = std::get_if<Error>(&values.at(1));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), CocoaErrorDomain);
  EXPECT_EQ(error->code(), UserCancelledError);
  ASSERT_NE(error->underlyingError(), nullptr);
  EXPECT_EQ(error->underlyingError()->code(), ECANCELED);
}

} // namespace
