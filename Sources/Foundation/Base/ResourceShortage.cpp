// Tells such a lack by the errno value underneath an error.
#include "Foundation/Base/ResourceShortage.h"

#include <string>

namespace NS {
namespace {

// With the item that could not be reached, where the error names it.
std::string reasonOf(const Error &error) {
  auto found = error.userInfo().find(FilePathErrorKey);
  const auto *path =
      found == error.userInfo().end() ? nullptr : std::get_if<std::string>(&found->second);
  return (path ? *path + ": " : std::string()) + error.underlyingError()->localizedDescription();
}

} // namespace

int errnoBeneath(const Error &error) {
  const Error *cause = error.underlyingError();
  return cause && cause->domain() == POSIXErrorDomain ? static_cast<int>(cause->code()) : 0;
}

void throwOnShortage(const std::optional<Error> &error) {
  if (error && isExhaustion(errnoBeneath(*error)))
    throw ResourceShortage(reasonOf(*error));
}

} // namespace NS
