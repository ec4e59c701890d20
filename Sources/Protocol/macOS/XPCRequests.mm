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
    XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWFlagBlock>(^(BOOL success, NSError *error) {
      receiver({success != NO, errorValue(error)});
    });
  }
  HeldBlock<KWTextBlock> echo() const {
    XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWTextBlock>(^(NSString *text, NSError *error) {
      receiver({requiredText(text), errorValue(error)});
    });
  }
  HeldBlock<KWRepairBlock> repair() const {
    XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWRepairBlock>(^(BOOL success, int value, NSString *text) {
      receiver({success != NO, std::int32_t{value}, requiredText(text)});
    });
  }
  HeldBlock<KWDiagnosticLogsBlock> logs() const {
    XPCReplyReceiver receiver = receiver_;
    return HeldBlock<KWDiagnosticLogsBlock>(
        ^(NSString *output, long long status, NSString *errorOutput, NSError *error) {
          receiver({requiredText(output), static_cast<std::int64_t>(status),
                    requiredText(errorOutput), errorValue(error)});
        });
  }
  HeldBlock<KWSizeBlock> size() const {
    XPCReplyReceiver receiver = receiver_;
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

const Row rows[] = {
#include "Protocol/OperationRequests.inc"
};

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
  NS::XPCValue chunk = NS::optionalText(output);
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
