// The register of value transformers.
#include "Foundation/Values/ValueTransformer.h"

#include <map>
#include <mutex>

namespace NS {
namespace {

struct Register {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<ValueTransformer>> transformers;
};

Register &theRegister() {
  static auto *instance = new Register;
  return *instance;
}

} // namespace

std::shared_ptr<ValueTransformer>
ValueTransformer::valueTransformerForName(const std::string &name) {
  std::lock_guard lock(theRegister().mutex);
  auto found = theRegister().transformers.find(name);
  return found == theRegister().transformers.end() ? nullptr : found->second;
}

void ValueTransformer::setValueTransformer(const std::shared_ptr<ValueTransformer> &transformer,
                                           const std::string &name) {
  // Destroys the former one after releasing the lock: its destructor may ask
  // the register.
  std::shared_ptr<ValueTransformer> entry = transformer;
  std::lock_guard lock(theRegister().mutex);
  if (transformer)
    theRegister().transformers[name].swap(entry);
  else if (auto node = theRegister().transformers.extract(name))
    entry = std::move(node.mapped());
}

} // namespace NS
