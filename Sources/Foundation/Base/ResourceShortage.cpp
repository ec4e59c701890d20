// Tells such a lack by the errno value underneath an error.
#include "Foundation/Base/ResourceShortage.h"

#include <string>

namespace NS {
namespace {

// With the item that could not be reached, where the error names it.
std::string reasonOf(const Error &error, const Error &cause) {
  auto found = error.userInfo().find(FilePathErrorKey);
  const auto *path =
      found == error.userInfo().end() ? nullptr : std::get_if<std::string>(&found->second);
  return (path ? *path + ": " : std::string()) + cause.localizedDescription();
}

} // namespace

void throwOnShortage(const std::optional<Error> &error) {
  const Error *cause = error ? error->underlyingError() : nullptr;
  if (cause && cause->domain() == POSIXErrorDomain && isExhaustion(static_cast<int>(cause->code())))
    throw ResourceShortage(reasonOf(*error, *cause));
}

} // namespace NS
