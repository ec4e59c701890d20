// A list of places, each searched one level deep: deeper items belong to their
// folders.
#include "CommandLine/Leftovers.h"

#include "Additions/NSFileManager+Enumeration.h"
#include "Foundation/Desktop/HomeDirectory.h"
#include "Foundation/Desktop/StandardFolders.h"

#include <algorithm>

namespace kw {
namespace {

// In the home.
constexpr const char *userPlaces[] = {"",
                                      ".config",
                                      ".cache",
                                      ".local/share",
                                      ".local/bin",
                                      ".local/state",
                                      ".var/app",
                                      ".local/share/applications",
                                      ".config/autostart",
                                      ".config/systemd/user",
                                      "Library/Application Support",
                                      "Library/Caches",
                                      "Library/Containers",
                                      "Library/LaunchAgents",
                                      "Library/Logs",
                                      "Library/Preferences",
                                      "Library/Saved Application State"};

constexpr const char *systemPlaces[] = {"/etc",
                                        "/etc/cron.d",
                                        "/etc/default",
                                        "/etc/init.d",
                                        "/etc/logrotate.d",
                                        "/etc/systemd/system",
                                        "/etc/xdg",
                                        "/opt",
                                        "/usr/local/bin",
                                        "/usr/local/etc",
                                        "/usr/local/lib",
                                        "/usr/local/share",
                                        "/usr/local/share/applications",
                                        "/var/cache",
                                        "/var/lib",
                                        "/var/log",
                                        "/var/opt",
                                        "/var/spool",
                                        "/Applications",
                                        "/Library/Application Support",
                                        "/Library/Caches",
                                        "/Library/LaunchAgents",
                                        "/Library/LaunchDaemons",
                                        "/Library/Logs",
                                        "/Library/Preferences"};

void addPlace(const std::string &path, std::vector<std::string> &places) {
  bool isFolder = false;
  if (NS::FileManager::defaultManager().fileExistsAtPath(path, isFolder) && isFolder &&
      std::find(places.begin(), places.end(), path) == places.end())
    places.push_back(path);
}

} // namespace

std::vector<std::string> placesOfLeftovers() {
  std::vector<std::string> places;
  std::string home = NS::homeDirectory();
  for (const char *name : userPlaces)
    if (home != "/")
      addPlace(*name ? home + "/" + name : home, places);
  // The user may have others than the usual ones.
  for (auto kind : {NS::SearchPathDirectory::ApplicationSupport, NS::SearchPathDirectory::Caches})
    for (const std::string &path : NS::StandardFolders::shared().searchPathForDirectoriesInDomains(
             kind, NS::UserDomainMask, true))
      addPlace(path, places);
  for (const char *path : systemPlaces)
    addPlace(path, places);
  return places;
}

std::vector<std::string> leftoversOf(const std::string &name, bool byWords, bool withCopies) {
  NameQuery query{.name = name, .byWords = byWords, .recursive = false, .withCopies = withCopies};
  std::vector<std::string> places = placesOfLeftovers();
  std::vector<std::string> found;
  for (const std::string &place : places)
    searchByName(NS::FileManager::defaultManager(), query, place, [&](const std::string &path) {
      bool isPlace = std::find(places.begin(), places.end(), path) != places.end();
      if (!isPlace && std::find(found.begin(), found.end(), path) == found.end())
        found.push_back(path);
    });
  return found;
}

} // namespace kw
