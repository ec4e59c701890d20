// Descriptors as objects, and the thread that calls a readability handler.
#include "Foundation/Descriptors/FileHandle.h"

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Base/POSIX/Retrying.h"
#include "Foundation/Descriptors/Internal/Descriptors.h"
#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace NS {
namespace {

// The capacity of a pipe.
constexpr std::size_t chunkSize = 65536;

[[noreturn]] void raise(const char *operation, int errnum) {
  throw Exception(FileHandleOperationException,
                  std::string(operation) + ": " + std::generic_category().message(errnum));
}

void waitUntilReady(int descriptor, short events) {
  std::array waits{pollfd{descriptor, events, 0}};
  // The wait may end for any reason; the caller's next attempt gives the
  // answer.
  static_cast<void>(::poll(waits.data(), static_cast<nfds_t>(waits.size()), -1));
}

// Blocks SIGPIPE in this thread and takes back one that a write has caused. So
// only the result of the write reports that the reader is gone, with any
// disposition of that signal.
class BrokenPipeGuard {
public:
  BrokenPipeGuard() {
    sigemptyset(&brokenPipe_);
    sigaddset(&brokenPipe_, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe_, &former_);
  }
  ~BrokenPipeGuard() {
    int received = 0;
    if (!wasPending_ && isPending())
      ::sigwait(&brokenPipe_, &received);
    ::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
  }
  BrokenPipeGuard(const BrokenPipeGuard &) = delete;
  BrokenPipeGuard &operator=(const BrokenPipeGuard &) = delete;

private:
  static bool isPending() {
    sigset_t pending;
    ::sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
  }

  const bool wasPending_ = isPending();
  sigset_t brokenPipe_{};
  sigset_t former_;
};

// One readability handler and its thread. The thread keeps the object alive, so
// that the handler itself may destroy the handle.
class Watch : public std::enable_shared_from_this<Watch> {
public:
  explicit Watch(FileHandle::ReadabilityHandler handler)
      : handler_(std::move(handler)), wake_(descriptors::openPipe()) {}
  ~Watch() {
    // A thread that is joinable here is the one that destroys this object.
    if (thread_.joinable())
      thread_.detach();
    ::close(wake_.reading);
    ::close(wake_.writing);
  }
  Watch(const Watch &) = delete;
  Watch &operator=(const Watch &) = delete;

  void start(FileHandle &handle) {
    std::lock_guard lock(joinMutex_);
    handle_ = &handle;
    descriptor_ = handle.fileDescriptor();
    try {
      thread_ = std::thread([self = shared_from_this()] { self->run(); });
    } catch (const std::system_error &failure) {
      throw Exception(InternalInconsistencyException,
                      std::string("setReadabilityHandler: ") + failure.what());
    }
  }

  // Returns when no call is under way; from within a call at once.
  void stop() {
    // An empty pipe always takes one byte.
    if (!stopping_.exchange(true))
      static_cast<void>(retrying([&] { return ::write(wake_.writing, "", 1); }));
    if (current() == this)
      return;
    std::lock_guard lock(joinMutex_);
    if (thread_.joinable())
      thread_.join();
  }

  // The watch whose handler is running on this thread, null when none is.
  static Watch *&current() {
    thread_local Watch *watch = nullptr;
    return watch;
  }

  bool serves(const FileHandle &handle) const { return handle_ == &handle; }
  // Waits for data. False when there is none and the handler is being removed.
  bool waitForData() { return descriptors::waitForReading(descriptor_, wake_.reading).first; }
  void noteEnd() { ended_ = true; }

private:
  void run() {
    current() = this;
    while (!ended_) {
      descriptors::Readiness ready = descriptors::waitForReading(descriptor_, wake_.reading);
      if (ready.second)
        break;
      // A hang-up stays for ever, so one report is enough.
      ended_ = !ready.firstHasData;
      call();
    }
    current() = nullptr;
  }

  // An exception of the handler has no caller to go to.
  void call() {
    try {
      handler_(*handle_);
    } catch (const std::exception &failure) {
      Log("Readability handler removed after exception: %@", failure.what());
      ended_ = true;
    } catch (...) {
      Log("Readability handler removed after an unknown exception");
      ended_ = true;
    }
  }

  FileHandle::ReadabilityHandler handler_;
  descriptors::PipeEnds wake_;
  FileHandle *handle_ = nullptr; // touched only while not stopping
  int descriptor_ = -1;
  std::atomic<bool> stopping_{false};
  bool ended_ = false; // used by the thread alone
  std::mutex joinMutex_;
  std::thread thread_;
};

class DescriptorHandle final : public FileHandle {
public:
  explicit DescriptorHandle(int descriptor) : descriptor_(descriptor) {}
  ~DescriptorHandle() override { close(); }
  DescriptorHandle(const DescriptorHandle &) = delete;
  DescriptorHandle &operator=(const DescriptorHandle &) = delete;

  void truncateFileAtOffset(std::uint64_t offset) override;
  std::string readDataToEndOfFile() override;
  std::string availableData() override;
  void discardAvailableData() override;
  void writeData(std::string_view data) override;
  void closeFile() override { close(); }
  int fileDescriptor() const override { return descriptor_; }
  void setReadabilityHandler(ReadabilityHandler handler) override;

private:
  int openDescriptor(const char *operation) const {
    if (descriptor_ < 0)
      raise(operation, EBADF);
    return descriptor_;
  }
  std::size_t readSome(char *buffer, std::size_t capacity, const char *operation);
  // Waits for the first byte; into a buffer of the size of a chunk.
  std::size_t readChunk(char *buffer, const char *operation);
  void close();
  void stopWatching();

  std::atomic<int> descriptor_;
  std::mutex watchMutex_; // guards the pointer only
  std::shared_ptr<Watch> watch_;
};

void DescriptorHandle::truncateFileAtOffset(std::uint64_t offset) {
  int descriptor = openDescriptor("truncateFileAtOffset");
  if (!std::in_range<off_t>(offset))
    raise("truncateFileAtOffset", EFBIG);
  auto length = static_cast<off_t>(offset);
  if (retrying([&] { return ::ftruncate(descriptor, length); }) != 0 ||
      ::lseek(descriptor, length, SEEK_SET) < 0)
    raise("truncateFileAtOffset", errno);
}

std::size_t DescriptorHandle::readSome(char *buffer, std::size_t capacity, const char *operation) {
  for (;;) {
    ssize_t count = ::read(openDescriptor(operation), buffer, capacity);
    if (count >= 0)
      return static_cast<std::size_t>(count);
    if (errno == EAGAIN)
      waitUntilReady(descriptor_, POLLIN);
    else if (errno != EINTR)
      raise(operation, errno);
  }
}

std::string DescriptorHandle::readDataToEndOfFile() {
  std::array<char, chunkSize> chunk;
  std::string data;
  while (std::size_t count = readSome(chunk.data(), chunk.size(), "readDataToEndOfFile"))
    data.append(chunk.data(), count);
  return data;
}

std::string DescriptorHandle::availableData() {
  struct stat status;
  if (::fstat(openDescriptor("availableData"), &status) == 0 && S_ISREG(status.st_mode))
    return readDataToEndOfFile();
  std::string data(chunkSize, '\0');
  data.resize(readChunk(data.data(), "availableData"));
  return data;
}

void DescriptorHandle::discardAvailableData() {
  std::array<char, chunkSize> data;
  readChunk(data.data(), "discardAvailableData");
}

std::size_t DescriptorHandle::readChunk(char *buffer, const char *operation) {
  openDescriptor(operation);
  Watch *watch = Watch::current();
  bool watched = watch && watch->serves(*this);
  // Within the handler a wait must not outlast the handler's removal, even if
  // another process keeps the other end open for ever.
  if (watched && !watch->waitForData())
    return 0;
  std::size_t count = readSome(buffer, chunkSize, operation);
  if (watched && count == 0)
    watch->noteEnd();
  return count;
}

void DescriptorHandle::writeData(std::string_view data) {
  int descriptor = openDescriptor("writeData");
  BrokenPipeGuard guard;
  while (!data.empty()) {
    ssize_t count = ::write(descriptor, data.data(), data.size());
    if (count != -1)
      data.remove_prefix(static_cast<std::size_t>(count));
    else if (errno == EAGAIN)
      waitUntilReady(descriptor, POLLOUT);
    else if (errno != EINTR)
      raise("writeData", errno);
  }
}

void DescriptorHandle::setReadabilityHandler(ReadabilityHandler handler) {
  stopWatching();
  if (!handler)
    return;
  openDescriptor("setReadabilityHandler");
  auto watch = std::make_shared<Watch>(std::move(handler));
  {
    std::lock_guard lock(watchMutex_);
    watch_ = watch;
  }
  watch->start(*this);
}

void DescriptorHandle::stopWatching() {
  std::shared_ptr<Watch> watch;
  {
    std::lock_guard lock(watchMutex_);
    watch = watch_;
  }
  if (!watch)
    return;
  watch->stop();
  if (Watch::current() == watch.get())
    return; // a later removal from another thread must still be able to wait for it
  std::lock_guard lock(watchMutex_);
  if (watch_ == watch)
    watch_.reset();
}

void DescriptorHandle::close() {
  stopWatching();
  int descriptor = descriptor_.exchange(-1);
  if (descriptor >= 0)
    ::close(descriptor); // not repeated on EINTR, which closes it too
}

// Makes a handle that owns the descriptor; closes it when there is no memory for
// the handle.
std::shared_ptr<FileHandle> handleOwning(int number) {
  Descriptor descriptor(number);
  auto handle = std::make_shared<DescriptorHandle>(number);
  static_cast<void>(descriptor.release());
  return handle;
}

} // namespace

std::shared_ptr<FileHandle> FileHandle::fileHandleForUpdatingAtPath(const std::string &path) {
  if (path.find('\0') != std::string::npos)
    return nullptr;
  int descriptor = descriptors::openFileOrFolder(path.c_str(), O_RDWR);
  if (descriptor < 0)
    return nullptr;
  int flags = ::fcntl(descriptor, F_GETFL);
  ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
  return handleOwning(descriptor);
}

std::shared_ptr<FileHandle> FileHandle::fileHandleWithDescriptor(int descriptor) {
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return handleOwning(descriptor);
}

} // namespace NS
