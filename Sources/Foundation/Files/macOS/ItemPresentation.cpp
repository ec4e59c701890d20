// How the Finder shows an item, by the resource values of its URL.
#include "Foundation/Files/Internal/ItemPresentation.h"

#include "Foundation/Values/macOS/CoreFoundationValues.h"

#include <cerrno>
#include <sys/stat.h>

namespace NS {
namespace {

// Each of these is empty when there is no such thing, and says why by an errno
// value. (errno itself would not outlive the releases on the way out.)

Owned<CFURLRef> urlOfItem(const std::string &path, int &error) {
  struct stat status;
  if (path.find('\0') != std::string::npos)
    error = EINVAL;
  else if (::lstat(path.c_str(), &status) != 0)
    error = errno;
  else if (Owned<CFURLRef> url = platformURL(path, S_ISDIR(status.st_mode)))
    return url;
  else
    error = EIO;
  return Owned<CFURLRef>();
}

Owned<CFTypeRef> resourceValue(CFURLRef url, CFStringRef key, int &error) {
  CFTypeRef value = nullptr;
  bool isRead = ::CFURLCopyResourcePropertyForKey(url, key, &value, nullptr);
  if (!value)
    error = isRead ? ENODATA : EIO;
  return Owned(value);
}

std::optional<std::string> resourceText(CFURLRef url, CFStringRef key, int &error) {
  Owned<CFTypeRef> value = resourceValue(url, key, error);
  if (!value)
    return std::nullopt;
  std::optional<std::string> text;
  if (::CFGetTypeID(value.get()) == ::CFStringGetTypeID())
    text = textOf(static_cast<CFStringRef>(value.get()));
  if (!text)
    error = ENODATA;
  return text;
}

// The platform's icon is a picture; its name is the type that the picture
// is shown for.
std::optional<Icon> iconOf(CFURLRef url, int &error) {
  if (!resourceValue(url, kCFURLEffectiveIconKey, error))
    return std::nullopt;
  auto type = resourceText(url, kCFURLTypeIdentifierKey, error);
  return type ? std::optional(Icon{{*type}}) : std::nullopt;
}

// Asks about the item's URL. On failure errno is set.
template <typename Value>
std::optional<Value> askItem(const std::string &path,
                             std::optional<Value> (*ask)(CFURLRef url, int &error)) {
  int error = 0;
  std::optional<Value> value;
  {
    AutoreleasePool pool;
    if (Owned<CFURLRef> url = urlOfItem(path, error))
      value = ask(url.get(), error);
  }
  if (!value)
    errno = error;
  return value;
}

} // namespace

std::optional<Icon> effectiveIconOfItem(const std::string &path) {
  return askItem<Icon>(path, iconOf);
}

std::optional<std::string> localizedNameOfItem(const std::string &path) {
  return askItem<std::string>(path, [](CFURLRef url, int &error) {
    return resourceText(url, kCFURLLocalizedNameKey, error);
  });
}

} // namespace NS
