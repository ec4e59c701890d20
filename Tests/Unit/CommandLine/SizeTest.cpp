// The report on a tree level by level: its sums, the items left out, and the
// agent's measurements.
#include "Support/AnsweredCommand.h"
#include "Support/FakeFTS.h"
#include "Support/ForkedChild.h"

#include "CommandLine/MeasuredTree.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using kw::MeasuredItem;
using kwtest::Strings;

std::uint64_t blocksOf(const std::string &path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return static_cast<std::uint64_t>(status.st_blocks) * 512;
}

class SizeOfTree : public kwtest::AnsweredCommand {
protected:
  SizeOfTree() {
    fs::create_directories(scratch.path("tree/large/deep"));
    fs::create_directories(scratch.path("tree/small"));
    scratch.file("tree/large/deep/file", std::string(300'000, 'x'));
    scratch.file("tree/small/file", std::string(20'000, 'x'));
    scratch.file("tree/middle", std::string(100'000, 'x'));
    for (const auto &entry : fs::recursive_directory_iterator(tree))
      all += blocksOf(entry.path());
    all += blocksOf(tree);
  }
  std::string bytes(std::uint64_t number) const { return std::to_string(number); }
  std::string line(std::uint64_t number, const std::string &name) const {
    return std::to_string(number) + "\t" + tree + name + "\n";
  }
  std::uint64_t sizeOf(const std::string &name) const {
    std::uint64_t sum = blocksOf(tree + name);
    if (fs::is_directory(tree + name))
      for (const auto &entry : fs::recursive_directory_iterator(tree + name))
        sum += blocksOf(entry.path());
    return sum;
  }

  std::string tree = scratch.path("tree");
  std::uint64_t all = 0;
};

TEST_F(SizeOfTree, isToldLevelByLevelWithTheLargestFirst) {
  EXPECT_EQ(run({"size", "--bytes", "--children", tree}), 0);
  std::string children = line(sizeOf("/large"), "/large") + line(sizeOf("/middle"), "/middle") +
                         line(sizeOf("/small"), "/small");
  EXPECT_EQ(out.str(), line(all, "") + children);
  EXPECT_EQ(err.str(), "");
  EXPECT_TRUE(record.requests.empty()) << "it was measured here";
  EXPECT_EQ(run({"size", "--bytes", "-d2", tree}), 0);
  EXPECT_EQ(out.str(), line(all, "") + line(sizeOf("/large"), "/large") +
                           line(sizeOf("/large/deep"), "/large/deep") +
                           line(sizeOf("/middle"), "/middle") + line(sizeOf("/small"), "/small") +
                           line(sizeOf("/small/file"), "/small/file"));
  EXPECT_EQ(run({"size", "--bytes", "-d", "0", tree}), 0);
  EXPECT_EQ(out.str(), line(all, ""));
}

TEST_F(SizeOfTree, isToldInTheOrderOfNamesWhereItIsTheSame) {
  std::string folder = scratch.path("files");
  fs::create_directory(folder);
  for (const char *name : {"c", "a", "d", "b"})
    scratch.file(std::string("files/") + name, std::string(5000, 'x'));
  scratch.file("files/z", std::string(300'000, 'x'));
  EXPECT_EQ(run({"size", "--bytes", "--apparent", "--children", folder}), 0);
  std::string lines = out.str().substr(out.str().find('\n') + 1);
  std::string expected = "300000\t" + folder + "/z\n";
  for (const char *name : {"a", "b", "c", "d"})
    expected += "5000\t" + folder + "/" + name + "\n";
  EXPECT_EQ(lines, expected);
}

TEST_F(SizeOfTree, canBeToldOfTheLargestAlone) {
  std::string large = line(all, "") + line(sizeOf("/large"), "/large");
  EXPECT_EQ(run({"size", "--bytes", "-n", "1", tree}), 0);
  EXPECT_EQ(out.str(), large);
  EXPECT_EQ(run({"size", "--bytes", "--min", "200k", tree}), 0);
  EXPECT_EQ(out.str(), large);
  EXPECT_EQ(run({"size", "--bytes", "--min", "50k", tree}), 0);
  EXPECT_EQ(out.str(), large + line(sizeOf("/middle"), "/middle"));
}

TEST_F(SizeOfTree, leavesOutExcludedItemsWithTheirContents) {
  EXPECT_EQ(run({"size", "--bytes", "--exclude", "deep", tree}), 0);
  EXPECT_EQ(out.str(), line(all - sizeOf("/large/deep"), ""));
  EXPECT_EQ(run({"size", "--bytes", "--exclude", tree + "/l*", "--exclude", "mid*", tree}), 0);
  EXPECT_EQ(out.str(), line(all - sizeOf("/large") - sizeOf("/middle"), ""));
}

TEST_F(SizeOfTree, isSummedUpOverPathsWithEachLinkCountedOnce) {
  fs::create_hard_link(tree + "/middle", tree + "/small/middle");
  std::uint64_t middle = blocksOf(tree + "/middle");
  EXPECT_EQ(run({"size", "--bytes", "--total", tree + "/middle", tree + "/small"}), 0);
  std::uint64_t small = sizeOf("/small") - middle;
  EXPECT_EQ(out.str(),
            line(middle, "/middle") + line(small, "/small") + bytes(middle + small) + "\ttotal\n");
  EXPECT_EQ(run({"--json", "size", "--total", tree + "/middle"}), 0);
  EXPECT_TRUE(out.str().ends_with("{\"command\":\"size\",\"success\":true,\"total\":{\"items\":1,"
                                  "\"allocated\":" +
                                  bytes(middle) + "}}\n"))
      << out.str();
}

TEST_F(SizeOfTree, canBeOfTheLengthsOfFiles) {
  fs::remove_all(tree + "/large");
  fs::resize_file(tree + "/middle", 1'000'000'000); // most of it a hole
  EXPECT_EQ(run({"size", "--bytes", "--apparent", tree + "/middle"}), 0);
  EXPECT_EQ(out.str(), "1000000000\t" + tree + "/middle\n");
  EXPECT_EQ(run({"size", "--bytes", "--apparent", item}), 0);
  EXPECT_EQ(out.str(), "0\t" + item + "\n") << "it is empty";
}

TEST_F(SizeOfTree, isWrittenInTheUnitsAskedFor) {
  std::string file = scratch.file("exact", std::string(1 << 20, 'x'));
  EXPECT_EQ(run({"size", "--apparent", "--iec", file}), 0);
  EXPECT_EQ(out.str(), "1.0 MiB\t" + file + "\n");
  EXPECT_EQ(run({"size", "--apparent", "--si", file}), 0);
  EXPECT_EQ(out.str(), "1.0 MB\t" + file + "\n");
  EXPECT_EQ(run({"size", "--iec", "--si", file}), 2);
}

TEST_F(SizeOfTree, isOneObjectForPrograms) {
  EXPECT_EQ(run({"--json", "size", "-n1", tree + "/small"}), 0);
  EXPECT_EQ(out.str(), "{\"command\":\"size\",\"path\":\"" + tree +
                           "/small\",\"success\":true,\"bytes\":" + bytes(sizeOf("/small")) +
                           ",\"text\":\"25 KB\",\"items\":2,\"kind\":\"folder\",\"children\":["
                           "{\"name\":\"file\",\"bytes\":" +
                           bytes(sizeOf("/small/file")) +
                           ",\"text\":\"20 KB\",\"items\":1,\"kind\":\"file\"}]}\n");
}

TEST_F(SizeOfTree, isShownWithBarsOnATerminal) {
  onTerminal = true;
  EXPECT_EQ(run({"size", "-n", "1", tree}), 0);
  std::istringstream lines(out.str());
  Strings found;
  for (std::string each; std::getline(lines, each);)
    found.push_back(each);
  ASSERT_EQ(found.size(), 3u) << out.str();
  EXPECT_NE(found[0].find("100% #################### " + tree + "/"), std::string::npos);
  EXPECT_NE(found[1].find("% #############"), std::string::npos) << found[1];
  EXPECT_TRUE(found[1].ends_with("      large/")) << found[1];
  EXPECT_NE(found[2].find("2 more"), std::string::npos);
}

TEST_F(SizeOfTree, maySkipOtherVolumes) {
  EXPECT_EQ(run({"size", tree, "--once"}), 0);
  std::string whole = out.str();
  for (const char *word : {"-x", "--one-volume"}) {
    EXPECT_EQ(run({"size", tree, word}), 0) << err.str();
    EXPECT_EQ(out.str(), whole) << "there is none";
  }
}

// A walk of one volume does not enter others by itself, but returns their roots.
TEST(MeasuredTree, leavesOutTheRootsOfOtherVolumes) {
  kwtest::FakeFTS walks;
  auto on = [](std::uint64_t device) {
    NS::FTSStat status;
    status.device = device;
    status.blocks = 8;
    return status;
  };
  auto &root = walks.add("/root", NS::FTSInfo::D, walks.top, on(1));
  auto &inner = walks.add("inner", NS::FTSInfo::D, root, on(1));
  walks.again(inner, NS::FTSInfo::DP);
  auto &other = walks.add("other", NS::FTSInfo::D, root, on(2));
  walks.again(other, NS::FTSInfo::DP);
  walks.add("file", NS::FTSInfo::F, root, on(2)); // a file that is a mount
  walks.again(root, NS::FTSInfo::DP);
  auto tree = kw::TreeMeasurer({.oneVolume = true}, nullptr).measure("/root");
  ASSERT_TRUE(tree);
  std::vector<std::string> names;
  for (const MeasuredItem &each : tree->root.children)
    names.push_back(each.name);
  EXPECT_EQ(names, Strings({"file", "inner"}));
  EXPECT_EQ(tree->root.bytes, 3u * 4096);
}

TEST_F(SizeOfTree, isTheSameEachTimeThatItIsMeasured) {
  kw::TreeMeasurer measurer({}, nullptr);
  EXPECT_EQ(measurer.measure(tree)->root.bytes, all);
  EXPECT_EQ(measurer.measure(tree)->root.bytes, all);
}

TEST(WatchedWalk, countsAFolderOnceAndCallsForOneEntryOfMany) {
  std::vector<kw::RequestProgress> reports;
  kw::Watch watch = [&](const kw::RequestProgress &progress) {
    reports.push_back(progress);
    return false;
  };
  kw::WatchedWalk walk(watch);
  NS::FTSEntry entry;
  entry.path = "/folder";
  entry.statp.blocks = 8;
  std::uint64_t entered = 0;
  bool goesOn = true;
  while (goesOn && entered < 10'000) {
    entry.info = NS::FTSInfo::D;
    goesOn = walk.count(entry);
    ++entered;
    entry.info = NS::FTSInfo::DP;
    EXPECT_TRUE(walk.count(entry)) << entered;
  }
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].items, entered);
  EXPECT_EQ(reports[0].bytes, entered * 4096);
  EXPECT_EQ(reports[0].path, "/folder");
}

TEST_F(SizeOfTree, refusesTextOtherThanNumbers) {
  for (const Strings &words : std::initializer_list<Strings>{{"-d", "-1"},
                                                             {"-d", "x"},
                                                             {"-n", "0"},
                                                             {"-n"},
                                                             {"--min", "big"},
                                                             {"--children", "--local", "--bulk"}}) {
    Strings line{"size", tree};
    line.insert(line.end(), words.begin(), words.end());
    EXPECT_EQ(run(line), 2) << words.front();
  }
}

// Root reads everything, so a child without its rights measures.
TEST_F(SizeOfTree, isMeasuredByTheAgentWhereItCannotBeRead) {
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(tree + "/large", fs::perms::none);
  record.size = 1'000'000;
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              if (run({"size", "--json", "--children", tree}) != 0 ||
                  out.str().find("\"sight\":\"measured\"") == std::string::npos ||
                  out.str().find("\"sight\":\"partial\"") != std::string::npos)
                return out.str();
              if (run({"size", "--bytes", "--children", tree}) != 0)
                return err.str();
              if (record.requests != Strings{"SizeOfItemAtPath " + tree + "/large"})
                return "other requests";
              return out.str().find("\t" + tree + "/large\n") == std::string::npos ? out.str() : "";
            }),
            "");
  fs::permissions(tree + "/large", fs::perms::owner_all);
}

// In a folder that is closed to this user.
TEST_F(SizeOfTree, isThatOfTheAgentWhereOnlyTheAgentSeesTheItem) {
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(tree, fs::perms::none);
  std::string hidden = tree + "/middle", size = "SizeOfItemAtPath " + hidden;
  auto told = [&](const Strings &words, const Strings &requests) {
    std::string status = std::to_string(run(words));
    return record.requests == requests ? status + " " + out.str() + err.str() : "other requests";
  };
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              record.size = 1; // so that it exists
              std::string text = told({"size", "--bytes", hidden}, {size});
              record.size = 0;
              Strings both{size, "FileExistsAtPath " + hidden};
              text += told({"size", "--bytes", hidden}, both);
              record.success = false;
              text += told({"size", "--bytes", hidden}, both);
              return text + told({"size", "--local", hidden}, {});
            }),
            "0 1\t" + hidden + "\n0 0\t" + hidden + "\n1 keepwell: " + hidden +
                ": there is nothing there\n1 keepwell: " + hidden +
                " could not be measured: Permission denied\n");
  fs::permissions(tree, fs::perms::owner_all);
}

TEST_F(SizeOfTree, isThatOfAPath) {
  EXPECT_EQ(run({"size"}), 2);
  EXPECT_TRUE(err.str().starts_with("keepwell: PATH is required")) << err.str();
}

TEST_F(SizeOfTree, hasASlashAfterTheNamesOfFoldersAlone) {
  scratch.file("tree/plain", "");
  onTerminal = true;
  EXPECT_EQ(run({"size", "--children", tree}), 0);
  EXPECT_NE(out.str().find("large/\n"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("plain\n"), std::string::npos) << out.str();
}

TEST_F(SizeOfTree, hasOneUnit) {
  Strings units = {"--bytes", "--base2", "--si", "--iec"};
  for (const std::string &one : units)
    for (const std::string &other : units)
      EXPECT_EQ(run({"size", tree, one, other}), one == other ? 0 : 2) << one << other;
}

TEST_F(SizeOfTree, isPartialWithoutARightToSeeIt) {
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(tree, fs::perms::none);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              kw::TreeMeasurer measurer({}, [](const std::string &) { return std::nullopt; });
              auto measured = measurer.measure(tree + "/large");
              if (!measured)
                return "it is taken for missing";
              return measured->root.sight == MeasuredItem::Sight::Partial ? "" : "it looks whole";
            }),
            "");
  fs::permissions(tree, fs::perms::owner_all);
}

// Those who ask see it at the top.
TEST_F(SizeOfTree, isPartialWhereAFolderWithinCanNeitherBeReadNorMeasured) {
  fs::permissions(scratch.path(), fs::perms(0755));
  fs::permissions(tree + "/large/deep", fs::perms::none);
  EXPECT_EQ(kwtest::inChildWithoutRights([&]() -> std::string {
              kw::TreeMeasurer measurer({.depth = 2},
                                        [](const std::string &) { return std::nullopt; });
              auto measured = measurer.measure(tree);
              if (!measured || measured->root.sight != MeasuredItem::Sight::Partial)
                return "it looks whole";
              for (const MeasuredItem &each : measured->root.children)
                if ((each.sight == MeasuredItem::Sight::Whole) != (each.name != "large"))
                  return each.name;
              return "";
            }),
            "");
  fs::permissions(tree + "/large/deep", fs::perms::owner_all);
}

TEST_F(SizeOfTree, canBeStopped) {
  for (int number = 0; number < 2000; ++number)
    scratch.file("tree/small/" + std::to_string(number), "");
  kw::TreeMeasurer measurer({}, nullptr, [](const kw::RequestProgress &) { return false; });
  auto measured = measurer.measure(tree);
  ASSERT_TRUE(measured);
  EXPECT_FALSE(measured->isWhole);
  EXPECT_LT(measured->root.items, 1000u);
  EXPECT_FALSE(measurer.measure(scratch.path("missing")));
}

TEST(MeasuredTree, isPartialWhereItsWalkWasStopped) {
  kwtest::ScratchFolder scratch;
  fs::create_directories(scratch.path("tree"));
  for (int number = 0; number < 600; ++number) // more than pass between two looks at the watch
    scratch.file("tree/" + std::to_string(number), "");
  auto tree = kw::TreeMeasurer({}, nullptr, [](const auto &) {
                return false;
              }).measure(scratch.path("tree"));
  ASSERT_TRUE(tree);
  EXPECT_FALSE(tree->isWhole);
  EXPECT_EQ(tree->root.sight, MeasuredItem::Sight::Partial);
  EXPECT_EQ(tree->root.children.front().sight, MeasuredItem::Sight::Whole);
}

TEST_F(SizeOfTree, isNotThatOfAMissingItemWhenItCouldNotBeRead) {
  kwtest::FakeFTS walks;
  walks.failure = EMFILE;
  EXPECT_EQ(run({"size", "--once", tree}), 1);
  EXPECT_EQ(err.str(),
            "keepwell: " + tree + " could not be read to its end; the rest is not counted\n");
}

} // namespace
