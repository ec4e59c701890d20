// CoreFoundation and CoreServices as far as the macOS bodies call them: objects
// that count their references, and the answers that a test wants from the
// Finder's, Spotlight's and Launch Services' calls.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kwtest::darwin {

// A value of the platform; text as it must be released, dates in seconds since
// 2001, Other of a class that our code does not know.
struct PlatformDate {
  double seconds;
};
struct OtherValue {};
struct UnpairedSurrogate {}; // text that UTF-8 cannot express
using PlatformValue = std::variant<bool, std::int64_t, double, std::string, PlatformDate,
                                   OtherValue, UnpairedSurrogate>;
using PlatformValues = std::map<std::string, PlatformValue>;

struct Services {
  struct AliasFile {
    std::optional<std::string> target{}; // none: resolving it fails
    bool isFolder = false;
    bool isAlias = true;
  };
  std::map<std::string, AliasFile> aliasFiles;

  struct Registered {
    std::uint32_t flags = 0;
    std::uint32_t type = 0;
  };
  std::map<std::string, Registered> registered; // by path, with "/" behind a folder's
  std::vector<std::uint32_t> requestedInfo;

  std::map<std::string, PlatformValues> index;     // what MDItemCreate finds
  std::map<std::string, PlatformValues> resources; // what URLs tell

  struct LoginItem {
    std::string name;
    std::optional<std::string> path{}; // as registered is keyed; none: resolving fails
    std::int32_t resolutionStatus = 0;
    std::int32_t removalStatus = 0;
    bool isNamed = true;
    bool hasURL = true; // false: resolving succeeds, but without a URL
  };
  bool hasLoginItems = true;
  bool hasSnapshot = true;
  std::vector<LoginItem> loginItems;
  std::vector<std::uint32_t> resolutionFlags;

  int objects = 0; // that were not released
  int pools = 0;   // that were not popped
};

Services &services();

// A fresh one for the length of a test, which must leave nothing behind.
class ServicesScope {
public:
  ServicesScope() { services() = Services(); }
  ~ServicesScope();
  Services *operator->() const { return &services(); }
};

} // namespace kwtest::darwin
