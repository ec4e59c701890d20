// Keeps only the last report, and puts it into words.
#include "CommandLine/AgentAdvance.h"

#include "CommandLine/Displayable.h"
#include "CommandLine/Quantities.h"

#include <fmt/format.h>
#include <utility>

namespace kw {

void AgentAdvance::set(const RequestProgress &progress) {
  {
    std::lock_guard lock(mutex_);
    progress_ = progress;
  }
  alarm_->ring();
}

bool AgentAdvance::isNew() const {
  std::lock_guard lock(mutex_);
  return progress_.has_value();
}

std::optional<RequestProgress> AgentAdvance::take() {
  std::lock_guard lock(mutex_);
  return std::exchange(progress_, std::nullopt);
}

std::optional<std::uint64_t> AdvanceRate::of(const RequestProgress &progress, Moment now) {
  if (!first_ || progress.items < items_) {
    first_ = now;
    firstBytes_ = progress.bytes;
  }
  items_ = progress.items;
  double seconds = std::chrono::duration<double>(now - *first_).count();
  if (seconds < 1 || progress.bytes < firstBytes_)
    return std::nullopt;
  return static_cast<std::uint64_t>(static_cast<double>(progress.bytes - firstBytes_) / seconds);
}

std::string advanceInWords(const std::string &before, const RequestProgress &progress,
                           std::optional<std::uint64_t> bytesPerSecond) {
  constexpr std::size_t width = 79; // or the line would wrap
  std::string line = fmt::format("{}{}{}, {}", before, before.empty() ? "" : ": ",
                                 itemsInWords(progress.items), sizeInWords(progress.bytes));
  if (bytesPerSecond)
    line += fmt::format(", {}/s", sizeInWords(*bytesPerSecond));
  if (progress.path.empty() || line.size() + 10 > width)
    return line;
  return fmt::format("{}  {}", line, endOf(displayable(progress.path), width - line.size() - 2));
}

} // namespace kw
