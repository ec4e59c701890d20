// A folder of a test's own, removed with all that is in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kwtest {

class ScratchFolder {
public:
  explicit ScratchFolder(const std::string &parent = defaultParent())
      : path_(parent + "/keepwell-test-XXXXXX") {
    if (!::mkdtemp(path_.data()))
      throw std::runtime_error("no scratch folder at " + path_);
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder &) = delete;
  ScratchFolder &operator=(const ScratchFolder &) = delete;

  static std::string defaultParent() {
    const char *parent = std::getenv("TMPDIR");
    return parent && *parent ? parent : "/var/tmp";
  }

  const std::string &path() const { return path_; }
  std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Makes a file and returns its path.
  std::string file(std::string_view name, std::string_view content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  // Makes an executable shell script of the given lines and returns its path.
  std::string script(std::string_view name, std::string_view lines) const {
    file(name, "#!/bin/sh\n" + std::string(lines) + "\n");
    std::filesystem::permissions(path(name), std::filesystem::perms(0755));
    return path(name);
  }
  std::string content(std::string_view name) const {
    std::ifstream stream(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

private:
  std::string path_;
};

// A parent for scratch folders in which a great many items are made in no
// time, if the host has such a place.
inline std::string quickFolder() {
  std::error_code ignored;
  return std::filesystem::is_directory("/dev/shm", ignored) ? "/dev/shm"
                                                            : ScratchFolder::defaultParent();
}

// How many descriptors this process has open.
inline std::size_t openDescriptorCount() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count - 1; // that of the listing itself
}

} // namespace kwtest
