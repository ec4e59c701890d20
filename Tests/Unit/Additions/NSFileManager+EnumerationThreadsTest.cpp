// The search with several threads against the search with one: the same
// results in the same order.
#include "Additions/NSFileManager+Enumeration.h"

#include "Support/FakeProcessors.h"
#include "Support/RandomTree.h"
#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kwtest::FakeProcessors;
using kwtest::RandomTree;
using kwtest::ScratchFolder;

std::vector<std::string> search(const std::string &root, const char *name, bool byWords,
                                unsigned processors) {
  FakeProcessors fake(processors);
  return kw::findFile(NS::FileManager::defaultManager(), name, root, byWords, true);
}

TEST(FindFileThreads, findTheSameInTheSameOrderAsOneOnAThousandTrees) {
  std::size_t found = 0;
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    ScratchFolder scratch(kwtest::quickFolder());
    RandomTree tree(scratch.path(), seed, 40);
    const char *name = seed % 3 == 0 ? "with blank" : "i";
    bool byWords = seed % 6 == 0;
    std::vector<std::string> alone = search(scratch.path(), name, byWords, 1);
    ASSERT_EQ(search(scratch.path(), name, byWords, 4), alone) << seed;
    found += alone.size();
  }
  EXPECT_GT(found, 1000u);
}

} // namespace
