// How the handlers answer a request: with its reply block, unless that is null.
#pragma once

#include "Agent/KWPrivilegedOperation.h"

namespace kw {

template <typename Reply, typename... Values>
void answer(const Reply &reply, const Values &...values) {
  if (reply)
    reply(values...);
}

// Answers with a nil error.
inline void answer(const KWFlagReply &reply, bool success) {
  answer(reply, success, std::nullopt);
}

} // namespace kw
