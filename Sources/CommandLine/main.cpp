// The process entry of the program `keepwell`.
//
//   CommandLine   the arguments and the table of commands
//   Commands+...  the commands, a file for each group
//   Session       the agent on demand, text or JSON
//   JSON          one object on one line
#include "CommandLine/CommandLine.h"
#include "Foundation/Terminal.h"

#include <exception>
#include <iostream>

int main(int argc, char **argv) {
  std::ios::sync_with_stdio(false);
  std::cin.tie(nullptr); // or each path read would send the line of the one before
  kw::Surroundings surroundings;
  surroundings.out = &std::cout;
  surroundings.err = &std::cerr;
  surroundings.in = &std::cin;
  surroundings.outIsTerminal = NS::standardOutputIsTerminal();
  surroundings.connect = [](const std::string &bus) { return kw::Client::connect(bus); };
  try {
    return kw::runCommandLine(argc, argv, surroundings);
  } catch (const std::exception &error) {
    std::cerr << "keepwell: " << error.what() << std::endl;
    return kw::ExitRefused;
  }
}
