// The process entry of the program `keepwell`.
//
//   Program        the table of commands, and the choice among them
//   Arguments      options and operands, byte for byte
//   Commands+...   the commands, a file for each group
//   PathRequests   the same request for each of many paths
//   Session        the agent on demand, text or JSON
//   Alarm          ends a wait: answers, paths, ^C
#include "CommandLine/CommandLine.h"
#include "Foundation/Processes/Signals.h"
#include "Foundation/Terminal/Terminal.h"
#include "Foundation/Trees/FileManager.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>

namespace {

std::string_view valueOf(const char *variable) {
  const char *value = std::getenv(variable);
  return value ? value : "";
}

bool isSet(const char *variable) {
  return !valueOf(variable).empty();
}

// By the first of the variables that says anything.
bool isUTF8() {
  for (const char *variable : {"LC_ALL", "LC_CTYPE", "LANG"})
    if (std::string_view locale = valueOf(variable); !locale.empty())
      return locale.find("UTF-8") != locale.npos || locale.find("utf8") != locale.npos;
  return false;
}

// The streams and the files of this process.
kw::Surroundings surroundingsOfProcess() {
  kw::Surroundings surroundings;
  surroundings.out = &std::cout;
  surroundings.err = &std::cerr;
  surroundings.in = &std::cin;
  surroundings.outIsTerminal = NS::standardOutputIsTerminal();
  surroundings.errIsTerminal = NS::standardErrorIsTerminal();
  surroundings.canDraw = isUTF8() && valueOf("TERM") != "dumb";
  surroundings.canErase = !valueOf("TERM").empty() && valueOf("TERM") != "dumb";
  surroundings.wantsColours = surroundings.canErase && !isSet("NO_COLOR");
  surroundings.connect = kw::Client::connect;
  if (NS::hasControllingTerminal())
    surroundings.ask = NS::answerOnTerminal;
  surroundings.openScreen = NS::Screen::open;
  surroundings.trash = [](const std::string &path) {
    return NS::FileManager::defaultManager().trashItemAtURL(NS::URL::fileURLWithPath(path, false),
                                                            nullptr);
  };
  surroundings.trashFolders = kw::trashFolders;
  surroundings.hasTool = [](const std::string &path) {
    return NS::FileManager::defaultManager().isExecutableFileAtPath(path);
  };
  surroundings.hasFile = [](const std::string &path) {
    return NS::FileManager::defaultManager().fileExistsAtPath(path);
  };
  surroundings.alarm = std::make_shared<kw::Alarm>();
  return surroundings;
}

} // namespace

int main(int argc, char **argv) {
  std::ios::sync_with_stdio(false);
  std::cin.tie(nullptr); // or each path read would send the line of the one before
  kw::Surroundings surroundings = surroundingsOfProcess();
  NS::SignalWatch watch({NS::HangUpSignal, NS::InterruptSignal, NS::TerminateSignal},
                        [alarm = surroundings.alarm](int signal) {
                          if (alarm->stop(signal))
                            return;
                          NS::Screen::giveBack();
                          NS::leaveAtOnce(kw::ExitStopped + signal);
                        });
  try {
    return kw::runCommandLine(argc, argv, surroundings);
  } catch (const std::exception &error) {
    std::cerr << "keepwell: " << error.what() << std::endl;
    return kw::ExitRefused;
  }
}
