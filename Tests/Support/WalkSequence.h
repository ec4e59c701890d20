// Walks written down, entry by entry, so that two can be compared as texts.
#pragma once

#include "Foundation/Walking/FTS.h"

#include <cstdint>
#include <fts.h>
#include <functional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace kwtest {

// One line for each entry, so that two walks can be compared as texts.
inline std::string entryLine(int info, int level, std::string_view path, std::string_view name,
                             int errnum, std::int64_t size, std::uint64_t inode) {
  return std::to_string(info) + " " + std::to_string(level) + " " + std::string(path) + " " +
         std::string(name) + " " + std::to_string(errnum) + " " + std::to_string(size) + " " +
         std::to_string(inode) + "\n";
}

inline bool skips(std::string_view path, unsigned every) {
  return every != 0 && std::hash<std::string_view>{}(path) % every == 0;
}

// Of every entry that a stream gives.
inline std::string sequence(NS::FTSStream &stream, int options, unsigned skipEvery = 0) {
  std::string text;
  while (NS::FTSEntry *entry = stream.read()) {
    bool hasStatus = !(options & NS::FTSOption::NOSTAT) && entry->info != NS::FTSInfo::NS;
    text += entryLine(static_cast<int>(entry->info), entry->level, entry->path, entry->name,
                      entry->errnum, hasStatus ? entry->statp.size : 0,
                      hasStatus ? entry->statp.inode : 0);
    if (entry->info == NS::FTSInfo::D && skips(entry->path, skipEvery))
      stream.set(*entry, NS::FTSInstruction::SKIP);
  }
  return text;
}

inline std::string ours(const std::string &root, int options, unsigned skipEvery = 0) {
  return sequence(*NS::FTS::shared().open(root, options), options, skipEvery);
}

// Of every entry that the C library's walk gives.
inline std::string theirs(const std::string &root, int options, unsigned skipEvery = 0) {
  std::string text;
  std::string copy = root;
  char *roots[] = {copy.data(), nullptr};
  ::FTS *stream = ::fts_open(roots, options, nullptr);
  while (FTSENT *entry = ::fts_read(stream)) {
    bool hasStatus = !(options & FTS_NOSTAT) && entry->fts_info != FTS_NS;
    bool hasError =
        entry->fts_info == FTS_NS || entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR;
    text += entryLine(entry->fts_info, entry->fts_level, entry->fts_path, entry->fts_name,
                      hasError ? entry->fts_errno : 0, hasStatus ? entry->fts_statp->st_size : 0,
                      hasStatus ? entry->fts_statp->st_ino : 0);
    if (entry->fts_info == FTS_D && skips(entry->fts_path, skipEvery))
      ::fts_set(stream, entry, FTS_SKIP);
  }
  ::fts_close(stream);
  return text;
}

} // namespace kwtest
