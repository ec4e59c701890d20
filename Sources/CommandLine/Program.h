// The whole program: its commands with their arguments, and the reading of the
// command line.
#pragma once

#include "CommandLine/Arguments.h"
#include "CommandLine/Command.h"

#include <list>
#include <string>
#include <vector>

namespace kw {

// A command with its arguments declared. The program itself is one, too.
struct DeclaredCommand {
  const Command *command = nullptr;
  const char *group = "";
  std::string words; // that call it, such as "launchd enable"
  Arguments arguments{};
  CommandRun run{};
  std::list<DeclaredCommand> below{}; // its verbs; a list may hold a type not yet complete
};

class Program {
public:
  // read() stores the options of the program there; it must outlive that.
  explicit Program(GlobalOptions &options);
  Program(const Program &) = delete;
  Program &operator=(const Program &) = delete;

  enum class Wish { Run, Help, Version, Description };
  struct Reading {
    Wish wish = Wish::Run;
    const DeclaredCommand *command = nullptr; // never null
  };
  // Reads the command line, once. Throws UsageError.
  Reading read(const std::vector<std::string> &words);

  const DeclaredCommand &top() const { return top_; }

private:
  void declareOptions(GlobalOptions &options);
  void readOn(const std::vector<std::string> &words, DeclaredCommand *&command);
  Wish wish() const;

  Command description_;
  DeclaredCommand top_;
  std::string timeout_;
  bool help_ = false;
  bool version_ = false;
  bool describe_ = false;
};

// The tool or file that the command needs and that this system lacks; empty
// when it has all.
std::string missingFor(const Command &command, const Surroundings &surroundings);

// The commands that can be run, nouns taken apart into their verbs.
std::vector<const DeclaredCommand *> runnableBelow(const DeclaredCommand &command);

} // namespace kw
