// Conveniences of file URLs.
#include "Additions/NSURLAdditions.h"

#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Log.h"

namespace kw {
namespace {

template <typename T> std::optional<T> resource(const NS::URL &url, NS::URLResourceKey key) {
  std::optional<NS::URLResourceValue> value = resourceForKey(url, key);
  const T *held = value ? std::get_if<T>(&*value) : nullptr;
  return held ? std::optional<T>(*held) : std::nullopt;
}

} // namespace

NS::URL fileURLWithFixedTrailingSlash(const NS::URL &receiver) {
  return NS::URL::fileURLWithPath(receiver.path());
}

std::optional<NS::URLResourceValue> resourceForKey(const NS::URL &receiver,
                                                   NS::URLResourceKey key) {
  std::optional<NS::Error> error;
  std::optional<NS::URLResourceValue> value = NS::getResourceValue(receiver, key, &error);
  if (!error)
    return value;
  NS::Log("Failed to get resource %@ for URL %@", NS::describe(key), receiver);
  return std::nullopt;
}

std::optional<NS::Icon> icon(const NS::URL &receiver) {
  return resource<NS::Icon>(receiver, NS::URLResourceKey::EffectiveIcon);
}

std::optional<std::string> name(const NS::URL &receiver) {
  return resource<std::string>(receiver, NS::URLResourceKey::LocalizedName);
}

bool isInTranslocationFolder(const NS::URL &receiver) {
  return kws_containsString(receiver.path(), "/private/var/folders") &&
         kws_containsString(receiver.path(), "AppTranslocation");
}

} // namespace kw
