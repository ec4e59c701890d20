// Search by name, walk and filtered collection.
#include "Additions/NSFileManager+Enumeration.h"

#include "Additions/ApplicationName.h"
#include "Additions/NSStringAdditions.h"
#include "Foundation/Base/Exception.h"
#include "Foundation/Base/Log.h"
#include "Foundation/Text/PathUtilities.h"
#include "Foundation/Walking/FTS.h"

#include <cstdint>
#include <new>
#include <system_error>

namespace kw {
namespace {

constexpr int searchOptions =
    NS::FTSOption::NOCHDIR | NS::FTSOption::NOSTAT | NS::FTSOption::PHYSICAL;
constexpr int walkOptions = searchOptions | NS::FTSOption::XDEV;

class NameSearch final : public NS::FTSSieve {
public:
  explicit NameSearch(const NameQuery &query)
      : lowerName_(NS::lowercaseString(query.name)), applicationName_(lowerName_, " "),
        byWords_(query.byWords), withCopies_(query.withCopies) {}

  bool isResult(const NS::FTSEntry &entry) const {
    // The cheap test comes first: the candidate may need a look at the file
    // system.
    if (!mayBeResult(entry.name))
      return false;
    std::string name = candidate(entry);
    return (withCopies_ || !applicationName_.hasNumberedCopy(name)) &&
           (!byWords_ || applicationName_.hasItsWordsIn(name));
  }

  // Without memory for the test, the walk's own thread repeats it.
  bool returns(const char *name, NS::FTSInfo /*info*/, const NS::FTSStat & /*status*/,
               std::int64_t & /*number*/) const noexcept override {
    try {
      return mayBeResult(name);
    } catch (const std::bad_alloc &) {
      return true;
    }
  }

private:
  bool mayBeResult(std::string_view name) const {
    return byWords_ || NS::containsLowercase(name, lowerName_);
  }
  static std::string candidate(const NS::FTSEntry &entry) {
    std::string path(entry.path);
    // A name without an extension stays, for any kind of item.
    if (!NS::pathExtension(entry.name).empty())
      path = stringByDeletingRealPathExtension(path);
    return NS::lastPathComponent(NS::lowercaseString(NS::lastPathComponent(path)));
  }

  std::string lowerName_;
  ApplicationName applicationName_;
  bool byWords_;
  bool withCopies_;
};

std::string withoutTrailingSlashes(std::string path) {
  while (path.ends_with('/'))
    path.pop_back();
  return path;
}

void closeStream(NS::FTSStream &stream) {
  try {
    stream.close();
  } catch (const NS::Exception &exception) {
    NS::Log("fts_close exception = %@", exception);
  }
}

// Tells whether the walk ended by itself or because the handler stopped it.
bool walk(NS::FTSStream &stream, bool recursive, const WalkHandler &handler) {
  static_cast<void>(stream.read()); // the root
  bool stop = false;
  while (NS::FTSEntry *entry = stop ? nullptr : stream.read()) {
    if (!recursive)
      stream.set(*entry, NS::FTSInstruction::SKIP);
    if (entry->info == NS::FTSInfo::ERR)
      return false;
    // The root comes again after its contents, or because it is unreadable.
    if (entry->info == NS::FTSInfo::DP || entry->level == 0)
      continue;
    handler(std::string(entry->path), entry->info == NS::FTSInfo::D, stop);
  }
  return stream.failure() == 0;
}

} // namespace

void searchByName(NS::FileManager &, const NameQuery &query, const std::string &atPath,
                  const std::function<void(const std::string &path)> &found) {
  std::string path = withoutTrailingSlashes(atPath);
  // An empty path is the root's.
  if (query.name.empty() || path.empty() || path == ".")
    return;
  NameSearch search(query);
  std::string rootName = NS::lastPathComponent(path);
  // "link/" is the folder at the end of the link; "link" is the link, which has
  // no contents.
  if (atPath.ends_with('/'))
    path += '/';
  // The walk must not visit an item before it knows that the item is not
  // excluded.
  bool visitsAll = query.recursive && !query.isExcluded;
  NS::FTS &walks = NS::FTS::shared();
  std::unique_ptr<NS::FTSStream> stream =
      visitsAll ? walks.openForAll(path, searchOptions, &search) : walks.open(path, searchOptions);
  while (NS::FTSEntry *entry = stream ? stream->read() : nullptr) {
    if (entry->level == 0 || (entry->name == rootName && !query.withCopies))
      continue;
    bool excluded = query.isExcluded && query.isExcluded(std::string(entry->name));
    if (excluded || !query.recursive)
      stream->set(*entry, NS::FTSInstruction::SKIP);
    if (!excluded && search.isResult(*entry))
      found(std::string(entry->path));
  }
  if (stream && stream->failure() != 0)
    NS::Log("%s was not searched to its end: %s", path,
            std::generic_category().message(stream->failure()));
  if (stream)
    stream->close();
}

std::vector<std::string> findFile(NS::FileManager &manager, const std::optional<std::string> &name,
                                  const std::optional<std::string> &atPath, bool matchByWords,
                                  bool recursive, const NameExclusion &filterWith) {
  std::vector<std::string> found;
  searchByName(manager, {name.value_or(""), matchByWords, recursive, filterWith},
               atPath.value_or(""), [&](const std::string &path) { found.push_back(path); });
  return found;
}

std::vector<std::string> findFile(NS::FileManager &manager, const std::optional<std::string> &name,
                                  const std::optional<std::string> &atPath, bool matchByWords,
                                  bool recursive) {
  return findFile(manager, name, atPath, matchByWords, recursive, nullptr);
}

bool kw_FTSWalkAtPath(NS::FileManager &, const std::string &path, bool recursive,
                      const WalkHandler &handler) {
  if (!handler || path.empty())
    return false;
  std::unique_ptr<NS::FTSStream> stream = NS::FTS::shared().open(path, walkOptions);
  if (!stream)
    return false;
  bool complete = walk(*stream, recursive, handler);
  closeStream(*stream);
  return complete;
}

std::vector<std::string> filesByEnumeratingAtPath(NS::FileManager &manager, const std::string &path,
                                                  const PathFilter &withFilterBlock) {
  std::vector<std::string> found;
  if (!manager.fileExistsAtPath(path))
    return found;
  auto enumerator = manager.enumeratorAtPath(path);
  while (auto relativePath = enumerator->nextObject()) {
    if (withFilterBlock && !withFilterBlock(*relativePath))
      continue;
    std::string fullPath =
        kws_stringByExpandingTildeInPath(NS::stringByAppendingPathComponent(path, *relativePath));
    if (manager.fileExistsAtPath(fullPath))
      found.push_back(std::move(fullPath));
  }
  return found;
}

} // namespace kw
