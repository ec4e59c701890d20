// Path arithmetic on one normal form: single slashes and none at the end.
#include "Foundation/Text/PathUtilities.h"

namespace NS {
namespace {

std::string fixedSlashes(std::string_view path) {
  std::string fixed;
  fixed.reserve(path.size());
  for (char c : path)
    if (c != '/' || fixed.empty() || fixed.back() != '/')
      fixed += c;
  if (fixed.size() > 1 && fixed.back() == '/')
    fixed.pop_back();
  return fixed;
}

// The index at which the last component of a fixed path begins.
std::size_t lastComponentStart(std::string_view fixed) {
  std::size_t slash = fixed.rfind('/');
  return slash == std::string_view::npos ? 0 : slash + 1;
}

// The place of the extension's dot in a fixed path, npos when there is none.
std::size_t extensionDot(std::string_view fixed) {
  std::size_t start = lastComponentStart(fixed);
  std::size_t dot = fixed.rfind('.');
  bool found = dot != std::string_view::npos && dot > start && dot + 1 < fixed.size();
  return found ? dot : std::string_view::npos;
}

} // namespace

std::string stringByDeletingLastPathComponent(std::string_view path) {
  std::string fixed = fixedSlashes(path);
  std::size_t start = lastComponentStart(fixed);
  if (start == 0)
    return "";
  return fixed.substr(0, start == 1 ? 1 : start - 1);
}

std::string lastPathComponent(std::string_view path) {
  std::string fixed = fixedSlashes(path);
  return fixed == "/" ? fixed : fixed.substr(lastComponentStart(fixed));
}

std::string stringByAppendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty())
    return fixedSlashes(component);
  if (component.empty())
    return fixedSlashes(path);
  std::string joined(path);
  joined += '/';
  joined += component;
  return fixedSlashes(joined);
}

std::string pathExtension(std::string_view path) {
  std::string fixed = fixedSlashes(path);
  std::size_t dot = extensionDot(fixed);
  return dot == std::string::npos ? "" : fixed.substr(dot + 1);
}

std::string stringByDeletingPathExtension(std::string_view path) {
  std::string fixed = fixedSlashes(path);
  std::size_t dot = extensionDot(fixed);
  return dot == std::string::npos ? fixed : fixed.substr(0, dot);
}

std::string stringByAppendingPathExtension(std::string_view path, std::string_view extension) {
  std::string fixed = fixedSlashes(path);
  if (fixed.empty() || fixed == "/")
    return std::string(path);
  return fixed + "." + std::string(extension);
}

bool holdsNul(std::string_view path) {
  return path.find('\0') != std::string_view::npos;
}

bool isFileName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         !holdsNul(name);
}

} // namespace NS
