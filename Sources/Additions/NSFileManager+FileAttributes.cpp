// Times and the hidden flag.
#include "Additions/NSFileManager+FileAttributes.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/Metadata.h"
#include "Foundation/Files/FileFlags.h"
#include "Foundation/Values/Number.h"

#include <cstdint>

namespace kw {
namespace {

// Limited to the range of the type; 0 for NaN.
std::int64_t wholeSeconds(double interval) {
  return NS::Number::numberWithDouble(interval)->longLongValue();
}

std::int64_t statTime(const std::optional<std::string> &path, std::int64_t NS::FileStatus::*time) {
  NS::FileStatus status;
  if (!path || NS::FileFlags::shared().status(*path, status) != 0)
    return 0;
  return wholeSeconds(static_cast<double>(status.*time));
}

// Null when the index does not know the item.
std::shared_ptr<NS::Object> dateByIndex(const std::string &path) {
  std::unique_ptr<NS::MetadataItem> item = NS::MetadataStore::shared().createItem(path);
  if (!item)
    return nullptr;
  auto lastUsed = item->copyAttribute(NS::MetadataLastUsedDateKey);
  return lastUsed ? lastUsed : item->copyAttribute(NS::MetadataContentModificationDateKey);
}

} // namespace

std::int64_t statCreationTimeAtPath(NS::FileManager &, const std::optional<std::string> &path) {
  return statTime(path, &NS::FileStatus::birthTime);
}

std::int64_t statModificationTimeAtPath(NS::FileManager &, const std::optional<std::string> &path) {
  return statTime(path, &NS::FileStatus::modificationTime);
}

std::int64_t statAccessTimeAtPath(NS::FileManager &, const std::optional<std::string> &path) {
  if (!path)
    return 0;
  if (auto date = std::dynamic_pointer_cast<NS::Date>(dateByIndex(*path)))
    return wholeSeconds(date->timeIntervalSince1970());
  return statTime(path, &NS::FileStatus::accessTime);
}

std::shared_ptr<NS::Date> lastAccessDateAtPath(NS::FileManager &,
                                               const std::optional<std::string> &path) {
  return NS::Date::dateWithTimeIntervalSince1970(
      static_cast<double>(statAccessTimeAtPath(NS::FileManager::defaultManager(), path)));
}

bool isFileHidden(NS::FileManager &, const std::string &path) {
  NS::FileStatus status;
  if (NS::FileFlags::shared().status(path, status) != 0) {
    NS::Log("Failed to stat %@", path);
    return false;
  }
  return (status.flags & NS::UF_HIDDEN_FLAG) != 0;
}

} // namespace kw
