// The table of standard folders.
#include "Foundation/Desktop/Internal/StandardFolderTable.h"

#include "Foundation/Text/PathUtilities.h"

namespace NS {
namespace {

using Directory = SearchPathDirectory;
using Base = FolderBase;

struct Row {
  SearchPathDomainMask domain;
  Directory directory;
  FolderPlace linux;
  FolderPlace macOS;
};

constexpr FolderPlace none{};

// By domain, in the order of the search.
constexpr Row rows[] = {
    {UserDomainMask,
     Directory::Application,
     {Base::UserData, "applications"},
     {Base::Home, "Applications"}},
    {UserDomainMask, Directory::Library, {Base::UserData}, {Base::Home, "Library"}},
    {UserDomainMask, Directory::Document, {Base::UserDirectory}, {Base::Home, "Documents"}},
    {UserDomainMask, Directory::Desktop, {Base::UserDirectory}, {Base::Home, "Desktop"}},
    {UserDomainMask, Directory::Caches, {Base::UserCaches}, {Base::Home, "Library/Caches"}},
    {UserDomainMask,
     Directory::ApplicationSupport,
     {Base::UserData},
     {Base::Home, "Library/Application Support"}},
    {UserDomainMask, Directory::Downloads, {Base::UserDirectory}, {Base::Home, "Downloads"}},
    {UserDomainMask, Directory::Movies, {Base::UserDirectory}, {Base::Home, "Movies"}},
    {UserDomainMask, Directory::Music, {Base::UserDirectory}, {Base::Home, "Music"}},
    {UserDomainMask, Directory::Pictures, {Base::UserDirectory}, {Base::Home, "Pictures"}},
    {UserDomainMask, Directory::SharedPublic, {Base::UserDirectory}, {Base::Home, "Public"}},
    {UserDomainMask, Directory::Trash, {Base::UserData, "Trash"}, {Base::Home, ".Trash"}},
    {LocalDomainMask,
     Directory::Application,
     {Base::Root, "usr/local/share/applications"},
     {Base::Root, "Applications"}},
    {LocalDomainMask, Directory::Library, {Base::Root, "usr/local/share"}, {Base::Root, "Library"}},
    {LocalDomainMask,
     Directory::ApplicationSupport,
     {Base::Root, "usr/local/share"},
     {Base::Root, "Library/Application Support"}},
    {LocalDomainMask, Directory::Caches, {Base::Root, "var/cache"}, {Base::Root, "Library/Caches"}},
    {NetworkDomainMask, Directory::Application, none, {Base::Root, "Network/Applications"}},
    {NetworkDomainMask, Directory::Library, none, {Base::Root, "Network/Library"}},
    {NetworkDomainMask,
     Directory::ApplicationSupport,
     none,
     {Base::Root, "Network/Library/Application Support"}},
    {SystemDomainMask,
     Directory::Application,
     {Base::Root, "usr/share/applications"},
     {Base::Root, "System/Applications"}},
    {SystemDomainMask,
     Directory::Library,
     {Base::Root, "usr/share"},
     {Base::Root, "System/Library"}},
    {SystemDomainMask, Directory::ApplicationSupport, {Base::Root, "usr/share"}, none},
    {SystemDomainMask, Directory::Caches, none, {Base::Root, "System/Library/Caches"}},
};

} // namespace

std::vector<FolderPlace> standardFolderPlaces(FolderHost host, SearchPathDirectory directory,
                                              SearchPathDomainMask domainMask) {
  std::vector<FolderPlace> places;
  for (const Row &row : rows) {
    const FolderPlace &place = host == FolderHost::Linux ? row.linux : row.macOS;
    if (row.directory == directory && (row.domain & domainMask) && place.base != Base::None)
      places.push_back(place);
  }
  return places;
}

std::string standardFolderPath(std::string_view base, std::string_view path) {
  return path.empty() ? std::string(base) : stringByAppendingPathComponent(base, path);
}

std::string stringByAbbreviatingHome(const std::string &path, const std::string &home) {
  if (home == "/" || (path != home && !path.starts_with(home + "/")))
    return path;
  std::string shortened(1, '~');
  return shortened.append(path, home.size());
}

} // namespace NS
