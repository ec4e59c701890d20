// Watches a folder itself, apart from the items in it.
#pragma once

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <sys/inotify.h>
#include <unistd.h>

namespace kwtest {

class FolderWatch {
public:
  // The events are of inotify, such as IN_OPEN. The system joins equal ones that
  // follow one another, so this watches all that come between.
  FolderWatch(const std::string &folder, std::uint32_t events)
      : watch_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), events_(events) {
    if (::inotify_add_watch(watch_.get(), folder.c_str(), IN_OPEN | IN_ACCESS | IN_CLOSE) < 0)
      ADD_FAILURE() << "no watch of " << folder;
  }

  // The number of events since the last question.
  int count() const {
    alignas(inotify_event) char events[16 * 1024];
    int seen = 0;
    for (ssize_t size = 0; (size = ::read(watch_.get(), events, sizeof events)) > 0;)
      for (char *at = events; at < events + size;) {
        const auto *event = reinterpret_cast<const inotify_event *>(at);
        bool isOfFolder = event->len == 0; // the others are of items in it
        seen += isOfFolder && (event->mask & events_) != 0;
        at += sizeof *event + event->len;
      }
    return seen;
  }

private:
  const NS::Descriptor watch_;
  const std::uint32_t events_;
};

} // namespace kwtest
