// The global login items of a desktop: the entries of its system-wide
// autostart folder.
#include "Foundation/Desktop/SharedFileList.h"

#include "Foundation/Base/ResourceShortage.h"
#include "Foundation/Desktop/Linux/DesktopEntry.h"
#include "Foundation/Files/FileContents.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Trees/FileManager.h"

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace NS {
namespace {

constexpr const char *autostartFolder = "/etc/xdg/autostart";
// The folders of programs that are named without a path.
constexpr const char *programFolders[] = {"/usr/local/sbin", "/usr/local/bin", "/usr/sbin",
                                          "/usr/bin",        "/sbin",          "/bin"};
// Many entries have their texts in a hundred languages, and still none is as
// large.
constexpr std::size_t entrySizeLimit = 1u << 20;

bool isProgram(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::optional<std::string> programPath(const std::string &program) {
  if (program.find('/') != std::string::npos)
    return program.starts_with('/') && isProgram(program) ? std::optional(program) : std::nullopt;
  for (const char *folder : programFolders)
    if (std::string path = stringByAppendingPathComponent(folder, program);
        !program.empty() && isProgram(path))
      return path;
  return std::nullopt;
}

class AutostartItem final : public SharedFileListItem {
public:
  explicit AutostartItem(std::string path) : path_(std::move(path)) {
    auto text = FileContents::shared().dataIfReadable(path_);
    if (text && text->size() <= entrySizeLimit)
      entry_ = desktopEntryFromText(*text);
  }

  std::int32_t resolve(std::uint32_t, std::optional<URL> &url) override {
    auto arguments = entry_.exec ? argumentsOfExec(*entry_.exec) : std::nullopt;
    if (!arguments || arguments->empty())
      return EINVAL;
    auto program = programPath(arguments->front());
    if (!program)
      return ENOENT;
    url = URL::fileURLWithPath(*program, false);
    return 0;
  }
  std::optional<std::string> displayName() override { return entry_.name; }
  // Removes a link itself, not its target.
  std::int32_t remove() const { return ::unlink(path_.c_str()) == 0 ? 0 : errno; }

private:
  std::string path_;
  DesktopEntry entry_;
};

class AutostartItems final : public SharedFileList {
public:
  explicit AutostartItems(std::vector<std::string> names) : names_(std::move(names)) {}

  std::vector<std::shared_ptr<SharedFileListItem>> copySnapshot() override {
    std::vector<std::shared_ptr<SharedFileListItem>> items;
    for (const std::string &name : names_)
      items.push_back(
          std::make_shared<AutostartItem>(stringByAppendingPathComponent(autostartFolder, name)));
    return items;
  }
  std::int32_t removeItem(SharedFileListItem &item) override {
    auto *own = dynamic_cast<AutostartItem *>(&item);
    return own ? own->remove() : EINVAL;
  }

private:
  std::vector<std::string> names_;
};

class HostLists final : public SharedFileLists {
public:
  std::shared_ptr<SharedFileList> globalLoginItems() override {
    std::optional<Error> error;
    auto names = FileManager::defaultManager().contentsOfDirectoryAtPath(autostartFolder, &error);
    throwOnShortage(error);
    if (!names)
      return nullptr;
    std::erase_if(*names, [](const std::string &name) { return !name.ends_with(".desktop"); });
    std::sort(names->begin(), names->end());
    return std::make_shared<AutostartItems>(std::move(*names));
  }
};

} // namespace

SharedFileLists &SharedFileLists::real() {
  return lastingInstance<HostLists>();
}

} // namespace NS
