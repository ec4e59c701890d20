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
#include <stdexcept>
#include <string>
#include <systemd/sd-bus.h>
#include <vector>

namespace {

struct Target {
  std::string name;
  std::string path;
  std::string interface;
};

void check(int result) {
  if (result < 0)
    throw std::runtime_error("the bus failed");
}

std::string echo(sd_bus *bus, const Target &target, const std::string &text) {
  sd_bus_message *reply = nullptr;
  check(sd_bus_call_method(bus, target.name.c_str(), target.path.c_str(), target.interface.c_str(),
                           "Echo", nullptr, &reply, "s", text.c_str()));
  const char *answer = nullptr;
  int result = sd_bus_message_read(reply, "s", &answer);
  std::string copy = result < 0 ? "" : answer;
  sd_bus_message_unref(reply);
  return copy;
}

std::int64_t medianOf(sd_bus *bus, const Target &target, std::size_t calls) {
  std::string question = "Is anybody there?";
  std::vector<std::int64_t> durations(calls);
  for (std::int64_t &duration : durations) {
    auto start = std::chrono::steady_clock::now();
    std::string text = echo(bus, target, question);
    duration = (std::chrono::steady_clock::now() - start).count();
    if (text != question)
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
  Target ours{"org.keepwell.pro.agent", "/org/keepwell/pro/agent",
              "org.keepwell.KWPrivilegedOperation"};
  Target theirs{argv[2], "/empty", "org.keepwell.Empty"};
  std::size_t rounds = std::stoull(argv[3]);
  std::size_t calls = std::stoull(argv[4]);
  try {
    sd_bus *bus = nullptr;
    check(sd_bus_new(&bus));
    check(sd_bus_set_address(bus, argv[1]));
    check(sd_bus_set_bus_client(bus, 1));
    check(sd_bus_start(bus));
    medianOf(bus, ours, calls);
    medianOf(bus, theirs, calls);
    for (std::size_t round = 0; round < rounds; ++round) {
      std::int64_t first = medianOf(bus, ours, calls);
      std::int64_t second = medianOf(bus, theirs, calls);
      std::cout << first << ' ' << second << '\n';
    }
    sd_bus_unref(bus);
  } catch (const std::exception &error) {
    std::cerr << "echo-latency: " << error.what() << '\n';
    return 1;
  }
}
