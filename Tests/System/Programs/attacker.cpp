// Works against the agent from outside, as fast as one process can: exchanges
// folders for links, fills and empties folders, moves them about. Runs until
// it is told to end (SIGTERM) and then prints how many of its steps succeeded;
// "ready" is printed before the first.
//
//   attacker exchange ONE OTHER [ONE OTHER ...]    where folders are opened, more often
//   attacker churn FOLDER...      files and folders come and go in each
//   attacker shuffle FOLDER...    a folder "wanderer" is moved from each to the next
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <map>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

volatile std::sig_atomic_t isEnded = 0;

void end(int) {
  isEnded = 1;
}

unsigned long count(bool succeeded) {
  return succeeded ? 1u : 0u;
}

using Paths = std::vector<std::string>;

std::string parentOf(const std::string &path) {
  return path.substr(0, path.rfind('/'));
}

// A folder that is reached without a link: the attacker's own links must not
// lead it to the folder outside.
class Folder {
public:
  explicit Folder(const std::string &path) {
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    descriptor_ =
        static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how));
  }
  ~Folder() {
    if (descriptor_ >= 0)
      ::close(descriptor_);
  }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  int descriptor() const { return descriptor_; }

private:
  int descriptor_;
};

bool exchange(const std::string &one, const std::string &other) {
  const char *oneName = one.c_str() + one.rfind('/') + 1;
  const char *otherName = other.c_str() + other.rfind('/') + 1;
  Folder folder(parentOf(one));
  if (parentOf(one) == parentOf(other))
    return ::renameat2(folder.descriptor(), oneName, folder.descriptor(), otherName,
                       RENAME_EXCHANGE) == 0;
  Folder otherFolder(parentOf(other));
  return ::renameat2(folder.descriptor(), oneName, otherFolder.descriptor(), otherName,
                     RENAME_EXCHANGE) == 0;
}

unsigned long exchange(const Paths &paths) {
  unsigned long done = 0;
  for (std::size_t at = 0; at + 1 < paths.size(); at += 2)
    done += count(exchange(paths[at], paths[at + 1]));
  return done;
}

// Waits until a process opens a folder, and then exchanges its items again and
// again while the process is about to look at them.
class Ambush {
public:
  explicit Ambush(const Paths &paths) : watches_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    for (std::size_t at = 0; at + 1 < paths.size(); at += 2) {
      Paths &pairs = pairs_[parentOf(paths[at])];
      pairs.insert(pairs.end(), {paths[at], paths[at + 1]});
    }
    next_ = pairs_.begin();
  }
  ~Ambush() { ::close(watches_); }
  Ambush(const Ambush &) = delete;
  Ambush &operator=(const Ambush &) = delete;

  // Exchanges everything once, and the items met on the way.
  unsigned long turn() {
    unsigned long done = 0;
    watchNext();
    for (const auto &folder : pairs_) {
      done += exchange(folder.second);
      while (const Paths *pairs = isEnded ? nullptr : opened())
        for (int time = 0; time < 16; ++time)
          done += exchange(*pairs);
    }
    return done;
  }

private:
  // Folders come and go, so that one after the other is watched anew.
  void watchNext() {
    int watch =
        ::inotify_add_watch(watches_, next_->first.c_str(), IN_OPEN | IN_ONLYDIR | IN_DONT_FOLLOW);
    if (watch >= 0)
      watched_[watch] = &next_->second;
    if (++next_ == pairs_.end())
      next_ = pairs_.begin();
  }

  // The contents of the folder that was opened last, null if none was.
  const Paths *opened() {
    alignas(inotify_event) char events[16 * 1024];
    ssize_t size = ::read(watches_, events, sizeof events);
    const Paths *found = nullptr;
    for (ssize_t at = 0; at < size;) {
      const auto *event = reinterpret_cast<const inotify_event *>(events + at);
      if (event->mask & IN_IGNORED)
        watched_.erase(event->wd);
      else if (auto folder = watched_.find(event->wd);
               folder != watched_.end() && event->len == 0 && (event->mask & IN_OPEN))
        found = folder->second;
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return found;
  }

  int watches_;
  std::map<std::string, Paths> pairs_; // by the folders that hold the first of each
  std::map<std::string, Paths>::const_iterator next_;
  std::map<int, const Paths *> watched_;
};

unsigned long churn(const Paths &folders) {
  static unsigned turn = 0;
  unsigned long done = 0;
  for (const std::string &folder : folders) {
    std::string item = folder + "/come-" + std::to_string(turn % 7);
    // An item that cannot be made exists from an earlier turn, and goes.
    if (turn % 2 == 0) {
      done += count(::mkdir(item.c_str(), 0755) == 0 || ::rmdir(item.c_str()) == 0);
    } else {
      int file = ::open(item.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
      if (file >= 0)
        ::close(file);
      done += count(file >= 0 || ::unlink(item.c_str()) == 0);
    }
  }
  ++turn;
  return done;
}

unsigned long shuffle(const Paths &folders) {
  unsigned long done = 0;
  for (std::size_t at = 0; at < folders.size(); ++at) {
    std::string from = folders[at] + "/wanderer";
    std::string to = folders[(at + 1) % folders.size()] + "/wanderer";
    done += count(::rename(from.c_str(), to.c_str()) == 0);
  }
  return done;
}

} // namespace

int main(int argc, char **argv) {
  if (argc < 3)
    return 2;
  // Every user may change the items that are made here.
  ::umask(0);
  std::signal(SIGTERM, end);
  Paths paths(argv + 2, argv + argc);
  bool exchanges = std::strcmp(argv[1], "exchange") == 0;
  bool churns = std::strcmp(argv[1], "churn") == 0;
  Ambush ambush(paths);
  unsigned long done = 0;
  std::puts("ready");
  std::fflush(stdout);
  while (!isEnded)
    done += exchanges ? ambush.turn() : churns ? churn(paths) : shuffle(paths);
  std::printf("%lu\n", done);
  return 0;
}
