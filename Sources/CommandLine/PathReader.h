// Paths from a stream, each ended by a NUL, read by a thread of its own: a
// program that sends one path, waits for its answer and sends the next must not
// be made to wait for each other's sake.
#pragma once

#include "CommandLine/Alarm.h"

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

  // The alarm rings when there is something to take, or nothing more to come.
  PathReader(std::istream &input, std::shared_ptr<Alarm> alarm);
  // Waits for a read that is under way, unless the reader was left.
  ~PathReader();
  PathReader(const PathReader &) = delete;
  PathReader &operator=(const PathReader &) = delete;

  // Whether next() would not wait.
  bool isReady() const;
  // Nothing at the end.
  std::optional<Item> next();
  // No more will be taken. The stream must last as long as the process.
  void leave();

private:
  struct State;
  static void read(std::istream &input, State &state);

  const std::shared_ptr<State> state_;
};

} // namespace kw
