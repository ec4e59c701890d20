// How long running a tool takes, through the task runner and by the bare calls
// of the system, in turn.
//
// tool-run TOOL ROUNDS
//
// Prints, for each round, both durations in nanoseconds: ours, theirs.
#include "Tools/KWTaskRunner.h"

#include <cerrno>
#include <chrono>
#include <functional>
#include <iostream>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>

extern char **environ;

namespace {

void runByTaskRunner(const std::string &tool) {
  long long result = -1;
  kw::KWTaskRunner::shared().launchTask(
      tool, {},
      [&](const auto &, long long status, const auto &, const auto &) { result = status; });
  if (result != 0)
    throw std::runtime_error("the task runner's tool failed");
}

void runBySystemCalls(const std::string &tool) {
  std::string name = tool;
  char *arguments[] = {name.data(), nullptr};
  pid_t child = 0;
  int status = 0;
  if (posix_spawn(&child, tool.c_str(), nullptr, nullptr, arguments, environ) != 0)
    throw std::runtime_error("the tool could not be started");
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (status != 0)
    throw std::runtime_error("the tool failed");
}

long long duration(const std::function<void()> &work) {
  auto start = std::chrono::steady_clock::now();
  work();
  return (std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::cerr << "usage: tool-run TOOL ROUNDS\n";
    return 2;
  }
  try {
    std::string tool = argv[1];
    runByTaskRunner(tool);
    runBySystemCalls(tool);
    for (int left = std::stoi(argv[2]); left > 0; --left) {
      long long ours = duration([&] { runByTaskRunner(tool); });
      long long theirs = duration([&] { runBySystemCalls(tool); });
      std::cout << ours << ' ' << theirs << '\n';
    }
  } catch (const std::exception &error) {
    std::cerr << "tool-run: " << error.what() << '\n';
    return 1;
  }
}
