// What the agent answers, in types that can be read in one way only. A flag
// whose sense is not plain, or that says less than it seems to, is an
// enumeration that says what it says.
#pragma once

#include "Client/Export.h"
#include "Foundation/ErrorValue.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kw {

// Whether the agent did what it was asked.
enum class Outcome { NotDone, Done };

// Whether the agent ran a tool for it. What came of that is not told.
enum class Attempt { NotMade, Made };

enum class Existence { Missing, Exists };

enum class JobRemoval {
  NotRemoved,
  Removed,
  // The job was the agent's own: it removed itself and ended.
  AgentRemoved,
};

struct KEEPWELL_EXPORT FlagReply {
  Outcome outcome = Outcome::NotDone;
  // Why it was not done. Moves and the Trash alone say so.
  std::optional<Error> error = std::nullopt;

  bool isDone() const { return outcome == Outcome::Done; }
};

struct KEEPWELL_EXPORT RemovalReply {
  Outcome outcome = Outcome::NotDone;
  // Why it was not done; never beside Done.
  std::optional<Error> error = std::nullopt;
  // Beside Done alone: what the first attempt met before the item was unlocked
  // and then removed.
  std::optional<Error> firstAttempt = std::nullopt;

  bool isDone() const { return outcome == Outcome::Done; }
};

struct KEEPWELL_EXPORT AttemptReply {
  Attempt attempt = Attempt::NotMade;
};

struct KEEPWELL_EXPORT ExistenceReply {
  Existence existence = Existence::Missing;
};

struct KEEPWELL_EXPORT JobRemovalReply {
  JobRemoval removal = JobRemoval::NotRemoved;
};

struct KEEPWELL_EXPORT EchoReply {
  std::string text;
};

struct KEEPWELL_EXPORT SizeReply {
  std::uint64_t allocatedBytes = 0; // 0 also for what is not there
  // Why it could not be measured; there is no size then.
  std::optional<Error> error = std::nullopt;
};

struct KEEPWELL_EXPORT RepairReply {
  Attempt attempt = Attempt::NotMade;
  std::int32_t toolProcess = 0; // the process that the tool was; no status
};

struct KEEPWELL_EXPORT LogErasureReply {
  std::optional<std::string> output;      // the tool's; none when blank
  std::optional<std::string> errorOutput; // likewise
  std::optional<std::int64_t> toolStatus; // none when it could not be run
  std::optional<Error> error;             // why it could not be run

  bool isErased() const { return !error && toolStatus == 0; }
};

// The agent has ended.
struct KEEPWELL_EXPORT TerminationReply {};

} // namespace kw
