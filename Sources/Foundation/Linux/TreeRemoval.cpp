// Removal from the leaves up: files as they are met, a folder when the walk
// leaves it. What vanishes meanwhile by another hand counts as removed.
#include "Foundation/Linux/TreeRemoval.h"

#include "Foundation/Linux/FolderStack.h"
#include "Foundation/Linux/ItemLocation.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace NS {
namespace {

// How often a name may turn from folder to file and back, and how often a
// folder may be found filled again after it was emptied, before the removal
// gives up: somebody is working against it.
constexpr unsigned patience = 16;

bool isGone(int error) {
  return error == 0 || error == ENOENT;
}
bool isNoFolder(int error) {
  return error == ENOTDIR || error == ELOOP;
}
bool isFilled(int error) {
  return error == ENOTEMPTY || error == EEXIST;
}

int removeFolder(int parent, const char *name) {
  return ::unlinkat(parent, name, AT_REMOVEDIR) == 0 ? 0 : errno;
}

class TreeRemover {
public:
  TreeRemover(const ItemLocation &root, const std::string &path, ItemEraser &eraser)
      : root_(root), path_(path), eraser_(eraser) {}

  TreeResult run() {
    int error = eraseOrEnter(root_.name.c_str(), DT_UNKNOWN);
    if (error != 0)
      return TreeFailure{error, path_};
    while (!stack_.empty()) {
      const FolderEntry *entry = stack_.next(error);
      if (entry && (error = eraseOrEnter(entry->name, entry->type)) != 0 && error != ENOENT)
        return failure(error, entry->name);
      if (!entry && error != 0)
        return failure(error, "");
      if (!entry)
        if (TreeResult result = finishFolder())
          return result;
    }
    return {};
  }

private:
  int parent() const { return stack_.empty() ? root_.parent.get() : stack_.folder(); }

  int enter(const char *name) {
    return stack_.empty() ? stack_.openRoot(root_.parent.get(), name) : stack_.enter(name);
  }

  // A name that was a folder's can be another item's by now, and the reverse.
  int eraseOrEnter(const char *name, unsigned char type) {
    int error = EISDIR;
    for (unsigned attempt = 0; attempt < patience; ++attempt) {
      if (type != DT_DIR)
        error = eraser_.erase(parent(), name, type);
      if (error != EISDIR)
        return error;
      error = enter(name);
      if (!isNoFolder(error))
        return error;
      type = DT_UNKNOWN;
    }
    return error;
  }

  // Leaves the folder that was read to its end and removes it.
  TreeResult finishFolder() {
    std::string name = stack_.folderName();
    unsigned revisits = stack_.revisits();
    if (int error = stack_.leave())
      return failure(error, "");
    int error = removeFolder(parent(), name.c_str());
    if (isFilled(error) && revisits < patience) {
      error = enter(name.c_str());
      if (error == 0) {
        stack_.revisits() = revisits + 1;
        return {};
      }
    }
    if (isNoFolder(error))
      error = eraser_.erase(parent(), name.c_str(), DT_UNKNOWN);
    if (isGone(error))
      return {};
    return stack_.empty() ? TreeFailure{error, path_} : failure(error, name);
  }

  TreeResult failure(int error, const std::string &name) const {
    std::string path = path_;
    for (const std::string &part : {stack_.pathBelowRoot(), name})
      if (!part.empty())
        path += "/" + part;
    return TreeFailure{error, std::move(path)};
  }

  const ItemLocation &root_;
  const std::string &path_;
  ItemEraser &eraser_;
  FolderStack stack_{MountPoints::Refuse};
};

} // namespace

int PlainEraser::erase(int folder, const char *name, unsigned char) {
  return ::unlinkat(folder, name, 0) == 0 ? 0 : errno;
}

TreeResult removeTree(const std::string &path, ItemEraser &eraser, Recursion recursion) {
  ItemLocation location;
  if (int error = locateItem(path, location))
    return TreeFailure{error, path};
  return removeTree(location, path, eraser, recursion);
}

TreeResult removeTree(const ItemLocation &location, const std::string &path, ItemEraser &eraser,
                      Recursion recursion) {
  if (recursion == Recursion::WholeTree)
    return TreeRemover(location, path, eraser).run();
  int error = eraser.erase(location.parent.get(), location.name.c_str(), DT_UNKNOWN);
  if (error == EISDIR)
    error = removeFolder(location.parent.get(), location.name.c_str());
  return error == 0 ? TreeResult{} : TreeFailure{error, path};
}

TreeResult removeTree(const std::string &path) {
  PlainEraser eraser;
  return removeTree(path, eraser, Recursion::WholeTree);
}

} // namespace NS
