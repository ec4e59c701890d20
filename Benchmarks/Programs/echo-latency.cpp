// How long one echo takes, from the same client over the same connection: by
// the agent and by the empty service in turn.
//
// echo-latency BUS-ADDRESS EMPTY-NAME ROUNDS CALLS
//
// Prints, for each round, the medians of both in nanoseconds: ours, theirs.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <sdbus-c++/sdbus-c++.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Target {
  std::string name;
  std::string path;
  std::string interface;
};

std::int64_t medianOf(sdbus::IProxy &proxy, const std::string &interface, std::size_t calls) {
  std::vector<std::int64_t> durations(calls);
  for (std::int64_t &duration : durations) {
    auto start = std::chrono::steady_clock::now();
    sdbus::MethodCall call = proxy.createMethodCall(interface, "Echo");
    call << std::string("Is anybody there?");
    sdbus::MethodReply reply = proxy.callMethod(call);
    std::string text;
    reply >> text;
    duration = (std::chrono::steady_clock::now() - start).count();
    if (text != "Is anybody there?")
      throw std::runtime_error("the echo was another text: " + text);
  }
  auto middle = durations.begin() + static_cast<std::ptrdiff_t>(calls / 2);
  std::nth_element(durations.begin(), middle, durations.end());
  return *middle;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 5) {
    std::cerr << "usage: echo-latency BUS-ADDRESS EMPTY-NAME ROUNDS CALLS\n";
    return 2;
  }
  const Target ours{"org.keepwell.pro.agent", "/org/keepwell/pro/agent",
                    "org.keepwell.KWPrivilegedOperation"};
  const Target theirs{argv[2], "/empty", "org.keepwell.Empty"};
  std::size_t rounds = std::stoull(argv[3]);
  std::size_t calls = std::stoull(argv[4]);
  try {
    auto connection = sdbus::createSessionBusConnectionWithAddress(argv[1]);
    auto agent = sdbus::createProxy(*connection, ours.name, ours.path);
    auto empty = sdbus::createProxy(*connection, theirs.name, theirs.path);
    medianOf(*agent, ours.interface, calls);
    medianOf(*empty, theirs.interface, calls);
    for (std::size_t round = 0; round < rounds; ++round) {
      std::int64_t first = medianOf(*agent, ours.interface, calls);
      std::int64_t second = medianOf(*empty, theirs.interface, calls);
      std::cout << first << ' ' << second << '\n';
    }
  } catch (const std::exception &error) {
    std::cerr << "echo-latency: " << error.what() << '\n';
    return 1;
  }
}
