// Makes trees of folders, files, holes, links and FIFOs from a seed, and very
// deep chains of folders.
#pragma once

#include <cstdint>
#include <fcntl.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kwtest {

class RandomTree {
public:
  // Makes about the given number of items below the folder.
  RandomTree(const std::string &root, std::uint32_t seed, int items) : random_(seed) {
    folders_.push_back(root);
    for (int index = 0; index < items; ++index)
      makeItem(folders_[pick(folders_.size())] + "/" + name(index));
  }

private:
  // The tree simply lacks items that the volume refuses.
  static void attempt(int /*result*/) {}

  std::size_t pick(std::size_t count) { return random_() % count; }

  std::string name(int index) {
    static const std::vector<std::string> stems{
        "a",        "file",      "Grüße",   "with blank",
        "\xff\xfe", "new\nline", ".hidden", std::string(200, 'n')};
    return stems[pick(stems.size())] + std::to_string(index);
  }

  void makeItem(const std::string &path) {
    switch (pick(10)) {
    case 0:
    case 1:
    case 2:
      if (::mkdir(path.c_str(), 0755) == 0)
        folders_.push_back(path);
      break;
    case 3:
      attempt(::symlink(pick(2) ? "/etc/passwd" : "nothing", path.c_str()));
      break;
    case 4:
      attempt(::mkfifo(path.c_str(), 0644));
      break;
    case 5:
      if (!files_.empty())
        attempt(::link(files_[pick(files_.size())].c_str(), path.c_str()));
      break;
    default:
      makeFile(path);
    }
  }

  void makeFile(const std::string &path) {
    int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (descriptor < 0)
      return;
    std::string content(pick(20000), 'x');
    auto offset = static_cast<off_t>(pick(4) == 0 ? pick(1u << 30) : 0);
    if (::pwrite(descriptor, content.data(), content.size(), offset) >= 0)
      files_.push_back(path);
    ::close(descriptor);
  }

  std::mt19937 random_;
  std::vector<std::string> folders_;
  std::vector<std::string> files_;
};

// A chain of folders, each in the one before, deeper than any path can name.
class DeepChain {
public:
  DeepChain(std::string folder, int depth, std::string name = "d")
      : folder_(std::move(folder)), name_(std::move(name)) {
    int descriptor = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < depth && descriptor >= 0; ++level) {
      int next = ::mkdirat(descriptor, name_.c_str(), 0755) == 0
                     ? ::openat(descriptor, name_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                     : -1;
      ::close(descriptor);
      descriptor = next;
    }
    if (descriptor < 0)
      throw std::runtime_error("no deep chain in " + folder_);
    ::close(descriptor);
  }
  // Takes the chain apart from the top, since no path reaches its end.
  ~DeepChain() {
    std::string first = folder_ + "/" + name_;
    std::string second = first + "/" + name_;
    std::string aside = folder_ + "/aside";
    while (::rename(second.c_str(), aside.c_str()) == 0) {
      if (::rmdir(first.c_str()) != 0 || ::rename(aside.c_str(), first.c_str()) != 0)
        return;
    }
    ::rmdir(first.c_str());
  }
  DeepChain(const DeepChain &) = delete;
  DeepChain &operator=(const DeepChain &) = delete;

private:
  std::string folder_;
  std::string name_;
};

} // namespace kwtest
