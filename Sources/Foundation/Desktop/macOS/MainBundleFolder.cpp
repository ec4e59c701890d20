// The main bundle: the application whose program this is, else the folder that
// holds the program.
#include "Foundation/Desktop/Internal/MainBundleFolder.h"

#include "Foundation/Text/PathUtilities.h"

#include <cstdint>
#include <cstdlib>
#include <mach-o/dyld.h>
#include <memory>

namespace NS {
namespace {

// Without links; empty when the program's file is gone.
std::string executablePath() {
  std::uint32_t size = 0;
  static_cast<void>(::_NSGetExecutablePath(nullptr, &size)); // tells the size
  std::string given(size, '\0');
  if (::_NSGetExecutablePath(given.data(), &size) != 0)
    return "";
  std::unique_ptr<char, decltype(&std::free)> real(::realpath(given.c_str(), nullptr), &std::free);
  return real ? real.get() : "";
}

} // namespace

std::string mainBundleFolder() {
  std::string folder = stringByDeletingLastPathComponent(executablePath());
  std::string contents = stringByDeletingLastPathComponent(folder);
  bool isInBundle =
      lastPathComponent(folder) == "MacOS" && lastPathComponent(contents) == "Contents";
  return isInBundle ? stringByDeletingLastPathComponent(contents) : folder;
}

} // namespace NS
