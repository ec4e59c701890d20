// Calls functions of the program, and stops their exceptions there.
#pragma once

#include <exception>
#include <functional>
#include <utility>

namespace kw {

// Thread-safe.
class CallbackGuard {
public:
  using Handler = std::function<void(std::exception_ptr exception)>;

  // Without a handler it reports an exception on standard error.
  explicit CallbackGuard(Handler handler) : handler_(std::move(handler)) {}

  template <typename Callback, typename... Arguments>
  void call(const Callback &callback, const Arguments &...arguments) const noexcept {
    try {
      callback(arguments...);
    } catch (...) {
      report(std::current_exception());
    }
  }

private:
  void report(const std::exception_ptr &exception) const noexcept;

  const Handler handler_;
};

} // namespace kw
