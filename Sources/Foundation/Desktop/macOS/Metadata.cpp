// Spotlight's entries, by MDItemCreate and MDItemCopyAttribute.
#include "Foundation/Desktop/Metadata.h"

#include "Foundation/Values/macOS/CoreFoundationValues.h"

namespace NS {
namespace {

class IndexedItem final : public MetadataItem {
public:
  explicit IndexedItem(Owned<MDItemRef> item) : item_(std::move(item)) {}

  std::shared_ptr<Object> copyAttribute(const std::string &name) override {
    AutoreleasePool pool;
    Owned<CFStringRef> key = platformString(name);
    return key ? objectOf(Owned(::MDItemCopyAttribute(item_.get(), key.get())).get()) : nullptr;
  }

private:
  const Owned<MDItemRef> item_;
};

class SystemIndex final : public MetadataStore {
public:
  std::unique_ptr<MetadataItem> createItem(const std::string &path) override {
    AutoreleasePool pool;
    if (path.find('\0') != std::string::npos)
      return nullptr;
    Owned<CFStringRef> text = platformString(path);
    Owned item(text ? ::MDItemCreate(kCFAllocatorDefault, text.get()) : nullptr);
    return item ? std::make_unique<IndexedItem>(std::move(item)) : nullptr;
  }
};

} // namespace

MetadataStore &MetadataStore::real() {
  return lastingInstance<SystemIndex>();
}

} // namespace NS
