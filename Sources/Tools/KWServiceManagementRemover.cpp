// The edit of the overrides database.
#include "Tools/KWServiceManagementRemover.h"

#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/Bundle.h"
#include "Foundation/Files/FileContents.h"
#include "Foundation/Processes/ProcessInfo.h"
#include "Foundation/PropertyLists/PropertyList.h"

namespace kw {
namespace {

constexpr const char *bookmarksKey = "_com.apple.SMLoginItemBookmarks";

void storeDescription(std::optional<std::string> *slot, const std::string &text) {
  if (slot)
    *slot = text;
}

void removeItem(NS::PropertyList &database, const std::string &bundleID) {
  database.removeObjectForKey(bundleID);
  const NS::PropertyList *found = database.objectForKey(bookmarksKey);
  if (!found)
    return;
  NS::PropertyList bookmarks = *found;
  bookmarks.removeObjectForKey(bundleID);
  database.setObjectForKey(std::move(bookmarks), bookmarksKey);
}

} // namespace

KWServiceManagementRemover &KWServiceManagementRemover::real() {
  return NS::lastingInstance<KWServiceManagementRemover>();
}

std::uint32_t KWServiceManagementRemover::userIdentifier() const {
  return NS::realUserIdentifier();
}

bool KWServiceManagementRemover::removeSMLoginItem(const std::optional<std::string> &bundleID,
                                                   std::optional<std::string> *errorDesc) const {
  if (!bundleID) {
    NS::Log("Nil bundle ID when removing login item.");
    storeDescription(errorDesc,
                     NS::Bundle::mainBundle().localizedStringForKey(
                         "Corrupted startup item. Missing Bundle ID.", "", std::nullopt));
    return false;
  }
  std::string path = NS::stringWithFormat(
      "/private/var/db/launchd.db/com.apple.launchd.peruser.%d/overrides.plist", userIdentifier());
  NS::FileContents &files = NS::FileContents::shared();
  std::optional<NS::Error> error;
  auto former = files.dataWithContentsOfFile(path, &error);
  // The unread database may hold the item.
  if (error && NS::isLimitOfThisProcess(*error)) {
    storeDescription(errorDesc, error->localizedDescription());
    return false;
  }
  auto database = former ? NS::propertyListWithData(*former, nullptr) : std::nullopt;
  if (!database || !database->dictionary())
    return true;
  removeItem(*database, *bundleID);

  auto data = NS::dataWithPropertyList(*database, &error);
  if (!data) {
    if (error) {
      storeDescription(errorDesc, error->localizedDescription());
      NS::Log("Error occured: %@", error->localizedDescription()); // (sic)
    }
    return false;
  }
  if (files.writeToFileAtomically(path, *data, &error))
    return true;
  if (error)
    storeDescription(errorDesc, error->localizedDescription());
  return false;
}

} // namespace kw
