// Deep walks that return their items one by one. They enter the last folder
// only when the next item is requested, so that skipping costs nothing. When a
// folder is moved during the walk in it, the walk goes on with the others.
#include "Foundation/Descriptors/DescriptorBudget.h"
#include "Foundation/Files/Internal/LossLog.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Trees/Internal/TreeOperations.h"
#include "Foundation/Walking/Exhaustion.h"
#include "Foundation/Walking/POSIX/FolderChain.h"

#include <fcntl.h>
#include <functional>
#include <system_error>
#include <utility>

namespace NS {
namespace {

class TreeCursor {
public:
  TreeCursor(const std::string &root, DirectoryEnumerationOptions options)
      : options_(options), log_(root) {
    if (holdsNul(root))
      return;
    // Follows links of the root itself, and none beneath it.
    Descriptor folder(::open(root.c_str(), folderFlags & ~O_NOFOLLOW));
    StepOutcome outcome(TreeStep::Open, folder ? 0 : errno);
    if (outcome.isDone())
      outcome = chain_.openRoot(std::move(folder));
    if (outcome.isFailed())
      noteLeftOut("", outcome.errnum());
  }

  bool next() {
    descend();
    while (!chain_.empty()) {
      StepOutcome outcome;
      const FolderEntry *entry = chain_.next(outcome);
      if (!entry) {
        if (outcome.isFailed())
          log_.tell(chain_.pathBelowRoot(), "is listed only in part: " + textOf(outcome.errnum()));
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
    level_ = chain_.depth();
    isDirectory_ = chain_.isFolder(entry);
    mayDescend_ =
        isDirectory_ && (options_ & DirectoryEnumerationSkipsSubdirectoryDescendants) == 0;
  }

  void descend() {
    if (!mayDescend_)
      return;
    mayDescend_ = false;
    StepOutcome outcome = chain_.enter(name_.c_str());
    if (outcome.isDone())
      prefix_ += name_ + "/";
    else
      noteLeftOut(path_, outcome.errnum());
  }

  // Any other cause is the folder's own, such as that it may not be read.
  void noteLeftOut(const std::string &below, int errnum) {
    if (isExhaustion(errnum))
      log_.tell(below, "is left out of a list: " + textOf(errnum));
  }

  static std::string textOf(int errnum) { return std::generic_category().message(errnum); }

  // False when the walk can reach no further folder, which ends it.
  bool leave() {
    std::size_t length = std::string_view(chain_.folderName()).size();
    if (chain_.depth() > 1)
      prefix_.resize(prefix_.size() - length - 1);
    if (chain_.leave().isDone())
      return true;
    bool found = chain_.findAgain([this](const std::string &below, const std::string &fate) {
      log_.tell(below, fate + "; the rest of it is left out of a list.");
    });
    if (found)
      prefix_ = chain_.depth() > 1 ? chain_.pathBelowRoot() + "/" : "";
    return found;
  }

  DirectoryEnumerationOptions options_;
  WalkShare share_;
  LossLog log_;
  FolderChain chain_{{.keepsRoot = true}};
  std::string prefix_; // the lowest folder's path with a slash, empty at the root
  std::string name_;   // the last item, as the fields below
  std::string path_;
  std::uint64_t level_ = 0;
  bool isDirectory_ = false;
  bool mayDescend_ = false;
};

// Makes items of one kind from the places of a cursor.
template <typename Item> class RealEnumerator final : public DirectoryEnumerator<Item> {
public:
  using Maker = std::function<Item(const TreeCursor &cursor)>;
  RealEnumerator(const std::string &root, DirectoryEnumerationOptions options, Maker make)
      : cursor_(root, options), make_(std::move(make)) {}

  std::optional<Item> nextObject() override {
    if (!cursor_.next())
      return {};
    return make_(cursor_);
  }
  std::uint64_t level() const override { return cursor_.level(); }
  void skipDescendants() override { cursor_.skipDescendants(); }

private:
  TreeCursor cursor_;
  const Maker make_;
};

} // namespace

std::unique_ptr<PathEnumerator> openPathEnumerator(const std::string &path) {
  return std::make_unique<RealEnumerator<std::string>>(
      path, DirectoryEnumerationNone, [](const TreeCursor &cursor) { return cursor.path(); });
}

std::unique_ptr<URLEnumerator> openURLEnumerator(const URL &url,
                                                 DirectoryEnumerationOptions options) {
  std::string prefix = url.path() == "/" ? "/" : url.path() + "/";
  return std::make_unique<RealEnumerator<URL>>(
      url.path(), options, [prefix = std::move(prefix)](const TreeCursor &cursor) {
        return URL::fileURLWithPath(prefix + cursor.path(), cursor.isDirectory());
      });
}

} // namespace NS
