// This host has no index.
#include "Foundation/Desktop/Metadata.h"

#include "Foundation/Base/SharedInstance.h"

namespace NS {
namespace {

class NoIndex final : public MetadataStore {
public:
  std::unique_ptr<MetadataItem> createItem(const std::string & /*path*/) override {
    return nullptr;
  }
};

using Shared = SharedInstance<MetadataStore, NoIndex>;

} // namespace

MetadataStore &MetadataStore::shared() {
  return Shared::get();
}

MetadataStore *MetadataStore::exchangeShared(MetadataStore *replacement) {
  return Shared::exchange(replacement);
}

} // namespace NS
