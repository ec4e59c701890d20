// The two ends of a pipe.
#include "Foundation/Descriptors/Pipe.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/ResourceShortage.h"
#include "Support/ForkedChild.h"
#include "Support/MissingCall.h"
#include "Support/Sanitizers.h"
#include "Support/Scarcity.h"
#include "Support/ScratchFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

TEST(Pipe, carriesTheWrittenData) {
  auto pipe = NS::Pipe::pipe();
  pipe->fileHandleForWriting().writeData("text");
  pipe->fileHandleForWriting().closeFile();
  EXPECT_EQ(pipe->fileHandleForReading().readDataToEndOfFile(), "text");
}

TEST(Pipe, closesBothEndsWithItsLastHolder) {
  std::size_t before = kwtest::openDescriptorCount();
  auto pipe = NS::Pipe::pipe();
  auto second = pipe;
  pipe.reset();
  EXPECT_EQ(kwtest::openDescriptorCount(), before + 2);
  second.reset();
  EXPECT_EQ(kwtest::openDescriptorCount(), before);
}

TEST(Pipe, withoutADescriptorLeftThrows) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  struct rlimit former;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
  struct rlimit none = {3, former.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string reason;
  try {
    NS::Pipe::pipe();
  } catch (const NS::ResourceShortage &shortage) {
    reason = shortage.what();
  }
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &former), 0);
  EXPECT_EQ(reason, "pipe: Too many open files");
}

TEST(Pipe, toTheNullDeviceWithOnlyOneDescriptorLeftThrows) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  kwtest::FewDescriptorsLeft scarcity(1);
  EXPECT_THROW(NS::Pipe::nullDevice(), NS::ResourceShortage);
}

TEST(Pipe, thatTheSystemRefusesRaises) {
  KW_REQUIRE_TO_DO_WITHOUT_DESCRIPTORS();
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              if (!kwtest::refuseCalls(SYS_pipe2, EPERM))
                return "pipes still work";
              try {
                NS::Pipe::pipe();
              } catch (const NS::Exception &exception) {
                return exception.name() + ": " + exception.reason();
              }
              return "nothing raised";
            }),
            "NSInternalInconsistencyException: pipe: Operation not permitted");
}

// In a child of its own, since a closed standard stream troubles the test
// program as well.
TEST(Pipe, neverTakesThePlaceOfAClosedStandardStream) {
  using Streams = std::vector<int>;
  for (const Streams &closed : {Streams{0, 1, 2}, Streams{2}})
    EXPECT_EQ(kwtest::inForkedChild([&]() -> std::string {
                for (int stream : closed)
                  ::close(stream);
                auto pipe = NS::Pipe::pipe();
                bool above = pipe->fileHandleForReading().fileDescriptor() > 2 &&
                             pipe->fileHandleForWriting().fileDescriptor() > 2;
                for (int stream : closed)
                  above = above && ::fcntl(stream, F_GETFD) < 0;
                return above ? "" : "it took the place";
              }),
              "");
}

} // namespace
