// How long the system calls of a tree operation take by themselves: a bound for
// any program that makes them for each item.
//
// bare-calls size|search|remove PATH THREADS warm|cold
//
// Lists the folders first. Then the threads take them in turn: each folder is
// opened, listed and closed; to measure it, each file's status is read; to remove
// it, each file is unlinked, and at the end one thread removes the folders. No
// name is compared or kept, no thread waits for another, and there is no agent.
// Prints the time of that second part in nanoseconds. With "cold" the caches are
// dropped before it, which needs root.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// From any thread.
[[noreturn]] void fail(const std::string &text) {
  std::cerr << "bare-calls: " << text << std::endl;
  std::_Exit(1);
}

enum class Work { Size, Search, Remove };

Work workNamed(std::string_view name) {
  if (name == "size")
    return Work::Size;
  if (name == "search")
    return Work::Search;
  if (name == "remove")
    return Work::Remove;
  fail("size, search or remove");
}

// Each folder before those in it; those of other volumes left out.
std::vector<std::string> foldersOf(const std::string &root) {
  struct stat top, status;
  if (::stat(root.c_str(), &top) != 0)
    fail(root + " cannot be read");
  std::vector<std::string> folders{root};
  for (std::size_t index = 0; index < folders.size(); ++index)
    for (const auto &entry : fs::directory_iterator(folders[index]))
      if (!entry.is_symlink() && entry.is_directory() && // both by the listing alone
          ::lstat(entry.path().c_str(), &status) == 0 && status.st_dev == top.st_dev)
        folders.push_back(entry.path());
  return folders;
}

void doItem(Work work, int folder, const struct dirent64 &record) {
  struct stat status;
  if (record.d_type == DT_DIR || work == Work::Search)
    return;
  if (work == Work::Size)
    static_cast<void>(::fstatat(folder, record.d_name, &status, AT_SYMLINK_NOFOLLOW));
  else if (::unlinkat(folder, record.d_name, 0) != 0)
    fail("a file cannot be removed");
}

void doFolder(Work work, const std::string &path, std::vector<char> &buffer) {
  int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folder < 0)
    fail(path + " cannot be opened");
  for (long size; (size = ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size())) > 0;)
    for (const char *at = buffer.data(); at < buffer.data() + size;) {
      const auto &record = *reinterpret_cast<const struct dirent64 *>(at);
      doItem(work, folder, record);
      at += record.d_reclen;
    }
  ::close(folder);
}

long long timeOf(Work work, const std::vector<std::string> &folders, unsigned threads) {
  constexpr std::size_t atOnce = 4; // folders that a thread takes
  std::atomic<std::size_t> next{0};
  auto start = std::chrono::steady_clock::now();
  std::vector<std::jthread> crew;
  for (unsigned number = 0; number < threads; ++number)
    crew.emplace_back([&] {
      std::vector<char> buffer(64 * 1024);
      for (std::size_t first; (first = next.fetch_add(atOnce)) < folders.size();)
        for (std::size_t index = first; index < std::min(first + atOnce, folders.size()); ++index)
          doFolder(work, folders[index], buffer);
    });
  crew.clear(); // waits for them
  if (work == Work::Remove)
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder)
      if (::rmdir(folder->c_str()) != 0)
        fail(*folder + " cannot be removed");
  return (std::chrono::steady_clock::now() - start).count();
}

void dropCaches() {
  ::sync();
  std::ofstream file("/proc/sys/vm/drop_caches");
  file << "3" << std::flush;
  if (!file)
    fail("the caches could not be dropped");
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 5)
    fail("give: size|search|remove PATH THREADS warm|cold");
  Work work = workNamed(argv[1]);
  std::vector<std::string> folders = foldersOf(argv[2]);
  if (std::string_view(argv[4]) == "cold")
    dropCaches();
  std::cout << timeOf(work, folders, static_cast<unsigned>(std::stoul(argv[3]))) << std::endl;
}
