// Looks at the status and the flags of an item.
#include "CommandLine/Look.h"

#include "Foundation/Files/FileFlags.h"
#include "Foundation/Trees/FileManager.h"

#include <filesystem>

namespace kw {
namespace {

std::error_code statusOf(const std::string &path, std::filesystem::file_type &type) {
  std::error_code failure;
  type = std::filesystem::symlink_status(path, failure).type();
  return failure;
}

std::string textOf(std::errc error) {
  return std::make_error_code(error).message();
}

std::optional<std::string> lockOf(const std::string &path) {
  constexpr std::uint32_t locks =
      NS::UF_IMMUTABLE_FLAG | NS::SF_IMMUTABLE_FLAG | NS::UF_APPEND_FLAG | NS::SF_APPEND_FLAG;
  NS::FileStatus status;
  if (NS::FileFlags::shared().status(path, status) != 0 || (status.flags & locks) == 0)
    return std::nullopt;
  return textOf(std::errc::operation_not_permitted) + " (the item is locked)";
}

} // namespace

Presence presenceOf(const std::string &path) {
  std::filesystem::file_type type{};
  static_cast<void>(statusOf(path, type));
  if (type == std::filesystem::file_type::not_found)
    return Presence::Missing;
  return type == std::filesystem::file_type::none ? Presence::Unknown : Presence::There;
}

std::optional<std::string> obstacleToReading(const std::string &path) {
  std::error_code failure;
  static_cast<void>(std::filesystem::status(path, failure));
  if (failure)
    return failure.message();
  if (!NS::FileManager::defaultManager().isReadableFileAtPath(path))
    return textOf(std::errc::permission_denied);
  return std::nullopt;
}

std::optional<std::string> obstacleToWriting(const std::string &path) {
  std::filesystem::file_type type{};
  if (std::error_code failure = statusOf(path, type))
    return failure.message();
  return lockOf(path);
}

std::optional<std::string> obstacleToTruncation(const std::string &path) {
  std::error_code failure;
  auto type = std::filesystem::status(path, failure).type(); // as truncating follows links
  if (failure)
    return failure.message();
  if (type == std::filesystem::file_type::directory)
    return textOf(std::errc::is_a_directory);
  if (type != std::filesystem::file_type::regular)
    return "it is not a regular file";
  return lockOf(path);
}

} // namespace kw
