// The user database by the C library's reentrant calls, and tilde expansion.
#include "Foundation/Desktop/HomeDirectory.h"

#include "Foundation/Processes/ProcessInfo.h"

#include <cerrno>
#include <functional>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace NS {
namespace {

using Lookup = std::function<int(struct passwd *record, char *buffer, std::size_t size,
                                 struct passwd **result)>;

// No record is this long; a longer answer of a name service is an error.
constexpr std::size_t longestRecord = std::size_t{1} << 20;

std::optional<std::string> homeDirectoryFromRecord(const Lookup &lookup) {
  std::vector<char> buffer(1024);
  for (;;) {
    struct passwd record;
    struct passwd *result = nullptr;
    int failure = lookup(&record, buffer.data(), buffer.size(), &result);
    if (failure == ERANGE && buffer.size() < longestRecord)
      buffer.resize(buffer.size() * 2);
    else if (failure == EINTR)
      continue;
    else if (failure != 0 || !result || !result->pw_dir)
      return std::nullopt;
    else
      return std::string(result->pw_dir);
  }
}

class HostDatabase final : public UserDatabase {
public:
  std::optional<std::string> homeDirectoryOfCurrentUser() override {
    return homeDirectoryFromRecord(
        [](struct passwd *record, char *buffer, std::size_t size, struct passwd **result) {
          return ::getpwuid_r(::getuid(), record, buffer, size, result);
        });
  }
  std::optional<std::string> homeDirectoryForUser(const std::string &name) override {
    return homeDirectoryFromRecord(
        [&](struct passwd *record, char *buffer, std::size_t size, struct passwd **result) {
          return ::getpwnam_r(name.c_str(), record, buffer, size, result);
        });
  }
};

std::string withoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  return path;
}

} // namespace

UserDatabase &UserDatabase::real() {
  return lastingInstance<HostDatabase>();
}

std::string homeDirectory() {
  ProcessInfo::Environment environment = ProcessInfo::processInfo().environment();
  auto home = environment.find("HOME");
  if (home != environment.end() && home->second.starts_with('/'))
    return withoutTrailingSlashes(home->second);
  return withoutTrailingSlashes(UserDatabase::shared().homeDirectoryOfCurrentUser().value_or("/"));
}

std::string stringByExpandingTildeInPath(std::string_view path) {
  if (!path.starts_with('~'))
    return std::string(path);
  std::size_t slash = path.find('/');
  std::string_view user = path.substr(1, slash == std::string_view::npos ? slash : slash - 1);
  std::string_view rest = slash == std::string_view::npos ? "" : path.substr(slash);
  std::optional<std::string> home;
  if (user.empty())
    home = homeDirectory();
  else if (user.find('\0') == std::string_view::npos)
    home = UserDatabase::shared().homeDirectoryForUser(std::string(user));
  if (!home)
    return withoutTrailingSlashes(std::string(path));
  std::string start = withoutTrailingSlashes(*home);
  if (start == "/" && !rest.empty())
    start.clear();
  return withoutTrailingSlashes(start + std::string(rest));
}

} // namespace NS
