// This host has no index.
#include "Foundation/Desktop/Metadata.h"

namespace NS {
namespace {

class NoIndex final : public MetadataStore {
public:
  std::unique_ptr<MetadataItem> createItem(const std::string & /*path*/) override {
    return nullptr;
  }
};

} // namespace

MetadataStore &MetadataStore::real() {
  return lastingInstance<NoIndex>();
}

} // namespace NS
