// The lines of the log about folders that a walk leaves out. Internal to
// Foundation.
#pragma once

#include <string>
#include <utility>

namespace NS {

// Bounds the lines of one walk, since another user can make very many folders of
// which none can be listed.
class LossLog {
public:
  explicit LossLog(std::string root) : root_(std::move(root)) {}

  // The path is that of the folder below the root, empty for the root itself; the
  // fate follows it in the line.
  void tell(const std::string &below, const std::string &fate);

private:
  static constexpr unsigned mostLines = 16;

  const std::string root_;
  unsigned linesLeft_ = mostLines;
};

} // namespace NS
