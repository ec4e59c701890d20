// The protocol's description for the transport.
#include "Agent/KWPrivilegedOperation.h"
#include "Agent/KWPrivilegedOperationProgress.h"
#include "Protocol/Linux/BusValues.h"
#include "Support/FakeXPCConnection.h"

#include <gmock/gmock.h>

namespace {

using namespace kw;
using NS::XPCMethod;
using testing::ElementsAre;

TEST(KWPrivilegedOperation, hasItsMethodsInTheProtocolsOrder) {
  std::vector<std::string> selectors;
  for (const XPCMethod &method : KWPrivilegedOperation::interface()->methods)
    selectors.push_back(method.selector);
  EXPECT_THAT(
      selectors,
      ElementsAre("pleaseTerminate", "echo:withReply:", "fileExistsAtPath:withReply:",
                  "moveItemAtPath:toPath:withReply:", "removeItemAtPath:withReply:",
                  "securelyRemoveItemAtPath:withReply:", "moveToTrashItemAtPath:withReply:",
                  "truncateFileAtPath:withReply:", "removePackageWithID:withReply:",
                  "removeKextAtPath:withReply:", "removeASLWithReply:",
                  "slimBinaryWithPath:archs:withReply:", "removeLaunchdAgentAtPath:withReply:",
                  "enableLaunchdAgentAtPath:withReply:", "disableLaunchdAgentAtPath:withReply:",
                  "removeSMLoginItem:withReply:", "startStartupItem:withReply:",
                  "stopStartupItem:withReply:", "repairPermissionsWithReply:",
                  "runPeriodicScript:withReply:", "startSpotlightReindexWithReply:",
                  "removeGlobalLoginItemForAppWithPath:withReply:",
                  "removeLibraryFromLauchdConf:withReply:", "flushDNSWithReply:",
                  "removeDiagnosticLogsWithReply:", "sizeOfItemAtPath:reply:"));
}

// The first part of the selector, its first letter raised, "WithReply" dropped.
std::string memberOf(const std::string &selector) {
  std::string member = selector.substr(0, selector.find(':'));
  constexpr std::string_view suffix = "WithReply";
  if (member.ends_with(suffix))
    member.resize(member.size() - suffix.size());
  member[0] = static_cast<char>(member[0] - 'a' + 'A');
  return member;
}

TEST(KWPrivilegedOperation, namesItsMembersByTheRule) {
  for (const XPCMethod &method : KWPrivilegedOperation::interface()->methods)
    EXPECT_EQ(method.member, memberOf(method.selector));
}

TEST(KWPrivilegedOperation, hasTheArgumentsAndRepliesOfTheContract) {
  for (const XPCMethod &method : KWPrivilegedOperation::interface()->methods) {
    std::string in = NS::busSignature(method.arguments);
    std::string out = NS::busSignature(method.replies);
    const std::string &name = method.member;
    if (name == "PleaseTerminate")
      EXPECT_EQ(in + ":" + out, ":");
    else if (name == "Echo")
      EXPECT_EQ(in + ":" + out, "s:s(sxa{sv})");
    else if (name == "MoveItemAtPath")
      EXPECT_EQ(in + ":" + out, "ss:b(sxa{sv})");
    else if (name == "SlimBinaryWithPath")
      EXPECT_EQ(in + ":" + out, "sas:b(sxa{sv})");
    else if (name == "RepairPermissions")
      EXPECT_EQ(in + ":" + out, ":bis");
    else if (name == "RemoveDiagnosticLogs")
      EXPECT_EQ(in + ":" + out, ":sxs(sxa{sv})");
    else if (name == "SizeOfItemAtPath")
      EXPECT_EQ(in + ":" + out, "s:x(sxa{sv})");
    else if (name == "RemoveASL" || name == "StartSpotlightReindex" || name == "FlushDNS")
      EXPECT_EQ(in + ":" + out, ":b(sxa{sv})");
    else
      EXPECT_EQ(in + ":" + out, "s:b(sxa{sv})") << name;
    EXPECT_EQ(method.oneWay, name == "PleaseTerminate");
  }
}

// Records the called method and its arguments, and replies with fixed values.
class Recorder : public KWPrivilegedOperation {
public:
  std::string called;

  void flag(const std::string &what, const KWFlagReply &reply) {
    called = what;
    reply(true, NS::Error("domain", 3));
  }
  void pleaseTerminate() override { called = "pleaseTerminate"; }
  void echo(const std::optional<std::string> &text, KWEchoReply reply) override {
    called = "echo " + text.value_or("nil");
    reply(std::nullopt, std::nullopt);
  }
  void fileExistsAtPath(const std::string &p, KWFlagReply r) override { flag("exists " + p, r); }
  void moveItemAtPath(const std::string &a, const std::string &b, KWFlagReply r) override {
    flag("move " + a + " " + b, r);
  }
  void removeItemAtPath(const std::string &p, KWFlagReply r) override { flag("remove " + p, r); }
  void securelyRemoveItemAtPath(const std::string &p, KWFlagReply r) override {
    flag("shred " + p, r);
  }
  void moveToTrashItemAtPath(const std::string &p, KWFlagReply r) override {
    flag("trash " + p, r);
  }
  void truncateFileAtPath(const std::string &p, KWFlagReply r) override {
    flag("truncate " + p, r);
  }
  void removePackageWithID(const std::string &p, KWFlagReply r) override {
    flag("package " + p, r);
  }
  void removeKextAtPath(const std::string &p, KWFlagReply r) override { flag("kext " + p, r); }
  void removeASLWithReply(KWFlagReply r) override { flag("asl", r); }
  void slimBinaryWithPath(const std::string &p, const std::vector<std::string> &archs,
                          KWFlagReply r) override {
    flag("slim " + p + " " + std::to_string(archs.size()), r);
  }
  void removeLaunchdAgentAtPath(const std::string &p, KWFlagReply r) override {
    flag("job- " + p, r);
  }
  void enableLaunchdAgentAtPath(const std::string &p, KWFlagReply r) override {
    flag("job+ " + p, r);
  }
  void disableLaunchdAgentAtPath(const std::string &p, KWFlagReply r) override {
    flag("job0 " + p, r);
  }
  void removeSMLoginItem(const std::string &p, KWFlagReply r) override { flag("sm " + p, r); }
  void startStartupItem(const std::string &p, KWFlagReply r) override { flag("start " + p, r); }
  void stopStartupItem(const std::string &p, KWFlagReply r) override { flag("stop " + p, r); }
  void repairPermissionsWithReply(KWRepairReply r) override {
    called = "repair";
    r(true, 7, std::nullopt);
  }
  void runPeriodicScript(const std::string &p, KWFlagReply r) override { flag("periodic " + p, r); }
  void startSpotlightReindexWithReply(KWFlagReply r) override { flag("reindex", r); }
  void removeGlobalLoginItemForAppWithPath(const std::string &p, KWFlagReply r) override {
    flag("global " + p, r);
  }
  void removeLibraryFromLauchdConf(const std::string &p, KWFlagReply r) override {
    flag("conf " + p, r);
  }
  void flushDNSWithReply(KWFlagReply r) override { flag("dns", r); }
  void removeDiagnosticLogsWithReply(KWDiagnosticLogsReply r) override {
    called = "logs";
    r("out", 64, std::nullopt, NS::Error("domain", 0));
  }
  void sizeOfItemAtPath(const std::string &p, KWSizeReply r) override {
    called = "size " + p;
    r(std::int64_t{1} << 40, std::nullopt);
  }
};

// Calls the member with the arguments "1", "2" and so on.
NS::XPCOutcome invoke(Recorder &recorder, const char *member) {
  const XPCMethod *method = KWPrivilegedOperation::interface()->methodWithMember(member);
  NS::XPCValues arguments;
  for (const NS::XPCParameter &parameter : method->arguments) {
    std::string text = std::to_string(arguments.size() + 1);
    if (parameter.kind == NS::XPCKind::StringArray)
      arguments.emplace_back(std::vector<std::string>{text, text});
    else
      arguments.emplace_back(text);
  }
  NS::XPCOutcome outcome;
  method->invoker(recorder, arguments,
                  NS::XPCReply([&](NS::XPCOutcome value) { outcome = std::move(value); }));
  return outcome;
}

TEST(KWPrivilegedOperation, callsTheMethodOfEachMemberWithItsArguments) {
  std::pair<const char *, const char *> expected[] = {
      {"PleaseTerminate", "pleaseTerminate"},
      {"Echo", "echo 1"},
      {"FileExistsAtPath", "exists 1"},
      {"MoveItemAtPath", "move 1 2"},
      {"RemoveItemAtPath", "remove 1"},
      {"SecurelyRemoveItemAtPath", "shred 1"},
      {"MoveToTrashItemAtPath", "trash 1"},
      {"TruncateFileAtPath", "truncate 1"},
      {"RemovePackageWithID", "package 1"},
      {"RemoveKextAtPath", "kext 1"},
      {"RemoveASL", "asl"},
      {"SlimBinaryWithPath", "slim 1 2"},
      {"RemoveLaunchdAgentAtPath", "job- 1"},
      {"EnableLaunchdAgentAtPath", "job+ 1"},
      {"DisableLaunchdAgentAtPath", "job0 1"},
      {"RemoveSMLoginItem", "sm 1"},
      {"StartStartupItem", "start 1"},
      {"StopStartupItem", "stop 1"},
      {"RepairPermissions", "repair"},
      {"RunPeriodicScript", "periodic 1"},
      {"StartSpotlightReindex", "reindex"},
      {"RemoveGlobalLoginItemForAppWithPath", "global 1"},
      {"RemoveLibraryFromLauchdConf", "conf 1"},
      {"FlushDNS", "dns"},
      {"RemoveDiagnosticLogs", "logs"},
      {"SizeOfItemAtPath", "size 1"},
  };
  for (const auto &[member, called] : expected) {
    Recorder recorder;
    invoke(recorder, member);
    EXPECT_EQ(recorder.called, called);
  }
}

TEST(KWPrivilegedOperation, bringsBackNilTextsAndNilErrors) {
  Recorder recorder;
  NS::XPCValues values = invoke(recorder, "Echo").values;
  EXPECT_TRUE(std::holds_alternative<std::monostate>(values.at(0)));
  EXPECT_TRUE(std::holds_alternative<std::monostate>(values.at(1)));
}

TEST(KWPrivilegedOperation, bringsBackFlagsAndErrors) {
  Recorder recorder;
  NS::XPCValues values = invoke(recorder, "RemoveItemAtPath").values;
  EXPECT_EQ(std::get<bool>(values.at(0)), true);
  EXPECT_EQ(std::get<NS::Error>(values.at(1)).domain(), "domain");
  EXPECT_EQ(std::get<NS::Error>(values.at(1)).code(), 3);
}

TEST(KWPrivilegedOperation, bringsBackSizesBeyondFourGigabytes) {
  Recorder recorder;
  NS::XPCValues values = invoke(recorder, "SizeOfItemAtPath").values;
  EXPECT_EQ(std::get<std::int64_t>(values.at(0)), std::int64_t{1} << 40);
}

TEST(KWPrivilegedOperation, bringsBackTheRepairsValueAndNilText) {
  Recorder recorder;
  NS::XPCValues values = invoke(recorder, "RepairPermissions").values;
  EXPECT_EQ(std::get<bool>(values.at(0)), true);
  EXPECT_EQ(std::get<std::int32_t>(values.at(1)), 7);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(values.at(2)));
}

TEST(KWPrivilegedOperation, bringsBackAllThatTheLogToolSaid) {
  Recorder recorder;
  NS::XPCValues values = invoke(recorder, "RemoveDiagnosticLogs").values;
  EXPECT_EQ(std::get<std::string>(values.at(0)), "out");
  EXPECT_EQ(std::get<std::int64_t>(values.at(1)), 64);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(values.at(2)));
  EXPECT_EQ(std::get<NS::Error>(values.at(3)).code(), 0);
}

TEST(KWPrivilegedOperationProgress, sendsAChunkToTheConnectionsClient) {
  auto connection = std::make_shared<kwtest::FakeXPCConnection>();
  auto proxy = KWPrivilegedOperationProgress::remoteObjectProxy(connection);
  proxy->receiveNewOutput("chunk");
  ASSERT_EQ(connection->sent.size(), 1u);
  EXPECT_EQ(connection->sent[0].first, "receiveNewOutput:");
  EXPECT_EQ(std::get<std::string>(connection->sent[0].second.at(0)), "chunk");
}

TEST(KWPrivilegedOperationProgress, losesAChunkWithoutAWordWhenTheConnectionIsGone) {
  auto connection = std::make_shared<kwtest::FakeXPCConnection>();
  auto proxy = KWPrivilegedOperationProgress::remoteObjectProxy(connection);
  connection.reset();
  proxy->receiveNewOutput("chunk");
}

TEST(KWPrivilegedOperationProgress, isOneMessageWithoutAReply) {
  auto interface = KWPrivilegedOperationProgress::interface();
  EXPECT_EQ(interface->name, "org.keepwell.KWPrivilegedOperationProgress");
  ASSERT_EQ(interface->methods.size(), 1u);
  EXPECT_EQ(interface->methods[0].member, "ReceiveNewOutput");
  EXPECT_EQ(NS::busSignature(interface->methods[0].arguments), "s");
  EXPECT_TRUE(interface->methods[0].oneWay);
}

TEST(KWPrivilegedOperation, recordsAllThatChangesSomething) {
  std::vector<std::string> unrecorded;
  for (const XPCMethod &method : KWPrivilegedOperation::interface()->methods)
    if (!method.succeeded)
      unrecorded.push_back(method.member);
  EXPECT_THAT(unrecorded, ElementsAre("Echo", "FileExistsAtPath", "SizeOfItemAtPath"));
}

TEST(KWPrivilegedOperation, answersOnlyTheEchoWithoutAThread) {
  for (const XPCMethod &method : KWPrivilegedOperation::interface()->methods)
    EXPECT_EQ(method.prompt, method.member == "Echo") << method.member;
}

TEST(KWPrivilegedOperation, tellsAFailureByTheFlagOfTheTrashAlone) {
  for (const XPCMethod &method : KWPrivilegedOperation::interface()->methods)
    EXPECT_EQ(method.failureFlag, method.member == "MoveToTrashItemAtPath") << method.member;
}

TEST(KWPrivilegedOperation, knowsByTheReplyWhetherItWasDone) {
  auto succeeded = [](const char *member, const NS::XPCValues &replies) {
    return KWPrivilegedOperation::interface()->methodWithMember(member)->succeeded(replies);
  };
  EXPECT_TRUE(succeeded("RemoveItemAtPath", {true, {}}));
  EXPECT_FALSE(succeeded("RemoveItemAtPath", {false, {}}));
  EXPECT_FALSE(succeeded("MoveToTrashItemAtPath", {true, {}}));
  EXPECT_TRUE(succeeded("MoveToTrashItemAtPath", {false, {}}));
  EXPECT_TRUE(succeeded("PleaseTerminate", {}));
  NS::XPCValue text = std::string("x");
  EXPECT_TRUE(succeeded("RemoveDiagnosticLogs", {text, std::int64_t{0}, text, {}}));
  EXPECT_FALSE(succeeded("RemoveDiagnosticLogs", {text, std::int64_t{64}, text, {}}));
}

} // namespace
