// The two ends of a pipe.
#include "Foundation/Descriptors/Pipe.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Support/Sanitizers.h"
#include "Support/ScratchFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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

// In a child of its own, since a closed standard stream troubles the test
// program as well.
TEST(Pipe, neverTakesThePlaceOfAClosedStandardStream) {
  pid_t child = ::fork();
  if (child == 0) {
    for (int descriptor : {0, 1, 2})
      ::close(descriptor);
    auto pipe = NS::Pipe::pipe();
    bool above = pipe->fileHandleForReading().fileDescriptor() > 2 &&
                 pipe->fileHandleForWriting().fileDescriptor() > 2;
    ::_exit(above && ::fcntl(0, F_GETFD) < 0 && ::fcntl(1, F_GETFD) < 0 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

} // namespace
