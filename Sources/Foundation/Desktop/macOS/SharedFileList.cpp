// The list of login items for all users, by the LSSharedFileList calls.
#include "Foundation/Desktop/SharedFileList.h"

#include "Foundation/Values/macOS/CoreFoundationValues.h"

#include <cerrno>

namespace NS {
namespace {

static_assert(std::uint32_t{SharedFileListNoUserInteraction} ==
              std::uint32_t{kLSSharedFileListNoUserInteraction});
static_assert(std::uint32_t{SharedFileListDoNotMountVolumes} ==
              std::uint32_t{kLSSharedFileListDoNotMountVolumes});

class PlatformItem final : public SharedFileListItem {
public:
  explicit PlatformItem(Owned<LSSharedFileListItemRef> item) : item_(std::move(item)) {}

  std::int32_t resolve(std::uint32_t flags, std::optional<URL> &url) override {
    AutoreleasePool pool;
    CFURLRef found = nullptr;
    OSStatus status = ::LSSharedFileListItemResolve(item_.get(), flags, &found, nullptr);
    Owned<CFURLRef> owned(found);
    if (auto path = status == noErr ? pathOf(found) : std::nullopt)
      url = URL::fileURLWithPath(*path, ::CFURLHasDirectoryPath(found));
    return status;
  }

  std::optional<std::string> displayName() override {
    AutoreleasePool pool;
    return textOf(Owned(::LSSharedFileListItemCopyDisplayName(item_.get())).get());
  }

  LSSharedFileListItemRef reference() const { return item_.get(); }

private:
  const Owned<LSSharedFileListItemRef> item_;
};

class PlatformList final : public SharedFileList {
public:
  explicit PlatformList(Owned<LSSharedFileListRef> list) : list_(std::move(list)) {}

  std::vector<std::shared_ptr<SharedFileListItem>> copySnapshot() override {
    AutoreleasePool pool;
    Owned snapshot(::LSSharedFileListCopySnapshot(list_.get(), nullptr));
    std::vector<std::shared_ptr<SharedFileListItem>> items;
    CFIndex count = snapshot ? ::CFArrayGetCount(snapshot.get()) : 0;
    for (CFIndex index = 0; index < count; ++index)
      items.push_back(std::make_shared<PlatformItem>(itemAt(snapshot.get(), index)));
    return items;
  }

  std::int32_t removeItem(SharedFileListItem &item) override {
    AutoreleasePool pool;
    auto *own = dynamic_cast<PlatformItem *>(&item);
    return own ? ::LSSharedFileListItemRemove(list_.get(), own->reference()) : EINVAL;
  }

private:
  static Owned<LSSharedFileListItemRef> itemAt(CFArrayRef snapshot, CFIndex index) {
    const void *item = ::CFArrayGetValueAtIndex(snapshot, index);
    return Owned<LSSharedFileListItemRef>::sharing(
        static_cast<LSSharedFileListItemRef>(const_cast<void *>(item)));
  }

  const Owned<LSSharedFileListRef> list_;
};

class PlatformLists final : public SharedFileLists {
public:
  std::shared_ptr<SharedFileList> globalLoginItems() override {
    AutoreleasePool pool;
    Owned list(
        ::LSSharedFileListCreate(kCFAllocatorDefault, kLSSharedFileListGlobalLoginItems, nullptr));
    return list ? std::make_shared<PlatformList>(std::move(list)) : nullptr;
  }
};

} // namespace

SharedFileLists &SharedFileLists::real() {
  return lastingInstance<PlatformLists>();
}

} // namespace NS
