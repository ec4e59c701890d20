// One line for each message that a client can send.
#include "Protocol/macOS/XPCRequests.h"

#include "Foundation/Base/macOS/Retained.h"
#include "Foundation/Text/Unicode.h"
#include "Protocol/macOS/XPCValues.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

using namespace NS;

using Agent = id<KWPrivilegedOperation>;

// The arguments of a message, and a block for each kind of reply.
class Call {
public:
  Call(const XPCValues &arguments, XPCReplyReceiver receiver)
      : arguments_(arguments), receiver_(std::move(receiver)) {}

  NSString *text(std::size_t index) const { return platformText(arguments_.at(index)); }
  NSArray *texts(std::size_t index) const {
    return platformTexts(std::get<std::vector<std::string>>(arguments_.at(index)));
  }

  HeldBlock<KWFlagBlock> flag() const {
    const XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWFlagBlock>(^(BOOL success, NSError *error) {
      receiver({success != NO, errorValue(error)});
    });
  }
  HeldBlock<KWTextBlock> echo() const {
    const XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWTextBlock>(^(NSString *text, NSError *error) {
      receiver({requiredText(text), errorValue(error)});
    });
  }
  HeldBlock<KWRepairBlock> repair() const {
    const XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWRepairBlock>(^(BOOL success, int value, NSString *text) {
      receiver({success != NO, std::int32_t{value}, requiredText(text)});
    });
  }
  HeldBlock<KWDiagnosticLogsBlock> logs() const {
    const XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWDiagnosticLogsBlock>(
        ^(NSString *output, long long status, NSString *errorOutput, NSError *error) {
          receiver({requiredText(output), static_cast<std::int64_t>(status),
                    requiredText(errorOutput), errorValue(error)});
        });
  }
  HeldBlock<KWSizeBlock> size() const {
    const XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWSizeBlock>(^(long long size, NSError *error) {
      receiver({static_cast<std::int64_t>(size), errorValue(error)});
    });
  }

private:
  const XPCValues &arguments_;
  const XPCReplyReceiver receiver_;
};

// The kinds of a message's arguments: t for a text, a for an array of them.
struct Row {
  std::string_view member;
  std::string_view arguments;
  void (*send)(Agent agent, const Call &call);
};

// clang-format off
const Row rows[] = {
    {"PleaseTerminate", "", [](Agent agent, const Call &) { [agent pleaseTerminate]; }},
    {"Echo", "t", [](Agent agent, const Call &call) {
       [agent echo:call.text(0) withReply:call.echo().get()]; }},
    {"FileExistsAtPath", "t", [](Agent agent, const Call &call) {
       [agent fileExistsAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"MoveItemAtPath", "tt", [](Agent agent, const Call &call) {
       [agent moveItemAtPath:call.text(0) toPath:call.text(1) withReply:call.flag().get()]; }},
    {"RemoveItemAtPath", "t", [](Agent agent, const Call &call) {
       [agent removeItemAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"SecurelyRemoveItemAtPath", "t", [](Agent agent, const Call &call) {
       [agent securelyRemoveItemAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"MoveToTrashItemAtPath", "t", [](Agent agent, const Call &call) {
       [agent moveToTrashItemAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"TruncateFileAtPath", "t", [](Agent agent, const Call &call) {
       [agent truncateFileAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"RemovePackageWithID", "t", [](Agent agent, const Call &call) {
       [agent removePackageWithID:call.text(0) withReply:call.flag().get()]; }},
    {"RemoveKextAtPath", "t", [](Agent agent, const Call &call) {
       [agent removeKextAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"RemoveASL", "", [](Agent agent, const Call &call) {
       [agent removeASLWithReply:call.flag().get()]; }},
    {"SlimBinaryWithPath", "ta", [](Agent agent, const Call &call) {
       [agent slimBinaryWithPath:call.text(0) archs:call.texts(1) withReply:call.flag().get()]; }},
    {"RemoveLaunchdAgentAtPath", "t", [](Agent agent, const Call &call) {
       [agent removeLaunchdAgentAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"EnableLaunchdAgentAtPath", "t", [](Agent agent, const Call &call) {
       [agent enableLaunchdAgentAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"DisableLaunchdAgentAtPath", "t", [](Agent agent, const Call &call) {
       [agent disableLaunchdAgentAtPath:call.text(0) withReply:call.flag().get()]; }},
    {"RemoveSMLoginItem", "t", [](Agent agent, const Call &call) {
       [agent removeSMLoginItem:call.text(0) withReply:call.flag().get()]; }},
    {"StartStartupItem", "t", [](Agent agent, const Call &call) {
       [agent startStartupItem:call.text(0) withReply:call.flag().get()]; }},
    {"StopStartupItem", "t", [](Agent agent, const Call &call) {
       [agent stopStartupItem:call.text(0) withReply:call.flag().get()]; }},
    {"RepairPermissions", "", [](Agent agent, const Call &call) {
       [agent repairPermissionsWithReply:call.repair().get()]; }},
    {"RunPeriodicScript", "t", [](Agent agent, const Call &call) {
       [agent runPeriodicScript:call.text(0) withReply:call.flag().get()]; }},
    {"StartSpotlightReindex", "", [](Agent agent, const Call &call) {
       [agent startSpotlightReindexWithReply:call.flag().get()]; }},
    {"RemoveGlobalLoginItemForAppWithPath", "t", [](Agent agent, const Call &call) {
       [agent removeGlobalLoginItemForAppWithPath:call.text(0) withReply:call.flag().get()]; }},
    {"RemoveLibraryFromLauchdConf", "t", [](Agent agent, const Call &call) {
       [agent removeLibraryFromLauchdConf:call.text(0) withReply:call.flag().get()]; }},
    {"FlushDNS", "", [](Agent agent, const Call &call) {
       [agent flushDNSWithReply:call.flag().get()]; }},
    {"RemoveDiagnosticLogs", "", [](Agent agent, const Call &call) {
       [agent removeDiagnosticLogsWithReply:call.logs().get()]; }},
    {"SizeOfItemAtPath", "t", [](Agent agent, const Call &call) {
       [agent sizeOfItemAtPath:call.text(0) reply:call.size().get()]; }},
};
// clang-format on

bool isOfKind(const XPCValue &argument, char kind) {
  return kind == 't' ? std::holds_alternative<std::string>(argument)
                     : std::holds_alternative<std::vector<std::string>>(argument);
}

bool isSendable(const std::string &text) {
  return text.find('\0') == std::string::npos && isWellFormedUTF8(text);
}

bool areOfKinds(const XPCValues &arguments, std::string_view kinds) {
  return std::equal(arguments.begin(), arguments.end(), kinds.begin(), kinds.end(), isOfKind);
}

} // namespace

@interface KWProgressReceiver : NSObject <KWPrivilegedOperationProgress> {
@public
  std::function<void(const std::string &chunk)> *receiver;
}
@end

@implementation KWProgressReceiver
- (void)dealloc {
  delete receiver;
  [super dealloc];
}
- (void)receiveNewOutput:(NSString *)output {
  const NS::XPCValue chunk = NS::optionalText(output);
  if (const auto *text = std::get_if<std::string>(&chunk))
    (*receiver)(*text);
}
@end

namespace NS {

bool canBeSent(const XPCValues &arguments) {
  return std::all_of(arguments.begin(), arguments.end(), [](const XPCValue &argument) {
    if (const auto *text = std::get_if<std::string>(&argument))
      return isSendable(*text);
    const auto *texts = std::get_if<std::vector<std::string>>(&argument);
    return texts && std::all_of(texts->begin(), texts->end(), isSendable);
  });
}

bool sendRequest(id<KWPrivilegedOperation> agent, const std::string &member,
                 const XPCValues &arguments, XPCReplyReceiver receiver) {
  const auto *row = std::find_if(std::begin(rows), std::end(rows),
                                 [&](const Row &each) { return each.member == member; });
  if (row == std::end(rows) || !areOfKinds(arguments, row->arguments))
    return false;
  @autoreleasepool {
    row->send(agent, Call(arguments, std::move(receiver)));
  }
  return true;
}

id<KWPrivilegedOperationProgress>
progressReceiver(std::function<void(const std::string &chunk)> receiver) {
  KWProgressReceiver *object = [[[KWProgressReceiver alloc] init] autorelease];
  object->receiver = new std::function<void(const std::string &chunk)>(std::move(receiver));
  return object;
}

} // namespace NS
