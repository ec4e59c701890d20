// Items that hold no data.
#pragma once

#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

namespace kwtest {

// The path of a socket has at most 107 bytes.
inline bool makeSocket(const std::string &path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path)
    return false;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int end = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  bool isMade = ::bind(end, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
  ::close(end);
  return isMade;
}

// Of a device that does not exist. Needs root.
inline bool makeBlockDevice(const std::string &path) {
  return ::mknod(path.c_str(), S_IFBLK | 0600, makedev(0, 0)) == 0;
}

} // namespace kwtest
