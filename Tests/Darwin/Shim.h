// The macOS system calls of the macOS bodies, implemented on Linux after their
// manual pages. Headers has their declarations; the bodies are compiled with
// that folder in front of the host's headers.
//
// A test sets the results of the calls and checks their arguments.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kwtest::darwin {

struct Shim {
  // launchd: its jobs by label, and whether it answers at all.
  std::set<std::string> jobs;
  bool launchdAnswers = true;
  std::optional<int> memoryFor; // so many launch_data objects, else any number
  bool takesEntries = true;     // a dictionary
  int launchData = 0;           // objects that were not freed
  int messages = 0;             // that launchd was sent

  // Names by their names on this host, where names are shorter.
  std::map<std::string, std::string> names;
  // Names whose attributes getattrlistbulk cannot get.
  std::set<std::string> unreadable;
  std::vector<std::size_t> bulkSizes; // of the buffers that it was given
  std::vector<int> bulkErrors;        // of its next calls, the first first

  // By inode number, the file flags that this host does not have.
  std::map<std::uint64_t, std::uint32_t> otherFlags;
  bool clones = true;                  // whether a volume can clone its files
  int cloned = 0;                      // files
  bool exclusiveRenames = true;        // whether a volume has them
  std::set<std::string> withoutStatus; // names whose status gives EIO
  bool recordPositions = true;         // whether records of a listing have one

  std::optional<std::string> mountPoint; // what statfs tells, else "/"
  std::optional<std::string> executable; // what _NSGetExecutablePath tells

  // The limits of descriptors: the present one, and the hard one, which may be
  // RLIM_INFINITY.
  std::uint64_t openFiles = 256;
  std::uint64_t mostOpenFiles = ~std::uint64_t{0};
};

// The one that the calls use.
Shim &shim();
// Held by calls that several threads make, while they use the shim.
std::mutex &shimMutex();

// A fresh shim for the length of a test.
class ShimScope {
public:
  ShimScope() { shim() = Shim(); }
  ~ShimScope() { shim() = Shim(); }
  Shim *operator->() const { return &shim(); }
};

} // namespace kwtest::darwin
