// The lines of the log.
#include "Foundation/Base/Log.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string written(const std::string &text) {
  testing::internal::CaptureStderr();
  NS::Log("%@", text);
  return testing::internal::GetCapturedStderr();
}

TEST(Log, writesOneLine) {
  EXPECT_EQ(written("a message, ~ included"), "a message, ~ included\n");
  EXPECT_EQ(written("größer"), "größer\n");
}

// Otherwise the name of a file could forge a second line, or command a terminal.
TEST(Log, escapesControlCharacters) {
  EXPECT_EQ(written("a\nb\tc"), "a\\nb\\tc\n");
  EXPECT_EQ(written("\x1b[2J\x01\x1f\x7f"), "\\x1b[2J\\x01\\x1f\\x7f\n");
}

TEST(Log, goesToTheInnermostSink) {
  std::string outer, inner;
  NS::ScopedLogSink first([&](const std::string &message) { outer += message; });
  {
    NS::ScopedLogSink second([&](const std::string &message) { inner += message; });
    NS::Log("inner");
  }
  NS::Log("outer");
  EXPECT_EQ(inner, "inner");
  EXPECT_EQ(outer, "outer");
}

} // namespace
