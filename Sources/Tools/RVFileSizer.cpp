// Measuring by walking the tree, whole or until someone asks to stop.
#include "Tools/RVFileSizer.h"

#include "Additions/NSNumber+RVFileSizeAdditions.h"
#include "Foundation/Base/AssertionHandler.h"
#include "Foundation/Base/Environment.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Desktop/Metadata.h"
#include "Foundation/Threads/Dispatch.h"
#include "Foundation/Threads/Monitor.h"
#include "Foundation/Walking/Exhaustion.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>

namespace kw {
namespace {

constexpr std::int64_t blockUnit = 512;
// In bytes. A larger item counts with its logical size, not its allocated
// blocks.
constexpr std::int64_t largestSizeInBlocks = 2'199'023'255'551;

std::atomic<bool> returnUncompressedFileSize{false};

bool countsBytes() {
  return returnUncompressedFileSize.load(std::memory_order_relaxed);
}

std::int64_t uncompressedSize(NS::FTSInfo info, const NS::FTSStat &status) {
  bool isFolder = info == NS::FTSInfo::D || info == NS::FTSInfo::DP;
  std::int64_t size = isFolder ? 0 : status.size;
  std::int64_t block = status.blockSize;
  if (block == 0 || size % block == 0)
    return size;
  return NS::wrappingSum(size, block - size % block);
}

// The item alone: 512-byte blocks, or bytes in the uncompressed mode.
std::int64_t ownSize(NS::FTSInfo info, const NS::FTSStat &status) {
  if (countsBytes())
    return uncompressedSize(info, status);
  if (status.size <= largestSizeInBlocks)
    return status.blocks;
  bool roundsUp = info == NS::FTSInfo::DP && status.size % blockUnit != 0;
  return status.size / blockUnit + (roundsUp ? 1 : 0);
}

// Has the walk add up the files of each folder by itself.
class FileSizes final : public NS::FTSSieve {
public:
  bool returns(const char * /*name*/, NS::FTSInfo info, const NS::FTSStat &status,
               std::int64_t &number) const noexcept override {
    number = ownSize(info, status);
    return false;
  }
};

// How many blocks of 512 bytes the block of the environment holds.
std::int64_t blockDivisor() {
  return NS::getbsize() / blockUnit;
}

std::uint64_t bytesFromTotal(std::int64_t total, std::int64_t divisor) {
  if (countsBytes())
    return static_cast<std::uint64_t>(total);
  std::int64_t blocks = total / divisor + (total % divisor > 0 ? 1 : 0);
  return static_cast<std::uint64_t>(blocks) * static_cast<std::uint64_t>(blockUnit);
}

bool isUnreadable(NS::FTSInfo info) {
  return info == NS::FTSInfo::DNR || info == NS::FTSInfo::ERR || info == NS::FTSInfo::NS;
}

void logUnreadable(const NS::FTSEntry &entry) {
  NS::Log("%s: %s", entry.path, std::generic_category().message(entry.errnum));
}

enum class Vanished { Logged, PassedOver };

// Adds the entry to the sum of its parent, which is the parent's number.
void accumulate(NS::FTSEntry &entry, Vanished vanished) {
  if (entry.info == NS::FTSInfo::DC)
    return;
  if (isUnreadable(entry.info)) {
    if (entry.errnum != ENOENT || vanished == Vanished::Logged)
      logUnreadable(entry);
    return;
  }
  std::int64_t size = ownSize(entry.info, entry.statp);
  if (entry.info == NS::FTSInfo::DP)
    size = entry.number = NS::wrappingSum(entry.number, size);
  entry.parent->number = NS::wrappingSum(entry.parent->number, size);
}

std::unique_ptr<NS::FTSStream> openWalk(const std::string &path, const NS::FTSSieve *sieve) {
  return NS::FTS::shared().openForAll(path, NS::FTSOption::PHYSICAL | NS::FTSOption::NOCHDIR,
                                      sieve);
}

void closeWalk(NS::FTSStream &stream) {
  try {
    stream.close();
  } catch (const NS::Exception &exception) {
    NS::Log("fts_close exception = %@", exception);
  }
}

void noteGivenUp(const std::string &path, int errnum, NS::ErrorSlot error) {
  NS::Log("%s was not measured to its end: %s", path, std::generic_category().message(errnum));
  NS::storeError(error, NS::fileError(errnum, path, NS::FileAccess::Reading));
}

// 0 when the index does not know the item.
std::uint64_t indexedSize(const NS::String &path) {
  NS::Monitor monitor(path);
  std::unique_ptr<NS::MetadataItem> item = NS::MetadataStore::shared().createItem(path.string());
  if (!item)
    return 0;
  std::shared_ptr<NS::Object> attribute = item->copyAttribute(NS::MetadataPhysicalSizeKey);
  auto number = std::dynamic_pointer_cast<NS::Number>(attribute);
  return number ? fileSizeValue(*number) : 0;
}

// The requests to give up, in order, guarded by the list's own monitor. Made
// by the first request and never released, so that a process that stops no
// scan pays nothing for it.
struct StopList : NS::Object {
  std::vector<std::string> paths;
};

std::atomic<StopList *> stopList{nullptr};

StopList &madeStopList() {
  static StopList *made = new StopList;
  stopList.store(made, std::memory_order_release);
  return *made;
}

// The first scan that meets a request consumes it.
bool consumeStopRequest(const std::string &path) {
  StopList *list = stopList.load(std::memory_order_acquire);
  if (!list)
    return false;
  NS::Monitor monitor(*list);
  return std::erase(list->paths, path) > 0;
}

} // namespace

RVFileSizer::RVFileSizer() {
  static std::once_flag initialized;
  std::call_once(initialized, [] { NS::setEnvironmentVariable("BLOCKSIZE", "512"); });
}

const RVFileSizer &RVFileSizer::shared() {
  struct Shared final : RVFileSizer {};
  static const Shared instance;
  return instance;
}

void RVFileSizer::setReturnUncompressedFileSize(bool uncompressed) const {
  returnUncompressedFileSize.store(uncompressed, std::memory_order_relaxed);
}

std::uint64_t RVFileSizer::itemSizeAtPath(const std::string &path) const {
  return originalItemSizeAtPath(path);
}

std::uint64_t RVFileSizer::itemSizeAtURL(const NS::URL &url) const {
  return itemSizeAtPath(url.path());
}

std::uint64_t RVFileSizer::originalItemSizeAtPath(const std::string &path) const {
  return wholeItemSizeAtPath(path, nullptr);
}

std::uint64_t RVFileSizer::wholeItemSizeAtPath(const std::string &path, NS::ErrorSlot error) const {
  if (path.empty())
    return 0;
  std::int64_t divisor = blockDivisor();
  FileSizes sizes;
  std::unique_ptr<NS::FTSStream> stream = openWalk(path, &sizes);
  if (!stream) {
    if (int errnum = errno; NS::isExhaustion(errnum))
      NS::storeError(error, NS::fileError(errnum, path, NS::FileAccess::Reading));
    NS::Log("Error opening file %@", path);
    return 0;
  }
  std::int64_t total = 0;
  while (NS::FTSEntry *entry = stream->read()) {
    accumulate(*entry, Vanished::PassedOver);
    total = entry->parent->number;
  }
  if (int errnum = stream->failure(); errnum != 0)
    noteGivenUp(path, errnum, error);
  closeWalk(*stream);
  return bytesFromTotal(total, divisor);
}

std::uint64_t RVFileSizer::itemSizeAtPathAbleToStop(const std::string &path) const {
  return itemSizeAtPathAbleToStop(*NS::String::stringWithString(path));
}

std::uint64_t RVFileSizer::itemSizeAtPathAbleToStop(const NS::String &pathObject) const {
  const std::string &path = pathObject.string();
  if (path.empty())
    return 0;
  if (std::uint64_t size = indexedSize(pathObject); size != 0)
    return size;
  std::int64_t divisor = blockDivisor();
  std::unique_ptr<NS::FTSStream> stream = openWalk(path, nullptr);
  if (!stream) {
    NS::Log("Error openning file %@", path); // (sic)
    return 0;
  }
  std::int64_t total = 0;
  while (NS::FTSEntry *entry = stream->read()) {
    // The stream closes as it goes out of scope.
    if (consumeStopRequest(path))
      return 0;
    accumulate(*entry, Vanished::Logged);
    total = entry->parent->number;
  }
  if (int errnum = stream->failure(); errnum != 0)
    noteGivenUp(path, errnum, nullptr);
  closeWalk(*stream);
  return bytesFromTotal(total, divisor);
}

void RVFileSizer::stopScanningForPath(const std::optional<std::string> &path) const {
  StopList &list = madeStopList();
  NS::Monitor monitor(list);
  if (path && std::find(list.paths.begin(), list.paths.end(), *path) == list.paths.end())
    list.paths.push_back(*path);
}

void RVFileSizer::restorePathsToBeStopped() const {
  StopList *list = stopList.load(std::memory_order_acquire);
  if (!list)
    return;
  NS::Monitor monitor(*list);
  list->paths.clear();
}

std::optional<std::vector<std::string>> RVFileSizer::pathsToBeStopped() const {
  StopList *list = stopList.load(std::memory_order_acquire);
  if (!list)
    return std::nullopt;
  NS::Monitor monitor(*list);
  return list->paths;
}

std::uint64_t RVFileSizer::itemSizeWithFTSEntry(const NS::FTSEntry *entry) const {
  if (!entry || entry->info == NS::FTSInfo::DC)
    return 0;
  if (isUnreadable(entry->info)) {
    logUnreadable(*entry);
    return 0;
  }
  std::int64_t size = entry->statp.linkCount < 2 ? ownSize(entry->info, entry->statp) : 0;
  return bytesFromTotal(size, blockDivisor());
}

void RVFileSizer::fetchItemSizeAtURL(const std::optional<NS::URL> &url,
                                     CompletionBlock completionBlock) const {
  constexpr const char *file = "Sources/Tools/RVFileSizer";
  constexpr const char *complaint = "Invalid parameter not satisfying: %@";
  if (!url)
    return NS::assertionFailed(file, complaint, "url");
  if (!completionBlock)
    return NS::assertionFailed(file, complaint, "completionBlock");
  NS::DispatchQueue::backgroundQueue().async(
      [this, path = url->path(), block = std::move(completionBlock)] {
        block(itemSizeAtPath(path));
      });
}

} // namespace kw
