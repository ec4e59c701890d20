// Deep walks that return their items one by one. They enter the last folder
// only when the next item is requested, so that skipping costs nothing. When a
// folder is moved during the walk in it, the walk goes on with the others.
#include "Foundation/DescriptorBudget.h"
#include "Foundation/Linux/FolderStack.h"
#include "Foundation/Linux/TreeOperations.h"
#include "Foundation/Log.h"
#include "Foundation/PathUtilities.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace NS {
namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

class TreeCursor {
public:
  TreeCursor(const std::string &root, DirectoryEnumerationOptions options)
      : options_(options), rootPath_(root) {
    if (holdsNul(root))
      return;
    // Follows links of the root itself, and none beneath it.
    root_ = Descriptor(::open(root.c_str(), folderFlags));
    Descriptor folder(root_ ? ::openat(root_.get(), ".", folderFlags) : -1);
    if (folder)
      static_cast<void>(stack_.openRoot(std::move(folder)));
  }

  bool next() {
    descend();
    while (!stack_.empty()) {
      StepOutcome outcome;
      const FolderEntry *entry = stack_.next(outcome);
      if (!entry) {
        if (!leave())
          break;
      } else if (!isHidden(entry->name)) {
        take(*entry);
        return true;
      }
    }
    return false;
  }

  const std::string &path() const { return path_; }
  bool isDirectory() const { return isDirectory_; }
  std::uint64_t level() const { return level_; }
  void skipDescendants() { mayDescend_ = false; }

private:
  bool isHidden(const char *name) const {
    return (options_ & DirectoryEnumerationSkipsHiddenFiles) != 0 && name[0] == '.';
  }

  void take(const FolderEntry &entry) {
    name_ = entry.name;
    path_ = prefix_ + name_;
    level_ = stack_.depth();
    isDirectory_ = entry.type == DT_DIR || (entry.type == DT_UNKNOWN && isFolder(entry.name));
    mayDescend_ =
        isDirectory_ && (options_ & DirectoryEnumerationSkipsSubdirectoryDescendants) == 0;
  }

  bool isFolder(const char *name) const {
    struct stat status;
    return ::fstatat(stack_.folder(), name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
  }

  void descend() {
    if (!mayDescend_)
      return;
    mayDescend_ = false;
    if (stack_.enter(name_.c_str()).isDone())
      prefix_ += name_ + "/";
  }

  // False when the walk can reach no further folder, which ends it.
  bool leave() {
    std::size_t length = std::string_view(stack_.folderName()).size();
    if (stack_.depth() > 1)
      prefix_.resize(prefix_.size() - length - 1);
    if (stack_.leave().isDone())
      return true;
    bool found = stack_.findAgain(root_, [this](const std::string &below) {
      Log("%@ was moved; the rest of it is left out of a list.",
          stringByAppendingPathComponent(rootPath_, below));
    });
    if (found)
      prefix_ = stack_.depth() > 1 ? stack_.pathBelowRoot() + "/" : "";
    else
      stack_ = FolderStack(MountPoints::Enter);
    return found;
  }

  DirectoryEnumerationOptions options_;
  WalkShare share_;
  const std::string rootPath_;
  Descriptor root_; // to find the way again
  FolderStack stack_{MountPoints::Enter};
  std::string prefix_; // the lowest folder's path with a slash, empty at the root
  std::string name_;   // the last item, as the fields below
  std::string path_;
  std::uint64_t level_ = 0;
  bool isDirectory_ = false;
  bool mayDescend_ = false;
};

class RealPathEnumerator final : public PathEnumerator {
public:
  explicit RealPathEnumerator(const std::string &path) : cursor_(path, DirectoryEnumerationNone) {}

  std::optional<std::string> nextObject() override {
    if (!cursor_.next())
      return {};
    return cursor_.path();
  }
  std::uint64_t level() const override { return cursor_.level(); }
  void skipDescendants() override { cursor_.skipDescendants(); }

private:
  TreeCursor cursor_;
};

class RealURLEnumerator final : public URLEnumerator {
public:
  RealURLEnumerator(const URL &url, DirectoryEnumerationOptions options)
      : prefix_(url.path() == "/" ? "/" : url.path() + "/"), cursor_(url.path(), options) {}

  std::optional<URL> nextObject() override {
    if (!cursor_.next())
      return {};
    return URL::fileURLWithPath(prefix_ + cursor_.path(), cursor_.isDirectory());
  }
  std::uint64_t level() const override { return cursor_.level(); }
  void skipDescendants() override { cursor_.skipDescendants(); }

private:
  std::string prefix_;
  TreeCursor cursor_;
};

} // namespace

std::unique_ptr<PathEnumerator> openPathEnumerator(const std::string &path) {
  return std::make_unique<RealPathEnumerator>(path);
}

std::unique_ptr<URLEnumerator> openURLEnumerator(const URL &url,
                                                 DirectoryEnumerationOptions options) {
  return std::make_unique<RealURLEnumerator>(url, options);
}

} // namespace NS
