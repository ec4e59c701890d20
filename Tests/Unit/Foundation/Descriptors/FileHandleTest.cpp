// Reading, writing, truncating and the readability handler of file handles.
#include "Foundation/Descriptors/FileHandle.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Descriptors/Pipe.h"
#include "Support/ForkedChild.h"
#include "Support/ScratchFolder.h"
#include "Support/WaitingWriter.h"

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <new>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using kwtest::openDescriptorCount;
using kwtest::ScratchFolder;

std::string reasonOf(const std::function<void()> &call) {
  try {
    call();
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::FileHandleOperationException);
    return exception.reason();
  }
  return "nothing raised";
}

bool isCloseOnExec(const NS::FileHandle &handle) {
  return (::fcntl(handle.fileDescriptor(), F_GETFD) & FD_CLOEXEC) != 0;
}

// Collects a handler's data, for a test to wait on.
class Collector {
public:
  void add(std::string chunk) {
    std::lock_guard lock(mutex_);
    chunks_.push_back(std::move(chunk));
    changed_.notify_all();
  }
  // The chunks once there are at least so many of them.
  std::vector<std::string> waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return chunks_.size() >= count; });
    return chunks_;
  }
  std::size_t count() {
    std::lock_guard lock(mutex_);
    return chunks_.size();
  }

private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> chunks_;
};

TEST(FileHandle, updatingNeedsAnExistingFile) {
  ScratchFolder folder;
  EXPECT_EQ(NS::FileHandle::fileHandleForUpdatingAtPath(folder.path("missing")), nullptr);
  EXPECT_EQ(NS::FileHandle::fileHandleForUpdatingAtPath(folder.path()), nullptr) << "a folder";
  std::string file = folder.file("file", "text");
  EXPECT_EQ(NS::FileHandle::fileHandleForUpdatingAtPath(file + std::string(1, '\0') + "x"), nullptr)
      << "a path with a NUL byte must not name the part before it";
  EXPECT_NE(NS::FileHandle::fileHandleForUpdatingAtPath(file), nullptr);
}

TEST(FileHandle, updatingRefusesDevicesAndFIFOs) {
  ScratchFolder folder;
  EXPECT_EQ(NS::FileHandle::fileHandleForUpdatingAtPath("/dev/null"), nullptr);
  ASSERT_EQ(::mkfifo(folder.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(NS::FileHandle::fileHandleForUpdatingAtPath(folder.path("fifo")), nullptr);
}

TEST(FileHandle, updatingDoesNotWakeTheWriterOfAFIFO) {
  ScratchFolder folder;
  kwtest::WaitingWriter writer(folder.path("fifo"));
  EXPECT_EQ(NS::FileHandle::fileHandleForUpdatingAtPath(folder.path("fifo")), nullptr);
  EXPECT_TRUE(writer.isWaiting());
}

TEST(FileHandle, updatingReadsAndWritesInPlace) {
  ScratchFolder folder;
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", "abcdef"));
  ASSERT_NE(handle, nullptr);
  handle->writeData("XY");
  EXPECT_EQ(handle->readDataToEndOfFile(), "cdef");
  EXPECT_EQ(handle->availableData(), "") << "at the end";
  handle->closeFile();
  EXPECT_EQ(folder.content("file"), "XYcdef");
}

TEST(FileHandle, updatingAddsNoFlagsToTheOpenFile) {
  ScratchFolder folder;
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", ""));
  EXPECT_EQ(::fcntl(handle->fileDescriptor(), F_GETFL) & (O_ACCMODE | O_APPEND | O_NONBLOCK),
            O_RDWR);
}

TEST(FileHandle, truncationCutsAndGoesToTheOffset) {
  ScratchFolder folder;
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", "abcdef"));
  handle->truncateFileAtOffset(3);
  handle->writeData("X");
  EXPECT_EQ(folder.content("file"), "abcX");
  handle->truncateFileAtOffset(0);
  EXPECT_EQ(folder.content("file"), "");
  handle->truncateFileAtOffset(2);
  EXPECT_EQ(folder.content("file"), std::string(2, '\0'));
}

TEST(FileHandle, truncationBeyondAnyFileRaises) {
  ScratchFolder folder;
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", "abc"));
  EXPECT_EQ(reasonOf([&] { handle->truncateFileAtOffset(UINT64_MAX); }),
            "truncateFileAtOffset: File too large");
  EXPECT_EQ(folder.content("file"), "abc");
}

TEST(FileHandle, everyCallOnAClosedHandleRaises) {
  ScratchFolder folder;
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", "abc"));
  handle->closeFile();
  handle->closeFile();
  EXPECT_EQ(handle->fileDescriptor(), -1);
  EXPECT_EQ(reasonOf([&] { handle->truncateFileAtOffset(0); }),
            "truncateFileAtOffset: Bad file descriptor");
  EXPECT_EQ(reasonOf([&] { handle->readDataToEndOfFile(); }),
            "readDataToEndOfFile: Bad file descriptor");
  EXPECT_EQ(reasonOf([&] { handle->availableData(); }), "availableData: Bad file descriptor");
  EXPECT_EQ(reasonOf([&] { handle->discardAvailableData(); }),
            "discardAvailableData: Bad file descriptor");
  EXPECT_EQ(reasonOf([&] { handle->writeData("x"); }), "writeData: Bad file descriptor");
  EXPECT_EQ(reasonOf([&] { handle->setReadabilityHandler([](NS::FileHandle &) {}); }),
            "setReadabilityHandler: Bad file descriptor");
  EXPECT_EQ(folder.content("file"), "abc");
}

TEST(FileHandle, closesOnExecHoweverItWasMade) {
  ScratchFolder folder;
  EXPECT_TRUE(isCloseOnExec(*NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", ""))));
  EXPECT_TRUE(isCloseOnExec(*NS::FileHandle::fileHandleWithDescriptor(::open("/", O_RDONLY))));
  auto pipe = NS::Pipe::pipe();
  EXPECT_TRUE(isCloseOnExec(pipe->fileHandleForReading()));
  EXPECT_TRUE(isCloseOnExec(pipe->fileHandleForWriting()));
}

TEST(FileHandle, ownsItsDescriptor) {
  std::size_t before = openDescriptorCount();
  {
    auto handle = NS::FileHandle::fileHandleWithDescriptor(::open("/", O_RDONLY));
    EXPECT_EQ(openDescriptorCount(), before + 1);
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST(FileHandle, mayHaveTheDescriptorZero) {
  EXPECT_EQ(kwtest::inForkedChild([]() -> std::string {
              ::close(STDIN_FILENO);
              auto handle = NS::FileHandle::fileHandleWithDescriptor(::open("/dev/zero", O_RDONLY));
              if (handle->fileDescriptor() != 0)
                return "it has another one";
              handle->discardAvailableData();
              handle->closeFile();
              return ::fcntl(STDIN_FILENO, F_GETFD) < 0 ? "" : "still open";
            }),
            "");
}

TEST(FileHandle, readingAFolderRaises) {
  auto handle = NS::FileHandle::fileHandleWithDescriptor(::open("/", O_RDONLY));
  EXPECT_EQ(reasonOf([&] { handle->readDataToEndOfFile(); }),
            "readDataToEndOfFile: Is a directory");
}

TEST(FileHandle, readsToTheEndInPiecesOfAnySize) {
  auto pipe = NS::Pipe::pipe();
  std::string sent;
  for (int line = 0; line < 60000; ++line)
    sent += std::to_string(line) + '\n';
  std::thread writer([&] {
    pipe->fileHandleForWriting().writeData(sent);
    pipe->fileHandleForWriting().closeFile();
  });
  EXPECT_EQ(pipe->fileHandleForReading().readDataToEndOfFile(), sent);
  writer.join();
}

TEST(FileHandle, availableDataIsTheDataThatIsReady) {
  auto pipe = NS::Pipe::pipe();
  pipe->fileHandleForWriting().writeData("one");
  EXPECT_EQ(pipe->fileHandleForReading().availableData(), "one");
  pipe->fileHandleForWriting().writeData(std::string("\0two", 4));
  EXPECT_EQ(pipe->fileHandleForReading().availableData(), std::string("\0two", 4));
  pipe->fileHandleForWriting().closeFile();
  EXPECT_EQ(pipe->fileHandleForReading().availableData(), "");
}

TEST(FileHandle, availableDataOfAFileIsAllOfIt) {
  ScratchFolder folder;
  std::string text(200'000, 'x');
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", text));
  EXPECT_EQ(handle->availableData(), text);
}

TEST(FileHandle, discardsNoMoreThan64KiBAtOnce) {
  ScratchFolder folder;
  std::string text = std::string(65'536, 'x') + "rest";
  auto handle = NS::FileHandle::fileHandleForUpdatingAtPath(folder.file("file", text));
  handle->discardAvailableData();
  EXPECT_EQ(handle->availableData(), "rest");
}

TEST(FileHandle, discardsTheDataThatIsReady) {
  auto pipe = NS::Pipe::pipe();
  NS::FileHandle &reading = pipe->fileHandleForReading();
  pipe->fileHandleForWriting().writeData(std::string(60'000, 'x'));
  reading.discardAvailableData();
  pipe->fileHandleForWriting().writeData("next");
  EXPECT_EQ(reading.availableData(), "next");
  pipe->fileHandleForWriting().closeFile();
  reading.discardAvailableData();
  EXPECT_EQ(reading.availableData(), "") << "at the end";
}

TEST(FileHandle, waitsOnADescriptorThatWouldNotBlock) {
  auto pipe = NS::Pipe::pipe();
  ::fcntl(pipe->fileHandleForReading().fileDescriptor(), F_SETFL, O_NONBLOCK);
  ::fcntl(pipe->fileHandleForWriting().fileDescriptor(), F_SETFL, O_NONBLOCK);
  std::string sent(300000, 'x');
  std::thread writer([&] {
    pipe->fileHandleForWriting().writeData(sent);
    pipe->fileHandleForWriting().closeFile();
  });
  EXPECT_EQ(pipe->fileHandleForReading().readDataToEndOfFile(), sent);
  writer.join();
}

TEST(FileHandle, writingToAGoneReaderRaisesThoughTheSignalWouldKill) {
  for (auto disposition : {SIG_DFL, SIG_IGN}) {
    auto former = std::signal(SIGPIPE, disposition);
    auto pipe = NS::Pipe::pipe();
    pipe->fileHandleForReading().closeFile();
    EXPECT_EQ(reasonOf([&] { pipe->fileHandleForWriting().writeData("x"); }),
              "writeData: Broken pipe");
    sigset_t set;
    ::sigpending(&set);
    EXPECT_FALSE(sigismember(&set, SIGPIPE)) << "nothing left behind";
    ::pthread_sigmask(SIG_BLOCK, nullptr, &set);
    EXPECT_FALSE(sigismember(&set, SIGPIPE)) << "the mask as before";
    std::signal(SIGPIPE, former);
  }
}

TEST(FileHandle, writingToAGoneReaderLeavesASignalThatWasPendingBefore) {
  sigset_t brokenPipe, former, pending;
  sigemptyset(&brokenPipe);
  sigaddset(&brokenPipe, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &brokenPipe, &former);
  ::raise(SIGPIPE);
  auto pipe = NS::Pipe::pipe();
  pipe->fileHandleForReading().closeFile();
  EXPECT_EQ(reasonOf([&] { pipe->fileHandleForWriting().writeData("x"); }),
            "writeData: Broken pipe");
  ::sigpending(&pending);
  bool isPending = sigismember(&pending, SIGPIPE) == 1;
  int received = 0;
  if (isPending)
    ::sigwait(&brokenPipe, &received);
  ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
  EXPECT_TRUE(isPending);
}

TEST(FileHandle, writingToAFullDiskRaises) {
  auto handle = NS::FileHandle::fileHandleWithDescriptor(::open("/dev/full", O_WRONLY));
  EXPECT_EQ(reasonOf([&] { handle->writeData("x"); }), "writeData: No space left on device");
}

TEST(ReadabilityHandler, getsTheChunksInOrderOnAnotherThread) {
  auto pipe = NS::Pipe::pipe();
  Collector seen;
  std::thread::id handlerThread;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    handlerThread = std::this_thread::get_id();
    seen.add(handle.availableData());
  });
  for (std::size_t number = 1; number <= 100; ++number) {
    pipe->fileHandleForWriting().writeData(std::to_string(number));
    EXPECT_EQ(seen.waitFor(number).back(), std::to_string(number));
  }
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_NE(handlerThread, std::this_thread::get_id());
}

TEST(ReadabilityHandler, isToldOfTheEndAndThenLeftAlone) {
  auto pipe = NS::Pipe::pipe();
  Collector seen;
  pipe->fileHandleForReading().setReadabilityHandler(
      [&](NS::FileHandle &handle) { seen.add(handle.availableData()); });
  pipe->fileHandleForWriting().writeData("last");
  EXPECT_EQ(seen.waitFor(1), std::vector<std::string>{"last"});
  pipe->fileHandleForWriting().closeFile();
  EXPECT_EQ(seen.waitFor(2), (std::vector<std::string>{"last", ""}));
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_EQ(seen.count(), 2U);
}

// The calls of a handler, and the thread that makes them.
struct HandlerCalls {
  std::atomic<int> count = 0;
  std::atomic<int> thread = 0;

  void add() {
    thread = ::gettid();
    ++count;
  }
  // The number of calls once there is a second one, or once there can be none.
  int atTheEnd() const {
    while (count < 2 && (thread == 0 || isAlive(thread)))
      std::this_thread::yield();
    return count;
  }

private:
  static bool isAlive(int thread) {
    return ::access(("/proc/self/task/" + std::to_string(thread)).c_str(), F_OK) == 0;
  }
};

TEST(ReadabilityHandler, isToldOnceOfASocketsEnd) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  auto handle = NS::FileHandle::fileHandleWithDescriptor(ends[0]);
  ::close(ends[1]);
  HandlerCalls calls;
  handle->setReadabilityHandler([&](NS::FileHandle &source) {
    EXPECT_EQ(source.availableData(), "");
    calls.add();
  });
  EXPECT_EQ(calls.atTheEnd(), 1);
  handle->setReadabilityHandler(nullptr);
}

TEST(ReadabilityHandler, removalWaitsForTheCallUnderWay) {
  auto pipe = NS::Pipe::pipe();
  Collector entered;
  std::promise<void> gate;
  bool finished = false;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    entered.add(handle.availableData());
    gate.get_future().wait();
    finished = true; // unguarded: the removal orders it, or the sanitizer objects
  });
  pipe->fileHandleForWriting().writeData("x");
  entered.waitFor(1);
  std::thread opener([&] { gate.set_value(); });
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_TRUE(finished);
  opener.join();
}

TEST(ReadabilityHandler, removalDoesNotWaitForDataThatNeverComes) {
  auto pipe = NS::Pipe::pipe();
  Collector entered;
  std::string second = "not read";
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    entered.add(handle.availableData());
    second = handle.availableData(); // the writing end stays open and silent
  });
  pipe->fileHandleForWriting().writeData("x");
  entered.waitFor(1);
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_EQ(second, "");
}

TEST(ReadabilityHandler, removalDoesNotWaitForDataToDiscard) {
  auto pipe = NS::Pipe::pipe();
  Collector entered;
  bool isThrough = false;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    entered.add(handle.availableData());
    handle.discardAvailableData(); // the writing end stays open and silent
    isThrough = true;
  });
  pipe->fileHandleForWriting().writeData("x");
  entered.waitFor(1);
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_TRUE(isThrough);
}

TEST(ReadabilityHandler, thatHasClosedItsHandleReadsFromNoOtherOfThatNumber) {
  auto pipe = NS::Pipe::pipe(), silent = NS::Pipe::pipe();
  Collector seen;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    int number = handle.fileDescriptor();
    handle.closeFile();
    ::dup2(silent->fileHandleForReading().fileDescriptor(), number);
    seen.add(reasonOf([&] { handle.discardAvailableData(); }));
    ::close(number);
  });
  pipe->fileHandleForWriting().writeData("x");
  EXPECT_EQ(seen.waitFor(1), std::vector<std::string>{"discardAvailableData: Bad file descriptor"});
}

TEST(ReadabilityHandler, mayRemoveItself) {
  auto pipe = NS::Pipe::pipe();
  Collector seen;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    seen.add(handle.availableData());
    handle.setReadabilityHandler(nullptr);
  });
  pipe->fileHandleForWriting().writeData("first");
  seen.waitFor(1);
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  pipe->fileHandleForWriting().writeData("second");
  EXPECT_EQ(pipe->fileHandleForReading().availableData(), "second");
  EXPECT_EQ(seen.count(), 1U);
}

TEST(ReadabilityHandler, mayDropItsHandle) {
  std::size_t before = openDescriptorCount();
  auto pipe = NS::Pipe::pipe();
  NS::FileHandle &writing = pipe->fileHandleForWriting();
  auto writer = NS::FileHandle::fileHandleWithDescriptor(::dup(writing.fileDescriptor()));
  Collector seen;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &handle) {
    std::string data = handle.availableData();
    pipe.reset();
    seen.add(std::move(data));
  });
  writer->writeData("x");
  seen.waitFor(1);
  EXPECT_EQ(reasonOf([&] { writer->writeData("y"); }), "writeData: Broken pipe");
  writer->closeFile();
  while (openDescriptorCount() != before) // until the thread has let go as well
    std::this_thread::yield();
}

TEST(ReadabilityHandler, replacesTheFormerOne) {
  auto pipe = NS::Pipe::pipe();
  Collector first;
  Collector second;
  NS::FileHandle &reading = pipe->fileHandleForReading();
  reading.setReadabilityHandler([&](NS::FileHandle &handle) { first.add(handle.availableData()); });
  pipe->fileHandleForWriting().writeData("one");
  first.waitFor(1);
  reading.setReadabilityHandler(
      [&](NS::FileHandle &handle) { second.add(handle.availableData()); });
  pipe->fileHandleForWriting().writeData("two");
  EXPECT_EQ(second.waitFor(1), std::vector<std::string>{"two"});
  reading.setReadabilityHandler(nullptr);
  EXPECT_EQ(first.count(), 1U);
}

void expectLoggedAndRemoved(const std::function<void()> &fault, const std::string &line) {
  Collector log;
  NS::ScopedLogSink sink([&](const std::string &message) { log.add(message); });
  auto pipe = NS::Pipe::pipe();
  HandlerCalls calls;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &) {
    calls.add();
    fault();
  });
  pipe->fileHandleForWriting().writeData("x");
  EXPECT_EQ(log.waitFor(1), std::vector<std::string>{line});
  EXPECT_EQ(calls.atTheEnd(), 1);
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
}

TEST(ReadabilityHandler, thatThrowsIsLoggedAndRemoved) {
  expectLoggedAndRemoved([] { throw NS::Exception("Odd", "no more"); },
                         "Readability handler removed after exception: no more");
}

TEST(ReadabilityHandler, thatThrowsNoExceptionObjectIsLoggedAndRemoved) {
  expectLoggedAndRemoved([] { throw 1; }, "Readability handler removed after an unknown exception");
}

TEST(ReadabilityHandler, thatThrowsIsRemovedWithoutMemoryForTheLog) {
  NS::ScopedLogSink sink([](const std::string &) { throw std::bad_alloc(); });
  auto pipe = NS::Pipe::pipe();
  std::atomic<int> calls = 0;
  pipe->fileHandleForReading().setReadabilityHandler([&](NS::FileHandle &) {
    ++calls;
    throw std::bad_alloc();
  });
  pipe->fileHandleForWriting().writeData("x");
  while (calls == 0)
    std::this_thread::yield();
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_EQ(calls, 1);
}

TEST(ReadabilityHandler, isReleasedWithItsContentsOnRemoval) {
  auto pipe = NS::Pipe::pipe();
  auto held = std::make_shared<int>(1);
  pipe->fileHandleForReading().setReadabilityHandler([held](NS::FileHandle &) {});
  EXPECT_EQ(held.use_count(), 2);
  pipe->fileHandleForReading().setReadabilityHandler(nullptr);
  EXPECT_EQ(held.use_count(), 1);
}

TEST(ReadabilityHandler, leavesNoDescriptorBehind) {
  std::size_t before = openDescriptorCount();
  for (int round = 0; round < 50; ++round) {
    auto pipe = NS::Pipe::pipe();
    pipe->fileHandleForReading().setReadabilityHandler(
        [](NS::FileHandle &handle) { handle.availableData(); });
    pipe->fileHandleForWriting().writeData("x");
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

} // namespace
