// A message bus of a test's own.
#pragma once

#include "Support/ScratchFolder.h"

#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kwtest {

class PrivateBus {
public:
  // With further elements of its configuration.
  explicit PrivateBus(const std::string &elements = "") {
    scratch_.file("bus.conf", R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=)" + scratch_.path("bus") +
                                  R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
)" + elements + "</busconfig>\n");
    start();
  }
  ~PrivateBus() { kill(); }
  PrivateBus(const PrivateBus &) = delete;
  PrivateBus &operator=(const PrivateBus &) = delete;

  bool isRunning() const { return running_; }
  std::string address() const { return "unix:path=" + scratch_.path("bus"); }

  // Nothing is answered any more, until it thaws.
  void freeze() { ::kill(process_, SIGSTOP); }
  void thaw() { ::kill(process_, SIGCONT); }
  void kill() {
    if (process_ <= 0)
      return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
    running_ = false;
  }
  // At the same address; to be called after kill.
  void restart() {
    ::unlink(scratch_.path("bus").c_str());
    start();
  }

private:
  // Returns when the daemon has said its address, and so listens.
  void start() {
    int ends[2];
    if (::pipe(ends) != 0)
      return;
    std::string option = "--config-file=" + scratch_.path("bus.conf");
    std::string address = "--print-address=" + std::to_string(ends[1]);
    process_ = ::fork();
    if (process_ == 0) {
      // A test that dies would leave a bus that holds the test's output open.
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::close(ends[0]);
      int nowhere = ::open("/dev/null", O_WRONLY);
      ::dup2(nowhere, STDERR_FILENO);
      ::execlp("dbus-daemon", "dbus-daemon", option.c_str(), "--nofork", "--nopidfile",
               "--nosyslog", address.c_str(), static_cast<char *>(nullptr));
      ::_exit(127);
    }
    ::close(ends[1]);
    char byte;
    running_ = ::read(ends[0], &byte, 1) == 1;
    ::close(ends[0]);
  }

  ScratchFolder scratch_;
  pid_t process_ = -1;
  bool running_ = false;
};

} // namespace kwtest
