// This host has no index.
#include "Foundation/Metadata.h"

#include "Foundation/SharedInstance.h"

namespace NS {
namespace {

class NoIndex final : public MetadataStore {
public:
  std::unique_ptr<MetadataItem> createItem(const std::string & /*path*/) override {
    return nullptr;
  }
};

SharedInstance<MetadataStore> &instance() {
  static NoIndex real;
  static SharedInstance<MetadataStore> shared(real);
  return shared;
}

} // namespace

MetadataStore &MetadataStore::shared() {
  return instance().get();
}

MetadataStore *MetadataStore::exchangeShared(MetadataStore *replacement) {
  return instance().exchange(replacement);
}

} // namespace NS
