// The walk over a tree, entry by entry, beside the C library's and the
// standard library's.
#include "Foundation/Walking/FTS.h"
#include "Tools/RVFileSizer.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <fts.h>
#include <stdexcept>
#include <string>

namespace {

constexpr int folders = 100;
constexpr int filesPerFolder = 100;
// Each folder is met twice by the walks that tell of its end.
constexpr std::int64_t items = 1 + folders + folders * filesPerFolder;

class Tree {
public:
  Tree() {
    const char *parent = std::getenv("TMPDIR");
    std::string pattern = std::string(parent ? parent : "/tmp") + "/keepwell-walk.XXXXXX";
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no folder for the tree: " + pattern);
    path = pattern;
    for (int folder = 0; folder < folders; ++folder) {
      std::filesystem::path place = path / ("folder " + std::to_string(folder));
      std::filesystem::create_directory(place);
      for (int file = 0; file < filesPerFolder; ++file)
        std::ofstream(place / ("a file of some name " + std::to_string(file)));
    }
  }
  ~Tree() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }

  std::filesystem::path path;
};

const std::string &treePath() {
  static const Tree tree;
  return tree.path.native();
}

void expectItems(benchmark::State &state, std::int64_t met) {
  if (met != items)
    state.SkipWithError("the walk met another number of items");
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * items);
}

void walkOurs(benchmark::State &state) {
  std::int64_t met = 0;
  for (auto _ : state) {
    auto stream = NS::FTS::shared().open(treePath(), NS::FTSOption::PHYSICAL);
    met = 0;
    while (NS::FTSEntry *entry = stream->read())
      met += entry->info != NS::FTSInfo::DP;
  }
  expectItems(state, met);
}

void walkCLibrary(benchmark::State &state) {
  std::int64_t met = 0;
  for (auto _ : state) {
    std::string path = treePath();
    char *paths[] = {path.data(), nullptr};
    FTS *stream = fts_open(paths, FTS_PHYSICAL | FTS_NOCHDIR, nullptr);
    met = 0;
    while (FTSENT *entry = fts_read(stream))
      met += entry->fts_info != FTS_DP;
    fts_close(stream);
  }
  expectItems(state, met);
}

void walkStandardLibrary(benchmark::State &state) {
  std::int64_t met = 0;
  for (auto _ : state) {
    met = 1;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(treePath())) {
      // The others know the size of each item; so must this one.
      std::error_code ignored;
      benchmark::DoNotOptimize(entry.file_size(ignored));
      ++met;
    }
  }
  expectItems(state, met);
}

void measureTree(benchmark::State &state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(kw::RVFileSizer::shared().itemSizeAtPath(treePath()));
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * items);
}

BENCHMARK(walkOurs)->Unit(benchmark::kMillisecond);
BENCHMARK(walkCLibrary)->Unit(benchmark::kMillisecond);
BENCHMARK(walkStandardLibrary)->Unit(benchmark::kMillisecond);
BENCHMARK(measureTree)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
