// Where users live: the user database and the platform's tilde expansion.
//
// Thread-safe; asking the database may block on the host's name service.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace NS {

// The folder of each user's record; nothing when there is no record.
class UserDatabase {
public:
  virtual ~UserDatabase() = default;
  static UserDatabase &shared();
  static UserDatabase *exchangeShared(UserDatabase *replacement);

  // The record of the real user that runs this process.
  virtual std::optional<std::string> homeDirectoryOfCurrentUser() = 0;
  virtual std::optional<std::string> homeDirectoryForUser(const std::string &name) = 0;
};

// The home that this process is to use: an absolute HOME of the environment,
// which is how a sandbox gives a process another one, else the user's record,
// else "/".
std::string homeDirectory();

// "~" and "~/..." begin at that home, "~user" at the user's record. A path
// without a leading tilde comes back unchanged; one whose user is unknown only
// loses its trailing slash, as an expanded path does.
std::string stringByExpandingTildeInPath(std::string_view path);

} // namespace NS
