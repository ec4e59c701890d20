// Watches a folder for those that open it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <sys/inotify.h>
#include <unistd.h>

namespace kwtest {

// Counts how often a folder itself is opened.
class OpenCounter {
public:
  explicit OpenCounter(const std::string &folder)
      : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (::inotify_add_watch(watch_, folder.c_str(), IN_OPEN) < 0)
      ADD_FAILURE() << "no watch of " << folder;
  }
  ~OpenCounter() { ::close(watch_); }
  OpenCounter(const OpenCounter &) = delete;
  OpenCounter &operator=(const OpenCounter &) = delete;

  int count() const {
    alignas(inotify_event) char events[16 * 1024];
    int opens = 0;
    for (ssize_t size = 0; (size = ::read(watch_, events, sizeof events)) > 0;)
      for (char *at = events; at < events + size;) {
        const auto *event = reinterpret_cast<const inotify_event *>(at);
        opens += event->len == 0; // the others are of items in it
        at += sizeof *event + event->len;
      }
    return opens;
  }

private:
  const int watch_;
};

} // namespace kwtest
