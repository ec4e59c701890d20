// The agent's progress with the request that it works on. The client's thread
// hands it to the thread that shows it.
#pragma once

#include "Client/Request.h"
#include "CommandLine/Alarm.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace kw {

// Thread-safe.
class AgentAdvance {
public:
  explicit AgentAdvance(std::shared_ptr<Alarm> alarm) : alarm_(std::move(alarm)) {}

  // Keeps the report in place of an earlier one, and rings the alarm.
  void set(const RequestProgress &progress);
  bool isNew() const;
  // Takes the last report out; empty when there is no new one.
  std::optional<RequestProgress> take();

private:
  const std::shared_ptr<Alarm> alarm_;
  mutable std::mutex mutex_;
  std::optional<RequestProgress> progress_;
};

// The speed of a work, computed from its reports.
class AdvanceRate {
public:
  using Moment = std::chrono::steady_clock::time_point;

  // Returns bytes per second since the first report; empty in the first second. A
  // report with fewer items than the last one begins another work.
  std::optional<std::uint64_t> of(const RequestProgress &progress, Moment now);

private:
  std::uint64_t items_ = 0;
  std::uint64_t firstBytes_ = 0;
  std::optional<Moment> first_;
};

// Makes a line such as "1204 items, 3.5 MB, 1.2 MB/s  /srv/old/deep" with a text
// before it. Shortens a long path so that a line of 80 letters holds all.
std::string advanceInWords(const std::string &before, const RequestProgress &progress,
                           std::optional<std::uint64_t> bytesPerSecond);

} // namespace kw
