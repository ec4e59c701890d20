// The limit of descriptors by the rules of the platform, over the shim.
#include "Foundation/Descriptors/POSIX/DescriptorLimit.h"

#include "Foundation/Descriptors/DescriptorBudget.h"

#include "Darwin/Shim.h"

#include <gtest/gtest.h>

namespace {

TEST(DescriptorLimit, isRaisedToANumberWhereTheHardOneIsNone) {
  kwtest::darwin::ShimScope shim;
  NS::raiseDescriptorLimit();
  EXPECT_EQ(shim->openFiles, 10240u) << "the platform's OPEN_MAX";
  EXPECT_EQ(shim->mostOpenFiles, RLIM_INFINITY);
  ASSERT_TRUE(NS::limitBeforeRaising());
  EXPECT_EQ(NS::limitBeforeRaising()->rlim_cur, 256u);
}

TEST(DescriptorLimit, isNeverLowered) {
  kwtest::darwin::ShimScope shim;
  shim->openFiles = 20000;
  NS::raiseDescriptorLimit();
  EXPECT_EQ(shim->openFiles, 20000u);
}

TEST(DescriptorLimit, isRaisedToTheHardOne) {
  kwtest::darwin::ShimScope shim;
  shim->mostOpenFiles = 4096;
  NS::raiseDescriptorLimit();
  EXPECT_EQ(shim->openFiles, 4096u);
}

} // namespace
