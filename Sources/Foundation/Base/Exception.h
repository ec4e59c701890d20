// The platform's exception: a name that handlers can tell apart and a reason
// for people. Foundation throws it; the contract of each function above says
// where that is caught.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace NS {

inline constexpr const char *InternalInconsistencyException = "NSInternalInconsistencyException";
inline constexpr const char *InvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char *RangeException = "NSRangeException";
inline constexpr const char *FileHandleOperationException = "NSFileHandleOperationException";

class Exception : public std::exception {
public:
  Exception(std::string name, std::string reason)
      : name_(std::move(name)), reason_(std::move(reason)) {}

  const std::string &name() const { return name_; }
  const std::string &reason() const { return reason_; }
  const char *what() const noexcept override { return reason_.c_str(); }

private:
  std::string name_;
  std::string reason_;
};

} // namespace NS
