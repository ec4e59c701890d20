// A second volume for moves that a rename cannot do. Needs root.
#pragma once

#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include <filesystem>
#include <string>

namespace kwtest {

// Runs the body in a forked child, where "other" is a volume in memory. The
// body's answer is empty when all was well.
template <typename Body> std::string besideAnotherVolume(const ScratchFolder &scratch, Body body) {
  return withPrivateMounts([&]() -> std::string {
    std::filesystem::create_directory(scratch.path("other"));
    return mountMemory(scratch.path("other")) ? body() : "no mount";
  });
}

} // namespace kwtest
