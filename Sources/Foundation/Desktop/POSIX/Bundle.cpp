// Bundles as folders. A deep bundle has its parts in a folder "Contents", a flat
// one at its top.
#include "Foundation/Desktop/Bundle.h"

#include "Foundation/Desktop/Internal/MainBundleFolder.h"
#include "Foundation/PropertyLists/PropertyList.h"
#include "Foundation/Text/PathUtilities.h"

#include <array>
#include <map>
#include <mutex>

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
  explicit FolderBundle(std::string path)
      : path_(std::move(path)), contents_(contentsFolder()),
        info_(
            dictionaryWithContentsOfFile(stringByAppendingPathComponent(contents_, "Info.plist"))) {
  }

  std::string localizedStringForKey(const std::string &key, const std::optional<std::string> &value,
                                    const std::optional<std::string> &table) override {
    if (const PropertyList *strings = stringTable(table.value_or("Localizable")))
      if (const PropertyList *entry = strings->objectForKey(key); entry && entry->string())
        return *entry->string();
    return value && !value->empty() ? *value : key;
  }

  std::optional<std::string> infoString(const std::string &key) override {
    const PropertyList *entry = info_ ? info_->objectForKey(key) : nullptr;
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
  std::string contentsFolder() const {
    std::string contents = stringByAppendingPathComponent(path_, "Contents");
    return isDirectory(contents) ? contents : path_;
  }

  // Null when there is no such table. A table is read once.
  const PropertyList *stringTable(const std::string &name) {
    if (!isFileName(name))
      return nullptr;
    std::lock_guard lock(mutex_);
    auto [found, isNew] = tables_.try_emplace(name);
    if (isNew)
      found->second = readTable(name + ".strings");
    return found->second ? &*found->second : nullptr;
  }

  std::optional<PropertyList> readTable(const std::string &fileName) const {
    std::string resources = stringByAppendingPathComponent(contents_, "Resources");
    for (const std::string &folder :
         {resources, stringByAppendingPathComponent(resources, "en.lproj"), contents_,
          stringByAppendingPathComponent(contents_, "en.lproj")})
      if (auto table =
              dictionaryWithContentsOfFile(stringByAppendingPathComponent(folder, fileName)))
        return table;
    return std::nullopt;
  }

  std::string path_;
  std::string contents_; // where the information list and the resources are
  std::optional<PropertyList> info_;
  std::mutex mutex_; // guards the map; a table that is in it stays as it is
  std::map<std::string, std::optional<PropertyList>> tables_;
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
