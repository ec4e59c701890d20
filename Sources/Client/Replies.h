// The agent's answers, as types that can be read in one way only. A flag whose
// sense is unclear, or that says less than it seems to, is an enumeration.
#pragma once

#include "Client/Export.h"
#include "Foundation/Base/ErrorValue.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kw {

// Tells whether the agent did the requested work.
enum class Outcome { NotDone, Done };

// Tells whether the agent tried to run a tool for the request. Whether the tool
// ran, and its result, are not known.
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
  // The reason of a failure. Only moves and the Trash give one.
  std::optional<Error> error = std::nullopt;

  bool isDone() const { return outcome == Outcome::Done; }
};

struct KEEPWELL_EXPORT RemovalReply {
  Outcome outcome = Outcome::NotDone;
  // The reason of a failure; never with Done.
  std::optional<Error> error = std::nullopt;
  // Only with Done: the failure of the first attempt, after which the agent
  // unlocked and removed the item.
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
  std::uint64_t allocatedBytes = 0; // also 0 for a missing item
  // The reason why the agent could not measure the item; the size is 0 then.
  std::optional<Error> error = std::nullopt;
};

struct KEEPWELL_EXPORT RepairReply {
  Attempt attempt = Attempt::NotMade;
  std::int32_t toolProcess = 0; // the tool's process identifier, not a status
};

struct KEEPWELL_EXPORT LogErasureReply {
  std::optional<std::string> output;      // the tool's; empty optional when blank
  std::optional<std::string> errorOutput; // the same
  std::optional<std::int64_t> toolStatus; // empty when the tool could not be run
  std::optional<Error> error;             // the reason why the tool could not be run

  bool isErased() const { return !error && toolStatus == 0; }
};

// The agent has ended.
struct KEEPWELL_EXPORT TerminationReply {};

} // namespace kw
