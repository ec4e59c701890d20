// The calls of the macOS system library that the macOS bodies make, over this
// host's own: what their manual pages say, on Linux. Headers has their
// declarations; the bodies are compiled with it in front of the host's.
//
// A test says what the calls are to find and sees what they were asked.
#pragma once

#include <cstdint>
#include <map>
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

  // Names by what they are on this host, where names are shorter.
  std::map<std::string, std::string> names;
  // Names whose attributes getattrlistbulk cannot get.
  std::set<std::string> unreadable;
  std::vector<std::size_t> bulkSizes; // of the buffers that it was given
  std::vector<int> bulkErrors;        // of its next calls, the first first

  std::optional<std::string> mountPoint; // what statfs tells, else "/"
  std::optional<std::string> executable; // what _NSGetExecutablePath tells
};

// The one that the calls use.
Shim &shim();

// A fresh shim for the length of a test.
class ShimScope {
public:
  ShimScope() { shim() = Shim(); }
  ~ShimScope() { shim() = Shim(); }
  Shim *operator->() const { return &shim(); }
};

} // namespace kwtest::darwin
