// The text of an error.
#include "Client/ClientError.h"

namespace kw {

const char *ClientError::what() const noexcept {
  return texts_->message.c_str();
}

} // namespace kw
