// Paths from a stream, each ended by a NUL. A thread of its own reads them, so
// that the command answers a path before the next one comes: the program that
// sends the paths may wait for each answer.
#pragma once

#include "CommandLine/Alarm.h"

#include <cstddef>
#include <istream>
#include <memory>
#include <optional>
#include <string>

namespace kw {

// To be used by one thread.
class PathReader {
public:
  struct Item {
    std::string path;
    const char *complaint = nullptr; // null for a path that can be used
  };

  // It reads no further ahead than so many paths.
  static constexpr std::size_t longestQueue = 1024;

  // The alarm rings when there is something to take, or nothing more to come.
  PathReader(std::istream &input, std::shared_ptr<Alarm> alarm);
  // Waits for a read that is under way, unless the reader was left.
  ~PathReader();
  PathReader(const PathReader &) = delete;
  PathReader &operator=(const PathReader &) = delete;

  // Tells whether next() would return at once.
  bool isReady() const;
  // Takes the next path, and waits for it; empty at the end.
  std::optional<Item> next();
  // Ends the use without waiting for a read under way, which may never end. The
  // stream must then last as long as the process.
  void leave();

private:
  struct State;
  static void read(std::istream &input, State &state);

  const std::shared_ptr<State> state_;
};

} // namespace kw
