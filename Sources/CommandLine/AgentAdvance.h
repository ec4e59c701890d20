// How far the agent has come with the request that it works on, handed from the
// client's thread to the one that shows it.
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

  // The alarm rings.
  void set(const RequestProgress &progress);
  bool isNew() const;
  // The last report; empty when it was taken already.
  std::optional<RequestProgress> take();

private:
  const std::shared_ptr<Alarm> alarm_;
  mutable std::mutex mutex_;
  std::optional<RequestProgress> progress_;
};

// How fast a work goes on that reports tell of.
class AdvanceRate {
public:
  using Moment = std::chrono::steady_clock::time_point;

  // Bytes a second since the work was first heard of; nothing in the first
  // second. A report of fewer items than before begins another work.
  std::optional<std::uint64_t> of(const RequestProgress &progress, Moment now);

private:
  std::uint64_t items_ = 0;
  std::uint64_t firstBytes_ = 0;
  std::optional<Moment> first_;
};

// Such as "1204 items, 3.5 MB, 1.2 MB/s  /srv/old/deep", no wider than an
// ordinary terminal; of a long path the end.
std::string advanceInWords(const std::string &before, const RequestProgress &progress,
                           std::optional<std::uint64_t> bytesPerSecond);

} // namespace kw
