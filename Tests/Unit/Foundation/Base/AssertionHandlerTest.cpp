// The effect of a failed assertion.
#include "Support/AssertionRecorder.h"
#include "Support/LogRecorder.h"

#include <gtest/gtest.h>

namespace {

TEST(AssertionHandler, raisesWithTheDescriptionAndLogsTheFile) {
  kwtest::LogRecorder log;
  try {
    NS::assertionFailed("Sources/Additions/Some", "Invalid parameter not satisfying: %@", "x");
    FAIL() << "nothing was raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::InternalInconsistencyException);
    EXPECT_EQ(exception.reason(), "Invalid parameter not satisfying: x");
  }
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"*** Assertion failure in Sources/Additions/Some: "
                                      "Invalid parameter not satisfying: x"}));
}

TEST(AssertionHandler, mayBeReplacedByOneThatReturns) {
  kwtest::AssertionRecorder recorder;
  NS::assertionFailed("Some", "Why %@", 1);
  EXPECT_EQ(recorder.failures, (std::vector<kwtest::AssertionFailure>{{"Some", "Why 1"}}));
}

} // namespace
