// The subpath test over two paths, a line each.
#include "Additions/NSStringAdditions.h"
#include "Support/FuzzInput.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  auto [path, ancestor] = kwtest::firstLineAndRest(kwtest::fuzzText(data, size));
  bool isSubpath = kw::isSubpathOf(path, ancestor);
  bool contains = !ancestor.empty() && path.find(ancestor) != std::string_view::npos;
  kwtest::require(contains || !isSubpath, "a subpath contains the path");
  if (!path.empty()) {
    kwtest::require(kw::isSubpathOf(path, path), "a path is a subpath of itself");
    std::string child = std::string(path) + "/" + std::string(ancestor);
    kwtest::require(kw::isSubpathOf(child, path), "a child is a subpath of its parent");
    kwtest::require(!kw::isSubpathOf(path, std::string(path) + "/x"),
                    "a parent is no subpath of its child");
  }
  return 0;
}
