// Passes an exception of a callback to the program's handler, else to standard
// error.
#include "Client/CallbackGuard.h"

#include <cstdio>

namespace kw {
namespace {

void tell(const std::exception_ptr &exception) noexcept {
  try {
    std::rethrow_exception(exception);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "libkeepwell: a callback threw an exception: %s\n", error.what());
  } catch (...) {
    std::fputs("libkeepwell: a callback threw an exception\n", stderr);
  }
}

} // namespace

void CallbackGuard::report(const std::exception_ptr &exception) const noexcept {
  if (!handler_)
    return tell(exception);
  try {
    handler_(exception);
  } catch (...) {
    tell(std::current_exception());
  }
}

} // namespace kw
