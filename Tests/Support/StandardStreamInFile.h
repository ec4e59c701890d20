// A standard stream of this process that is a file for a while.
#pragma once

#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace kwtest {

// Empties the file, and makes it if there is none. Tools that start meanwhile
// inherit the stream.
class StandardStreamInFile {
public:
  StandardStreamInFile(int stream, const std::string &path)
      : stream_(stream), former_(::dup(stream)) {
    int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ::dup2(file, stream);
    ::close(file);
  }
  ~StandardStreamInFile() {
    ::dup2(former_, stream_);
    ::close(former_);
  }
  StandardStreamInFile(const StandardStreamInFile &) = delete;
  StandardStreamInFile &operator=(const StandardStreamInFile &) = delete;

private:
  const int stream_;
  const int former_;
};

} // namespace kwtest
