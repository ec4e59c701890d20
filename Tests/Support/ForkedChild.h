// Runs a part of a test in a process of its own, which may drop root, enter a
// mount namespace or lower its limits without disturbing the others.
#pragma once

#include <gtest/gtest.h>

#include <grp.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kwtest {

// Runs the body in a child. The body returns an empty text on success, else the
// failure. Returns that text, or a sentence on any other end of the process.
template <typename Body> std::string inForkedChild(Body body) {
  int ends[2];
  if (::pipe(ends) != 0)
    return "no pipe";
  pid_t child = ::fork();
  if (child < 0)
    return "no child process";
  if (child == 0) {
    ::close(ends[0]);
    std::string text = body();
    ssize_t written = ::write(ends[1], text.data(), text.size());
    ::_exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  ::close(ends[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t count = 0; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(count));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFSIGNALED(status))
    return "ended by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0)
    return "ended with status " + std::to_string(WEXITSTATUS(status));
  return text;
}

inline bool isRoot() {
  return ::geteuid() == 0;
}

// Drops root's rights for those of a user without any. Only for a forked child
// of root.
inline bool dropRoot() {
  constexpr unsigned nobody = 65534;
  return ::setgroups(0, nullptr) == 0 && ::setgid(nobody) == 0 && ::setuid(nobody) == 0;
}

// The same as inForkedChild without root's rights.
template <typename Body> std::string inChildWithoutRights(Body body) {
  return inForkedChild([&]() -> std::string {
    if (isRoot() && !dropRoot())
      return "still root";
    return body();
  });
}

// From now on mounts of this process are its own. Only for a forked child.
inline bool enterMountNamespace() {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

} // namespace kwtest
