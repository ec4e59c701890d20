// Makes a tree of files for the comparisons. The same arguments make the same
// tree: names and contents come from the seed.
//
// make-tree ROOT FOLDERS FILES DATA-EVERY BYTES SEED
//
// FILES files altogether, spread evenly over FOLDERS folders; each
// DATA-EVERYth file (0: none) holds BYTES bytes, all others are empty. With no
// more than one folder the files are in ROOT itself. Folders beyond the
// hundredth are in groups of a hundred, so that the tree has some depth.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <random>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

[[noreturn]] void fail(const std::string &what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int enterFolder(int parent, const std::string &name) {
  if (mkdirat(parent, name.c_str(), 0755) != 0 && errno != EEXIST)
    fail("mkdir " + name);
  int folder = openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0)
    fail("open " + name);
  return folder;
}

class Maker {
public:
  Maker(std::size_t dataEvery, std::size_t bytes, std::uint64_t seed)
      : dataEvery_(dataEvery), content_(bytes), random_(seed) {
    for (char &byte : content_)
      byte = static_cast<char>(random_());
  }

  void fill(int folder, std::size_t files) {
    for (std::size_t index = 0; index < files; ++index)
      makeFile(folder, index);
  }

private:
  // Names of unequal length, as real folders have them.
  std::string nameOf(std::size_t index) {
    static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz_-0123456789";
    std::string name = std::to_string(index) + ".";
    for (std::uint64_t left = 4 + random_() % 20; left > 0; --left)
      name += letters[random_() % (sizeof letters - 1)];
    return name;
  }

  void makeFile(int folder, std::size_t index) {
    int file = openat(folder, nameOf(index).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0)
      fail("create a file");
    if (dataEvery_ != 0 && made_++ % dataEvery_ == 0)
      writeContent(file);
    close(file);
  }

  void writeContent(int file) {
    for (std::size_t written = 0; written < content_.size();) {
      ssize_t some = write(file, content_.data() + written, content_.size() - written);
      if (some < 0)
        fail("write a file");
      written += static_cast<std::size_t>(some);
    }
  }

  std::size_t dataEvery_;
  std::vector<char> content_;
  std::mt19937_64 random_;
  std::size_t made_ = 0;
};

void makeTree(const std::string &root, std::size_t folders, std::size_t files, Maker &maker) {
  int top = enterFolder(AT_FDCWD, root);
  if (folders <= 1) {
    maker.fill(top, files);
    close(top);
    return;
  }
  for (std::size_t index = 0; index < folders; ++index) {
    int group = folders > 100 ? enterFolder(top, "group " + std::to_string(index / 100)) : dup(top);
    int folder = enterFolder(group, "folder " + std::to_string(index % 100));
    maker.fill(folder, files * (index + 1) / folders - files * index / folders);
    close(folder);
    close(group);
  }
  close(top);
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 7) {
    std::cerr << "usage: make-tree ROOT FOLDERS FILES DATA-EVERY BYTES SEED\n";
    return 2;
  }
  try {
    Maker maker(std::stoull(argv[4]), std::stoull(argv[5]), std::stoull(argv[6]));
    makeTree(argv[1], std::stoull(argv[2]), std::stoull(argv[3]), maker);
  } catch (const std::exception &error) {
    std::cerr << "make-tree: " << error.what() << '\n';
    return 1;
  }
}
