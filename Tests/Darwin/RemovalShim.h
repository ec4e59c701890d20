// removefile as far as the secure removal calls it. It removes nothing: a test
// says which items it would meet.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kwtest::darwin {

struct Removals {
  struct Call {
    std::string path;
    std::uint32_t flags;
    friend bool operator==(const Call &, const Call &) = default;
  };
  std::vector<Call> calls;
  std::vector<std::string> items;                             // that a call meets, in their order
  std::vector<std::string> folders;                           // around these, from the outside
  std::vector<std::string> removed;                           // of these
  std::function<void(const std::string &item)> beforeRemoval; // of each
  int error = 0;       // of a call, when it has met all items
  int errorOfStop = 0; // of a call that was stopped
  bool hasMemory = true;
  int refusedKey = 0; // that a state does not take
  int states = 0;     // that were not freed
};

Removals &removals();

class RemovalScope {
public:
  RemovalScope() { removals() = Removals(); }
  ~RemovalScope() { removals() = Removals(); }
  Removals *operator->() const { return &removals(); }
};

} // namespace kwtest::darwin
