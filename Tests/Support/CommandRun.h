// Runs the command within the test and keeps its output.
#pragma once

#include "CommandLine/CommandLine.h"

#include <sstream>
#include <string>
#include <vector>

namespace kwtest {

class CommandRun {
public:
  std::ostringstream out;
  std::ostringstream err;
  std::string input; // on standard input

  // Runs the command with these arguments and returns its exit status. The
  // three streams are this object's; all tools exist unless the surroundings
  // say otherwise.
  int operator()(const std::vector<std::string> &words, kw::Surroundings surroundings) {
    std::vector<const char *> arguments{"keepwell"};
    for (const std::string &word : words)
      arguments.push_back(word.c_str());
    out.str("");
    err.str("");
    std::istringstream in(input);
    surroundings.out = &out;
    surroundings.err = &err;
    surroundings.in = &in;
    if (!surroundings.hasTool)
      surroundings.hasTool = [](const std::string &) { return true; };
    if (!surroundings.hasFile)
      surroundings.hasFile = [](const std::string &) { return true; };
    return kw::runCommandLine(static_cast<int>(arguments.size()), arguments.data(), surroundings);
  }
};

} // namespace kwtest
