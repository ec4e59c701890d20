// The lack of a resource of this process or its host, such as descriptors or
// memory. It says nothing about the item in question, and may pass.
#pragma once

#include "Foundation/Base/Error.h"

#include <cerrno>
#include <optional>
#include <stdexcept>

namespace NS {

inline bool isExhaustion(int errnum) {
  return errnum == EMFILE || errnum == ENFILE || errnum == ENOMEM;
}

// Thrown where the lack would otherwise pass for an answer. As bad_alloc, it is no
// NS::Exception: code that takes one of those for an outcome lets this one pass, so
// that the request fails.
class ResourceShortage : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The errno value underneath an error; 0 when there is none.
int errnoBeneath(const Error &error);

// Throws ResourceShortage when the error of a call came from such a lack.
void throwOnShortage(const std::optional<Error> &error);

} // namespace NS
