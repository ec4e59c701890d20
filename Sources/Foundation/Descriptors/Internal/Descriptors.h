// Descriptors and child processes for the bodies of Foundation, including the
// calls in which the hosts differ. Internal to Foundation.
//
// Thread-safe.
#pragma once

#include <string>
#include <vector>

namespace NS::descriptors {

struct PipeEnds {
  int reading;
  int writing;
};

// Makes a pipe. Both ends are close-on-exec (from creation, if the host can do
// that) and never take the place of a closed standard stream. Throws
// ResourceShortage when no descriptor is left.
PipeEnds openPipe();
// The same with both ends at the null device. Raises
// InternalInconsistencyException on a host without that device.
PipeEnds openNullDevice();

// Opens the file or folder at the path and follows links. Refuses any other item
// without opening it: a device may act when it is opened, and a process that waits
// at the other end of a FIFO would go on. The flags are the access mode; adds
// close-on-exec, and never waits. -1 with errno set, EOPNOTSUPP for another item.
int openFileOrFolder(const char *path, int flags);

// The descriptors of a wait that can be read, or have lost their other end.
struct Readiness {
  bool first = false;
  bool firstHasData = false; // false when the other end only hung up
  bool second = false;
};
// Blocks until one of the two is ready or the time-out is over: milliseconds,
// -1 for no limit. Passes over a descriptor of -1. When the system cannot wait,
// both count as ready.
Readiness waitForReading(int first, int second, int timeout = -1);

// A program to start: absolute path, whole argument vector, and the descriptors
// that become its standard streams (-1 for inherited).
struct Program {
  std::string path;
  std::vector<std::string> arguments; // the first is the program's own name
  int standardStreams[3] = {-1, -1, -1};
};

// Starts it with this process's environment (read under its lock), default
// signal dispositions, no blocked signal and no descriptor besides the standard
// streams. Returns 0 and the process identifier, or an errno value.
int spawn(const Program &program, int &processIdentifier);

// Returns a close-on-exec descriptor that polls as readable once that child of
// this process has ended; -1 when the host cannot make one. The caller owns the
// descriptor, and still has to reap the child.
int openExitDescriptor(int processIdentifier);

} // namespace NS::descriptors
