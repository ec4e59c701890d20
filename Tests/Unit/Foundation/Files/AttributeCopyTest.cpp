// The access list and attributes that a replacement takes over from the former
// item.
#include "Foundation/Files/POSIX/AttributeCopy.h"

#include "Support/AccessList.h"
#include "Support/LogRecorder.h"
#include "Support/MissingCall.h"
#include "Support/PrivateMounts.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Descriptors/POSIX/Descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using kwtest::Grant;
using NS::CopiedData;

NS::Descriptor opened(const std::string &path) {
  return NS::Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

// The mode for the copy, or "error" and a number.
std::string copiedMode(const std::string &source, const std::string &target) {
  struct stat status;
  if (::stat(source.c_str(), &status) != 0)
    return "no source";
  mode_t mode = status.st_mode & 07777;
  NS::LeftOut leftOut;
  NS::Descriptor from = opened(source), to = opened(target);
  errno = ERANGE; // of an earlier call
  int error = NS::copyAttributes(from.get(), to.get(), CopiedData::Same, mode, leftOut);
  char text[32];
  std::snprintf(text, sizeof text, error == 0 ? "%03o" : "error %d",
                error == 0 ? mode : static_cast<unsigned>(error));
  return text;
}

std::vector<Grant> listWith(std::uint16_t group, std::uint16_t mask, std::uint16_t others,
                            std::vector<Grant> users, std::vector<Grant> groups) {
  std::vector<Grant> grants = {{ACL_USER_OBJ, 6}};
  grants.insert(grants.end(), users.begin(), users.end());
  grants.push_back({ACL_GROUP_OBJ, group});
  grants.insert(grants.end(), groups.begin(), groups.end());
  grants.push_back({ACL_MASK, mask});
  grants.push_back({ACL_OTHER, others});
  return grants;
}

struct Case {
  std::vector<Grant> grants;
  const char *mode; // without the list
};

// A volume without lists takes the copy; ramfs has none.
TEST(AttributeCopy, withoutTheAccessListGrantsNoAccessThatTheListDenies) {
  KW_REQUIRE_ROOT();
  kwtest::ScratchFolder scratch;
  std::string source = scratch.file("source", "");
  std::vector<Case> cases = {
      // The mask does not grant the group any right.
      {listWith(0, 6, 0, {{ACL_USER, 6, 1234}}, {}), "600"},
      {listWith(6, 4, 0, {{ACL_USER, 6, 1234}}, {}), "640"},
      {listWith(4, 6, 4, {{ACL_USER, 6, 1234}}, {}), "644"},
      // A user of the list may be of the owning group, or one of the others.
      {listWith(6, 6, 4, {{ACL_USER, 0, 1234}}, {}), "600"},
      {listWith(6, 6, 6, {{ACL_USER, 4, 1234}}, {}), "644"},
      // The members of a group of the list would be others.
      {listWith(6, 6, 4, {}, {{ACL_GROUP, 0, 1234}}), "660"},
      {listWith(6, 6, 6, {}, {{ACL_GROUP, 4, 1}, {ACL_GROUP, 2, 2}}), "660"},
  };
  KW_REQUIRE_ATTRIBUTE(source, kwtest::accessListName, kwtest::accessListOf(cases[0].grants));
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              kwtest::ScratchFolder folder;
              if (::mount("ramfs", folder.path().c_str(), "ramfs", 0, nullptr) != 0)
                return "no mount";
              std::string target = folder.file("target", "");
              std::string wrong;
              for (const Case &row : cases) {
                kwtest::setAttribute(source, kwtest::accessListName,
                                     kwtest::accessListOf(row.grants));
                if (std::string mode = copiedMode(source, target); mode != row.mode)
                  wrong += mode + " instead of " + row.mode + "; ";
              }
              ::umount2(folder.path().c_str(), MNT_DETACH);
              return wrong;
            }),
            "");
}

TEST(AttributeCopy, withTheAccessListKeepsTheModeThatIsItsMask) {
  kwtest::ScratchFolder scratch;
  std::string source = scratch.file("source", ""), target = scratch.file("target", "");
  std::string list = kwtest::accessListOf(listWith(0, 6, 0, {{ACL_USER, 6, 1234}}, {}));
  KW_REQUIRE_ATTRIBUTE(source, kwtest::accessListName, list);
  EXPECT_EQ(copiedMode(source, target), "660");
  EXPECT_EQ(kwtest::attribute(target, kwtest::accessListName), list);
}

TEST(AttributeCopy, leavesNothingOutWhereTheVolumeHoldsAll) {
  kwtest::ScratchFolder scratch;
  std::string plain = scratch.file("plain", ""), source = scratch.file("source", "");
  KW_REQUIRE_ATTRIBUTE(source, "user.empty", "");
  KW_REQUIRE_ATTRIBUTE(source, "user.note", "kept");
  std::string target = scratch.file("target", "");
  ASSERT_TRUE(kwtest::setAttribute(target, "user.note", "replaced"));
  for (const std::string &from : {plain, source}) {
    mode_t mode = 0644;
    NS::LeftOut leftOut;
    NS::Descriptor item = opened(from), copy = opened(target);
    errno = ERANGE; // of an earlier call
    EXPECT_EQ(NS::copyAttributes(item.get(), copy.get(), CopiedData::Same, mode, leftOut), 0);
    EXPECT_EQ(leftOut.times, 0u) << leftOut.what;
  }
  EXPECT_EQ(kwtest::attribute(target, "user.note"), "kept");
  EXPECT_EQ(::getxattr(target.c_str(), "user.empty", nullptr, 0), 0);
}

// The copy of a file with an access list and a note, into one with an inherited
// list, while the system refuses a call: its mode and the number of attributes left
// out, or "error" and a number.
class AttributeCopyRefused : public testing::Test {
protected:
  void SetUp() override {
    source_ = scratch_.file("source", "");
    KW_REQUIRE_ATTRIBUTE(source_, kwtest::accessListName, list_);
    KW_REQUIRE_ATTRIBUTE(source_, "user.note", "x");
    KW_REQUIRE_ATTRIBUTE(scratch_.path(), kwtest::defaultListName, list_);
    target_ = scratch_.file("target", "");
    ASSERT_NE(kwtest::attribute(target_, kwtest::accessListName), "");
  }

  // Without a list.
  std::string plainSource() const {
    ::removexattr(scratch_.path().c_str(), kwtest::defaultListName);
    return scratch_.file("plain", "");
  }

  std::string copyWithout(unsigned call, int failure, const std::string &source) {
    return kwtest::inForkedChild([&]() -> std::string {
      NS::Descriptor from = opened(source), to = opened(target_);
      mode_t mode = 0664;
      NS::LeftOut leftOut;
      if (!kwtest::refuseCalls(call, failure))
        return "the call still works";
      int error = NS::copyAttributes(from.get(), to.get(), CopiedData::Same, mode, leftOut);
      if (error != 0)
        return "error " + std::to_string(error);
      char text[32];
      std::snprintf(text, sizeof text, "%03o %d", mode, static_cast<int>(leftOut.times));
      return text;
    });
  }

  kwtest::ScratchFolder scratch_;
  std::string list_ = kwtest::accessListOf(listWith(4, 6, 4, {{ACL_USER, 4, 1234}}, {}));
  std::string source_, target_;
};

TEST_F(AttributeCopyRefused, leavesOutAttributesThatCannotBeSet) {
  EXPECT_EQ(copyWithout(SYS_setxattr, EPERM, source_), "644 2");
  EXPECT_EQ(kwtest::attribute(target_, kwtest::accessListName), "") << "the inherited one";
}

TEST_F(AttributeCopyRefused, grantsNothingToOthersByAListThatCannotBeRead) {
  EXPECT_EQ(copyWithout(SYS_getxattr, EACCES, source_), "600 2");
}

TEST_F(AttributeCopyRefused, failsForOtherCauses) {
  for (unsigned call : {unsigned{SYS_listxattr}, unsigned{SYS_getxattr}, unsigned{SYS_setxattr}})
    EXPECT_EQ(copyWithout(call, EIO, source_), "error 5") << call;
  EXPECT_EQ(copyWithout(SYS_removexattr, EIO, plainSource()), "error 5");
}

TEST_F(AttributeCopyRefused, needsNoAttributesOnAVolumeWithoutAny) {
  EXPECT_EQ(copyWithout(SYS_listxattr, ENOTSUP, source_), "664 0");
}

TEST_F(AttributeCopyRefused, missesNoInheritedListThatIsGone) {
  EXPECT_EQ(copyWithout(SYS_removexattr, ENODATA, plainSource()), "664 0");
}

TEST(AttributeCopy, leavesOutAListOfNamesThatIsTooLong) {
  KW_REQUIRE_ROOT();
  kwtest::ScratchFolder scratch;
  EXPECT_EQ(kwtest::withPrivateMounts([&]() -> std::string {
              if (!kwtest::mountMemory(scratch.path()))
                return "no volume";
              std::string source = scratch.file("source", ""), target = scratch.file("target", "");
              for (int number = 1000; number < 1300; ++number)
                if (!kwtest::setAttribute(
                        source,
                        ("trusted." + std::string(240, 'x') + std::to_string(number)).c_str(), "1"))
                  return "no attributes";
              mode_t mode = 0664;
              NS::LeftOut leftOut;
              if (NS::copyAttributes(opened(source).get(), opened(target).get(), CopiedData::Same,
                                     mode, leftOut) != 0)
                return "failed";
              return leftOut.what + " " + std::to_string(leftOut.errnum) + " " +
                     std::to_string(mode);
            }),
            "the attributes " + std::to_string(E2BIG) + " " + std::to_string(0664));
}

TEST(AttributeCopy, copiesBothListsOfAFolder) {
  kwtest::ScratchFolder scratch;
  std::string source = scratch.path("source"), target = scratch.path("target");
  ASSERT_EQ(::mkdir(source.c_str(), 0755), 0);
  ASSERT_EQ(::mkdir(target.c_str(), 0755), 0);
  std::string list = kwtest::accessListOf(listWith(5, 7, 0, {{ACL_USER, 7, 1234}}, {}));
  std::string other = kwtest::accessListOf(listWith(5, 7, 0, {{ACL_USER, 5, 1234}}, {}));
  KW_REQUIRE_ATTRIBUTE(source, kwtest::accessListName, list);
  KW_REQUIRE_ATTRIBUTE(source, kwtest::defaultListName, other);
  EXPECT_EQ(copiedMode(source, target).size(), 3u);
  EXPECT_EQ(kwtest::attribute(target, kwtest::accessListName), list);
  EXPECT_EQ(kwtest::attribute(target, kwtest::defaultListName), other);
}

TEST(LeftOut, keepsTheFirstAndCountsAll) {
  kwtest::LogRecorder log;
  NS::LeftOut leftOut;
  leftOut.report("copy");
  EXPECT_EQ(log.lines().size(), 0u) << "nothing was left out";
  leftOut.note("one", 1);
  leftOut.report("copy");
  leftOut.note("two", 2);
  leftOut.report("copy");
  std::string line = "copy does without what its volume cannot hold: one (error 1), ";
  EXPECT_EQ(log.lines(), (std::vector<std::string>{line + "1 in all", line + "2 in all"}));
}

TEST(AttributeCopy, takesAnInheritedListAway) {
  kwtest::ScratchFolder scratch;
  std::string source = scratch.file("source", "");
  std::string list = kwtest::accessListOf(listWith(0, 6, 0, {{ACL_USER, 6, 1234}}, {}));
  KW_REQUIRE_ATTRIBUTE(scratch.path(), kwtest::defaultListName, list);
  std::string target = scratch.file("target", "");
  ASSERT_NE(kwtest::attribute(target, kwtest::accessListName), "");
  EXPECT_EQ(copiedMode(source, target).size(), 3u);
  EXPECT_EQ(kwtest::attribute(target, kwtest::accessListName), "");
}

// A folder has two lists: for itself, and for the items that are made in it.
TEST(AttributeCopy, takesEachInheritedListAwayThatTheSourceHasNot) {
  kwtest::ScratchFolder scratch;
  std::string source = scratch.path("source"), target = scratch.path("target");
  ASSERT_EQ(::mkdir(source.c_str(), 0755), 0);
  std::string list = kwtest::accessListOf(listWith(5, 7, 0, {{ACL_USER, 7, 1234}}, {}));
  KW_REQUIRE_ATTRIBUTE(source, kwtest::accessListName, list);
  KW_REQUIRE_ATTRIBUTE(scratch.path(), kwtest::defaultListName, list);
  ASSERT_EQ(::mkdir(target.c_str(), 0755), 0);
  ASSERT_EQ(kwtest::attribute(target, kwtest::defaultListName), list);
  EXPECT_EQ(copiedMode(source, target).size(), 3u);
  EXPECT_EQ(kwtest::attribute(target, kwtest::accessListName), list);
  EXPECT_EQ(kwtest::attribute(target, kwtest::defaultListName), "");
}

TEST(AttributeCopy, keepsAttributesThatVouchForDataOnlyWithTheSameData) {
  KW_REQUIRE_ROOT();
  kwtest::ScratchFolder scratch;
  std::string source = scratch.file("source", ""), target = scratch.file("target", "");
  // Revision 2, CAP_CHOWN permitted.
  std::string capability("\0\0\0\2\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 20);
  KW_REQUIRE_ATTRIBUTE(source, "security.capability", capability);
  mode_t mode = 0644;
  NS::LeftOut leftOut;
  EXPECT_EQ(NS::copyAttributes(opened(source).get(), opened(target).get(), CopiedData::Another,
                               mode, leftOut),
            0);
  EXPECT_EQ(kwtest::attribute(target, "security.capability"), "");
  EXPECT_EQ(NS::copyAttributes(opened(source).get(), opened(target).get(), CopiedData::Same, mode,
                               leftOut),
            0);
  EXPECT_EQ(kwtest::attribute(target, "security.capability"), capability);
}

} // namespace
