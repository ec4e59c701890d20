// The exported object: its weak connection and the handlers of files.
#include "Agent/KWPriviligedOperations.h"

#include "Foundation/Base/Progress.h"
#include "Support/FakeFTS.h"
#include "Support/FakeProcess.h"
#include "Support/FakeXPCConnection.h"
#include "Support/ForwardingFileManager.h"
#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"
#include "Tools/RVFileSizer.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;
using kw::KWPriviligedOperations;
using kwtest::FakeProcess;
using kwtest::FakeXPCConnection;
using kwtest::ForwardingFileManager;
using kwtest::ScratchFolder;
using testing::ElementsAre;

struct FlagAnswer {
  int replies = 0;
  bool flag = false;
  std::optional<NS::Error> error;

  kw::KWFlagReply block() {
    return [this](bool success, const std::optional<NS::Error> &given) {
      ++replies;
      flag = success;
      error = given;
    };
  }
};

TEST(KWPriviligedOperations, holdsItsConnectionWeakly) {
  KWPriviligedOperations operations;
  EXPECT_EQ(operations.xpcConnection(), nullptr);
  auto connection = std::make_shared<FakeXPCConnection>();
  operations.setXPCConnection(connection);
  EXPECT_EQ(operations.xpcConnection(), connection);
  connection.reset();
  EXPECT_EQ(operations.xpcConnection(), nullptr);
}

TEST(Echo, returnsTheVeryText) {
  KWPriviligedOperations operations;
  std::vector<std::optional<std::string>> heard;
  auto block = [&](const std::optional<std::string> &text, const std::optional<NS::Error> &error) {
    heard.push_back(text);
    EXPECT_FALSE(error);
  };
  operations.echo("text", block);
  operations.echo("", block);
  operations.echo(std::nullopt, block);
  EXPECT_THAT(heard, ElementsAre("text", "", std::nullopt));
}

TEST(PleaseTerminate, suspendsItsConnectionThenEndsWithSuccess) {
  FakeProcess process;
  auto connection = std::make_shared<FakeXPCConnection>();
  KWPriviligedOperations operations;
  operations.setXPCConnection(connection);
  process.atExit = [&] { EXPECT_THAT(connection->steps, ElementsAre("suspend")); };
  operations.pleaseTerminate();
  EXPECT_EQ(process.exitStatus, 0);
  EXPECT_THAT(connection->steps, ElementsAre("suspend"));
}

TEST(PleaseTerminate, endsEvenWhenItsClientIsGone) {
  FakeProcess process;
  KWPriviligedOperations().pleaseTerminate();
  EXPECT_EQ(process.exitStatus, 0);
}

class FileHandlers : public testing::Test {
protected:
  ScratchFolder scratch;
  KWPriviligedOperations operations;
  FlagAnswer answer;
  kwtest::LogRecorder log;
};

TEST_F(FileHandlers, skipANullReplyExceptTheSize) {
  std::string path = scratch.file("file", "content");
  operations.echo("text", nullptr);
  operations.fileExistsAtPath(path, nullptr);
  operations.truncateFileAtPath(path, nullptr);
  operations.moveItemAtPath(path, scratch.path("moved"), nullptr);
  operations.removeItemAtPath(scratch.path("moved"), nullptr);
  operations.securelyRemoveItemAtPath(scratch.file("other", "content"), nullptr);
  operations.moveToTrashItemAtPath(scratch.path("missing"), nullptr);
  EXPECT_TRUE(fs::is_empty(scratch.path()));
  EXPECT_THROW(operations.sizeOfItemAtPath(scratch.path(), nullptr), std::bad_function_call);
}

TEST_F(FileHandlers, tellWhetherSomethingExists) {
  operations.fileExistsAtPath(scratch.file("file", ""), answer.block());
  EXPECT_TRUE(answer.flag);
  operations.fileExistsAtPath(scratch.path("missing"), answer.block());
  EXPECT_FALSE(answer.flag);
  EXPECT_FALSE(answer.error);
  fs::create_symlink("nowhere", scratch.path("dangling"));
  answer.flag = true;
  operations.fileExistsAtPath(scratch.path("dangling"), answer.block());
  EXPECT_FALSE(answer.flag);
  EXPECT_EQ(answer.replies, 3);
}

TEST_F(FileHandlers, passTheErrorOfAMoveThatFailed) {
  scratch.file("source", "1");
  scratch.file("taken", "2");
  operations.moveItemAtPath(scratch.path("source"), scratch.path("taken"), answer.block());
  EXPECT_FALSE(answer.flag);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->code(), NS::FileWriteFileExistsError);
}

TEST_F(FileHandlers, moveToTheFolderOfTheSourceIsSuccessAndMovesNothing) {
  scratch.file("source", "1");
  operations.moveItemAtPath(scratch.path("source"), scratch.path(), answer.block());
  EXPECT_TRUE(answer.flag);
  EXPECT_FALSE(answer.error);
  EXPECT_TRUE(fs::exists(scratch.path("source")));
}

TEST_F(FileHandlers, moveAnItem) {
  scratch.file("source", "1");
  operations.moveItemAtPath(scratch.path("source"), scratch.path("new/target"), answer.block());
  EXPECT_TRUE(answer.flag);
  EXPECT_EQ(scratch.content("new/target"), "1");
}

TEST_F(FileHandlers, countAMissingItemAsRemoved) {
  operations.removeItemAtPath(scratch.path("missing"), answer.block());
  EXPECT_TRUE(answer.flag);
  EXPECT_EQ(answer.replies, 1);
}

// Fails the first removal with an error and does the second.
class SecondAttempt : public ForwardingFileManager {
public:
  bool removeItemAtPath(const std::string &path, NS::ErrorSlot error) override {
    if (++attempts > 1)
      return ForwardingFileManager::removeItemAtPath(path, error);
    NS::storeError(error, NS::fileError(13, path, NS::FileAccess::Writing));
    return false;
  }
  int attempts = 0;
};

TEST_F(FileHandlers, passTheFirstAttemptsErrorBesideASuccess) {
  SecondAttempt manager;
  NS::ScopedOverride<NS::FileManager> override(manager);
  operations.removeItemAtPath(scratch.file("file", ""), answer.block());
  EXPECT_TRUE(answer.flag);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->code(), NS::FileWriteNoPermissionError);
}

// Refuses or accepts every item for the Trash.
class Trash : public ForwardingFileManager {
public:
  explicit Trash(bool accepts) : accepts_(accepts) {}
  bool trashItemAtURL(const NS::URL &url, NS::ErrorSlot error) override {
    trashed.push_back(url.path());
    if (!accepts_)
      NS::storeError(error, NS::fileError(1, url.path(), NS::FileAccess::Writing));
    return accepts_;
  }
  std::vector<std::string> trashed;

private:
  const bool accepts_;
};

TEST_F(FileHandlers, replyNoAfterASuccessfulMoveToTheTrash) {
  Trash trash(true);
  NS::ScopedOverride<NS::FileManager> override(trash);
  answer.flag = true;
  operations.moveToTrashItemAtPath(scratch.file("file", ""), answer.block());
  EXPECT_FALSE(answer.flag);
  EXPECT_FALSE(answer.error);
  EXPECT_THAT(trash.trashed, ElementsAre(scratch.path("file")));
}

TEST_F(FileHandlers, replyYesAndTheErrorWhenTheTrashRefuses) {
  Trash trash(false);
  NS::ScopedOverride<NS::FileManager> override(trash);
  operations.moveToTrashItemAtPath(scratch.file("file", ""), answer.block());
  EXPECT_TRUE(answer.flag);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->code(), NS::FileWriteNoPermissionError);
}

TEST_F(FileHandlers, passNoErrorOfASecureRemoval) {
  operations.securelyRemoveItemAtPath(scratch.path("missing"), answer.block());
  EXPECT_FALSE(answer.flag);
  EXPECT_FALSE(answer.error);
  operations.securelyRemoveItemAtPath(scratch.file("file", "secret"), answer.block());
  EXPECT_TRUE(answer.flag);
  EXPECT_FALSE(fs::exists(scratch.path("file")));
}

TEST_F(FileHandlers, passTheErrorOfASecureRemovalThatIsCancelled) {
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  progress.cancel();
  operations.securelyRemoveItemAtPath(scratch.file("file", "secret"), answer.block());
  EXPECT_FALSE(answer.flag);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->domain(), NS::CocoaErrorDomain);
  EXPECT_EQ(answer.error->code(), NS::UserCancelledError);
}

TEST_F(FileHandlers, truncateAFileAndPassNoError) {
  operations.truncateFileAtPath(scratch.file("file", "content"), answer.block());
  EXPECT_TRUE(answer.flag);
  EXPECT_EQ(fs::file_size(scratch.path("file")), 0u);
  operations.truncateFileAtPath(scratch.path("missing"), answer.block());
  EXPECT_FALSE(answer.flag);
  EXPECT_FALSE(answer.error);
}

TEST_F(FileHandlers, replyTheSizeThatTheSizerMeasures) {
  scratch.file("file", std::string(4096, 'x'));
  int replies = 0;
  operations.sizeOfItemAtPath(scratch.path(), [&](std::int64_t size, const auto &error) {
    ++replies;
    EXPECT_GE(size, 4096);
    EXPECT_EQ(static_cast<std::uint64_t>(size),
              kw::RVFileSizer::shared().itemSizeAtPath(scratch.path()));
    EXPECT_FALSE(error);
  });
  operations.sizeOfItemAtPath(scratch.path("missing"), [&](std::int64_t size, const auto &error) {
    ++replies;
    EXPECT_EQ(size, 0);
    EXPECT_FALSE(error);
  });
  EXPECT_EQ(replies, 2);
}

TEST_F(FileHandlers, replyNoSizeButAnErrorWhenTheRequestIsCancelled) {
  NS::Progress progress;
  NS::Progress::Scope scope(progress);
  progress.cancel();
  int replies = 0;
  operations.sizeOfItemAtPath(scratch.path(), [&](std::int64_t size, const auto &error) {
    ++replies;
    EXPECT_EQ(size, 0);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), "NSCocoaErrorDomain");
    EXPECT_EQ(error->code(), 3072);
  });
  EXPECT_EQ(replies, 1);
}

TEST_F(FileHandlers, replyNoSizeButAnErrorWhenDescriptorsRanOut) {
  kwtest::FakeFTS walk;
  walk.add("/x", NS::FTSInfo::F, walk.top, {.blocks = 8});
  walk.failure = EMFILE;
  int replies = 0;
  operations.sizeOfItemAtPath("/x", [&](std::int64_t size, const auto &error) {
    ++replies;
    EXPECT_EQ(size, 0) << "a part must not be taken for the whole";
    ASSERT_TRUE(error);
    EXPECT_EQ(error->underlyingError()->code(), EMFILE);
  });
  EXPECT_EQ(replies, 1);
}

} // namespace
