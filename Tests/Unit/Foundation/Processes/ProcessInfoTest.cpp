// The environment and the user of this process.
#include "Foundation/Processes/ProcessInfo.h"

#include "Support/ForkedChild.h"
#include "Support/ScopedVariable.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace {

NS::ProcessInfo::Environment environment() {
  return NS::ProcessInfo::processInfo().environment();
}

TEST(ProcessInfo, readsTheEnvironmentAsItIs) {
  {
    kwtest::ScopedVariable variable("KEEPWELL_TEST_VALUE", "a=b");
    EXPECT_EQ(environment().at("KEEPWELL_TEST_VALUE"), "a=b");
  }
  EXPECT_FALSE(environment().contains("KEEPWELL_TEST_VALUE"));
}

TEST(ProcessInfo, passesOverEntriesOfTheEnvironmentWithoutAValue) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              char first[] = "NOT-A-VARIABLE";
              char second[] = "NAME=value";
              char *entries[] = {first, second, nullptr};
              ::environ = entries;
              auto values = environment();
              return values.size() == 1 ? values["NAME"] : "not one variable";
            }),
            "value");
}

TEST(ProcessInfo, isEmptyWithoutAnEnvironment) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              ::environ = nullptr;
              return environment().empty() ? "" : "not empty";
            }),
            "");
}

TEST(RealUser, hasTheNameOfItsRecordOrElseItsNumber) {
  EXPECT_EQ(NS::realUserIdentifier(), ::getuid());
  if (!kwtest::isRoot())
    GTEST_SKIP() << "only root can become another user";
  EXPECT_EQ(NS::realUserName(), "root");
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              return ::setuid(54321) == 0 ? NS::realUserName() : "still root";
            }),
            "54321");
}

} // namespace
