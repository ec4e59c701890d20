// Home folders of users: the user database and the platform's tilde expansion.
//
// Thread-safe; asking the database may block on the host's name service.
#pragma once

#include "Foundation/Base/SharedInstance.h"

#include <optional>
#include <string>
#include <string_view>

namespace NS {

// The home folder in a user's record; empty when there is no record.
class UserDatabase : public SharedInstance<UserDatabase> {
public:
  virtual ~UserDatabase() = default;
  static UserDatabase &real();

  // The record of the real user that runs this process.
  virtual std::optional<std::string> homeDirectoryOfCurrentUser() = 0;
  virtual std::optional<std::string> homeDirectoryForUser(const std::string &name) = 0;
};

// The home of this process: an absolute HOME of the environment, by which a
// sandbox gives a process another home, else that of the user's record, else
// "/".
std::string homeDirectory();

// Replaces "~" at the start of "~" and "~/..." by that home, "~user" by that of
// the user's record. A path without a leading tilde comes back unchanged; one
// with an unknown user only loses its trailing slash, as any expanded path
// does.
std::string stringByExpandingTildeInPath(std::string_view path);

} // namespace NS
