// Bundles as folders. A deep bundle has its parts in a folder "Contents", a flat
// one at its top.
#include "Foundation/Desktop/Bundle.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Desktop/Internal/MainBundleFolder.h"
#include "Foundation/PropertyLists/PropertyList.h"
#include "Foundation/Text/PathUtilities.h"

#include <array>
#include <map>
#include <mutex>
#include <vector>

#include <sys/stat.h>

namespace NS {
namespace {

bool isDirectory(const std::string &path) {
  struct stat status;
  return !holdsNul(path) && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isRegularFile(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

class FolderBundle : public Bundle {
public:
  explicit FolderBundle(std::string path) : path_(std::move(path)), contents_(contentsFolder()) {}

  std::string localizedStringForKey(const std::string &key, const std::optional<std::string> &value,
                                    const std::optional<std::string> &table) override {
    if (const PropertyList *strings = stringTable(table.value_or("Localizable")))
      if (const PropertyList *entry = strings->objectForKey(key); entry && entry->string())
        return *entry->string();
    return value && !value->empty() ? *value : key;
  }

  std::optional<std::string> infoString(const std::string &key) override {
    const PropertyList *info = listNamed("Info.plist", {contents_});
    const PropertyList *entry = info ? info->objectForKey(key) : nullptr;
    return entry && entry->string() ? std::optional(*entry->string()) : std::nullopt;
  }

  // Without a name in the information list the executable has the bundle's
  // own, less the extension.
  std::optional<std::string> executablePath() override {
    std::string name = infoString("CFBundleExecutable")
                           .value_or(stringByDeletingPathExtension(lastPathComponent(path_)));
    // A foreign information list must not lead out of its folder.
    if (!isFileName(name))
      return std::nullopt;
    for (const std::string &folder :
         {stringByAppendingPathComponent(contents_, "MacOS"), contents_, path_}) {
      std::string path = stringByAppendingPathComponent(folder, name);
      if (isRegularFile(path))
        return path;
    }
    return std::nullopt;
  }

private:
  using Folders = std::vector<std::string>;

  std::string contentsFolder() const {
    std::string contents = stringByAppendingPathComponent(path_, "Contents");
    return isDirectory(contents) ? contents : path_;
  }

  // Null for a missing table, and for one that a lack of descriptors or memory
  // keeps from being read: a request must not fail because a text is missing.
  const PropertyList *stringTable(const std::string &name) {
    if (!isFileName(name))
      return nullptr;
    std::string resources = stringByAppendingPathComponent(contents_, "Resources");
    try {
      return listNamed(name + ".strings",
                       {resources, stringByAppendingPathComponent(resources, "en.lproj"), contents_,
                        stringByAppendingPathComponent(contents_, "en.lproj")});
    } catch (const ResourceShortage &) {
      return nullptr;
    }
  }

  // The list of this name in the first folder that has one; null when none has.
  // It is read once. One that cannot be read for lack of a resource is not taken
  // for missing: the next call tries again.
  const PropertyList *listNamed(const std::string &fileName, const Folders &folders) {
    std::lock_guard lock(mutex_);
    auto found = lists_.find(fileName);
    if (found == lists_.end())
      found = lists_.emplace(fileName, readList(fileName, folders)).first;
    return found->second ? &*found->second : nullptr;
  }

  static std::optional<PropertyList> readList(const std::string &fileName, const Folders &folders) {
    for (const std::string &folder : folders)
      if (auto list =
              dictionaryWithContentsOfFile(stringByAppendingPathComponent(folder, fileName)))
        return list;
    return std::nullopt;
  }

  std::string path_;
  std::string contents_; // where the information list and the resources are
  std::mutex mutex_;     // guards the map; a list that is in it stays as it is
  std::map<std::string, std::optional<PropertyList>> lists_;
};

struct MainBundle final : FolderBundle {
  MainBundle() : FolderBundle(mainBundleFolder()) {}
};

} // namespace

Bundle &Bundle::real() {
  return lastingInstance<MainBundle>();
}

std::shared_ptr<Bundle> Bundle::bundleWithPath(const std::string &path) {
  if (!isDirectory(path))
    return nullptr;
  return std::make_shared<FolderBundle>(stringByAppendingPathComponent(path, ""));
}

} // namespace NS
