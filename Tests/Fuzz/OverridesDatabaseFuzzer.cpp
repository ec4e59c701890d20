// Any file as the database of login items, an identifier on its first line:
// the item is gone, and nothing else.
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/PropertyLists/PropertyList.h"
#include "Support/FakeFileContents.h"
#include "Support/FuzzInput.h"
#include "Tools/KWServiceManagementRemover.h"

namespace {

class Remover final : public kw::KWServiceManagementRemover {
  std::uint32_t userIdentifier() const override { return 501; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  constexpr const char *path =
      "/private/var/db/launchd.db/com.apple.launchd.peruser.501/overrides.plist";
  auto [line, database] = kwtest::firstLineAndRest(kwtest::fuzzText(data, size));
  std::string identifier(line);
  kwtest::FakeFileContents files;
  files.files[path] = std::string(database);
  NS::ScopedOverride<NS::FileContents> override(files);
  auto before = NS::dictionaryWithContentsOfFile(path);
  bool removed = Remover().removeSMLoginItem(identifier, nullptr);
  auto after = NS::dictionaryWithContentsOfFile(path);
  if (!before || !removed) {
    kwtest::require(files.files[path] == database, "nothing is written for nothing");
    return 0;
  }
  if (!after) // longer than the reader takes, once written as text
    return 0;
  kwtest::require(!after->objectForKey(identifier), "the item is gone");
  std::size_t missing = 0;
  for (const NS::PropertyList::Entry &entry : *before->dictionary())
    missing += after->objectForKey(entry.key) ? 0U : 1U;
  kwtest::require(missing <= 1, "nothing else is");
  return 0;
}
