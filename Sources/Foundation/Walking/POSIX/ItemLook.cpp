// Looks by stat, unless the type of the record says enough.
#include "Foundation/Walking/Internal/ItemLook.h"

#include "Foundation/Walking/POSIX/DirectoryRecords.h"
#include "Foundation/Walking/POSIX/FolderCalls.h"

namespace NS {
namespace {

FTSInfo infoOfMode(std::uint32_t mode) {
  if (S_ISDIR(mode))
    return FTSInfo::D;
  if (S_ISREG(mode))
    return FTSInfo::F;
  return S_ISLNK(mode) ? FTSInfo::SL : FTSInfo::DEFAULT;
}

} // namespace

FoundItem foundBy(int errnum, const FTSStat &status) {
  if (errnum != 0)
    return {{}, FTSInfo::NS, errnum};
  return {status, infoOfMode(status.mode), 0};
}

FoundItem ItemLook::at(int folder, const char *name, std::uint8_t type) const {
  if (!looksAtAll_ && !mayBeFolder(type))
    return {};
  FTSStat status;
  return foundBy(foldercalls::readStatus(folder, name, status), status);
}

bool ItemLook::holdsBack(const char *name, const FoundItem &found, HeldItems &held) const {
  std::int64_t number = 0;
  if (!sieve_ || found.info == FTSInfo::D || found.info == FTSInfo::NS ||
      sieve_->returns(name, found.info, found.status, number))
    return false;
  ++held.items;
  held.bytes += found.status.allocatedBytes();
  held.number = wrappingSum(held.number, number);
  return true;
}

} // namespace NS
