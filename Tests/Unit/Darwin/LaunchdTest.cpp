// The job query by launch_msg, over the shim.
#include "Foundation/Processes/Launchd.h"

#include "Darwin/Shim.h"

#include <gtest/gtest.h>

#include <new>

namespace {

using NS::LaunchDataType;

class Launchd : public ::testing::Test {
protected:
  kwtest::darwin::ShimScope shim;

  void SetUp() override { shim->jobs = {"org.example.job"}; }
  void TearDown() override { EXPECT_EQ(shim->launchData, 0) << "every object is freed once"; }
  static LaunchDataType query(const std::string &label) {
    return NS::Launchd::shared().replyToRequest(NS::Launchd::GetJobKey, label, 30);
  }
};

TEST_F(Launchd, answersWithADictionaryForAJobThatItKnows) {
  EXPECT_EQ(query("org.example.job"), LaunchDataType::Dictionary);
}

TEST_F(Launchd, answersWithAnErrorForAnyOther) {
  EXPECT_EQ(query("org.example.other"), LaunchDataType::Errno);
  EXPECT_EQ(query(""), LaunchDataType::Errno);
  EXPECT_EQ(NS::Launchd::shared().replyToRequest("Other", "org.example.job", 30),
            LaunchDataType::Errno);
}

TEST_F(Launchd, isNotAskedForALabelThatANulCutsShort) {
  EXPECT_EQ(query(std::string("org.example.job\0x", 17)), LaunchDataType::Errno);
  EXPECT_EQ(shim->messages, 0);
}

TEST_F(Launchd, mayBeOutOfReach) {
  shim->launchdAnswers = false;
  EXPECT_EQ(query("org.example.job"), LaunchDataType::None);
}

TEST_F(Launchd, isNotAskedWithoutTheMemoryForARequest) {
  for (int objects : {0, 1}) {
    shim->memoryFor = objects;
    EXPECT_THROW(query("org.example.job"), std::bad_alloc) << objects;
  }
  shim->memoryFor.reset();
  shim->takesEntries = false;
  EXPECT_THROW(query("org.example.job"), std::bad_alloc);
  EXPECT_EQ(shim->messages, 0);
}

} // namespace
