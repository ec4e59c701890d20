// One method for each message of the contract.
#include "Service/macOS/XPCExportedObject.h"

#include "Foundation/Base/Progress.h"
#include "Foundation/Base/macOS/Retained.h"
#include "Protocol/macOS/XPCValues.h"
#include "Service/Internal/RequestInvocation.h"

#include <objc/runtime.h>
#include <utility>

namespace {

using namespace NS;

// A value of a reply as the block takes it.
template <typename Platform> struct BlockArgument;
template <> struct BlockArgument<BOOL> {
  static BOOL from(const XPCValue &value) { return std::get<bool>(value) ? YES : NO; }
};
template <> struct BlockArgument<int> {
  static int from(const XPCValue &value) { return std::get<std::int32_t>(value); }
};
template <> struct BlockArgument<long long> {
  static long long from(const XPCValue &value) { return std::get<std::int64_t>(value); }
};
template <> struct BlockArgument<NSString *> {
  static NSString *from(const XPCValue &value) { return platformText(value); }
};
template <> struct BlockArgument<NSError *> {
  static NSError *from(const XPCValue &value) { return platformError(value); }
};

template <typename... Platform, std::size_t... Index>
void callBlock(void (^block)(Platform...), const XPCValues &values,
               std::index_sequence<Index...> /*all*/) {
  block(BlockArgument<Platform>::from(values.at(Index))...);
}

// Calls the block with the values of a reply; lets it go when there are none.
template <typename... Platform> XPCReply replyTo(void (^block)(Platform...)) {
  using Block = void (^)(Platform...);
  return XPCReply([held = HeldBlock<Block>(block)](const XPCOutcome &outcome) {
    if (!outcome.replied || !held.get())
      return;
    @autoreleasepool {
      callBlock(held.get(), outcome.values, std::index_sequence_for<Platform...>());
    }
  });
}

void handle(const XPCExport &served, const XPCMethod &method, const XPCValues &arguments,
            const XPCReply &reply) {
  if (served.object)
    invokeRequest(method, *served.object, arguments, reply, served.requester);
}

// The reply fails when it goes unused: for a message that the interface lacks,
// or when nothing is exported.
void serve(const XPCExport &served, SEL selector, const XPCValues &arguments,
           const XPCReply &reply) {
  const XPCMethod *method = served.interface->methodWithSelector(sel_getName(selector));
  if (!method || !method->invoker)
    return;
  @autoreleasepool {
    const auto progress = std::make_shared<Progress>();
    NSProgress *platformProgress = [NSProgress progressWithTotalUnitCount:1];
    [platformProgress setCancellationHandler:^{
      progress->cancel();
    }];
    if ([platformProgress isCancelled])
      progress->cancel();
    const Progress::Scope scope(*progress);
    handle(served, *method, arguments, reply);
    [platformProgress setCancellationHandler:nil];
    [platformProgress setCompletedUnitCount:1];
  }
}

} // namespace

@interface KWExportedOperations : NSObject <KWPrivilegedOperation> {
@public
  XPCExport *served;
}
@end

@implementation KWExportedOperations
- (void)dealloc {
  delete served;
  [super dealloc];
}

- (void)pleaseTerminate {
  serve(*served, _cmd, {}, XPCReply(nullptr));
}
- (void)echo:(NSString *)text withReply:(KWTextBlock)reply {
  serve(*served, _cmd, {optionalText(text)}, replyTo(reply));
}
- (void)fileExistsAtPath:(NSString *)path withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
- (void)moveItemAtPath:(NSString *)srcPath toPath:(NSString *)dstPath withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(srcPath), requiredText(dstPath)}, replyTo(reply));
}
- (void)removeItemAtPath:(NSString *)path withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
- (void)securelyRemoveItemAtPath:(NSString *)path withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
- (void)moveToTrashItemAtPath:(NSString *)path withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
- (void)truncateFileAtPath:(NSString *)path withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
- (void)removePackageWithID:(NSString *)packageID withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(packageID)}, replyTo(reply));
}
- (void)removeKextAtPath:(NSString *)path withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
- (void)removeASLWithReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {}, replyTo(reply));
}
- (void)slimBinaryWithPath:(NSString *)path archs:(NSArray *)archs withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(path), requiredTexts(archs)}, replyTo(reply));
}
- (void)removeLaunchdAgentAtPath:(NSString *)plistPath withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(plistPath)}, replyTo(reply));
}
- (void)enableLaunchdAgentAtPath:(NSString *)plistPath withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(plistPath)}, replyTo(reply));
}
- (void)disableLaunchdAgentAtPath:(NSString *)plistPath withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(plistPath)}, replyTo(reply));
}
- (void)removeSMLoginItem:(NSString *)bundleID withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(bundleID)}, replyTo(reply));
}
- (void)startStartupItem:(NSString *)name withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(name)}, replyTo(reply));
}
- (void)stopStartupItem:(NSString *)name withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(name)}, replyTo(reply));
}
- (void)repairPermissionsWithReply:(KWRepairBlock)reply {
  serve(*served, _cmd, {}, replyTo(reply));
}
- (void)runPeriodicScript:(NSString *)scriptName withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(scriptName)}, replyTo(reply));
}
- (void)startSpotlightReindexWithReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {}, replyTo(reply));
}
- (void)removeGlobalLoginItemForAppWithPath:(NSString *)appPath withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(appPath)}, replyTo(reply));
}
- (void)removeLibraryFromLauchdConf:(NSString *)libraryPath withReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {requiredText(libraryPath)}, replyTo(reply));
}
- (void)flushDNSWithReply:(KWFlagBlock)reply {
  serve(*served, _cmd, {}, replyTo(reply));
}
- (void)removeDiagnosticLogsWithReply:(KWDiagnosticLogsBlock)reply {
  serve(*served, _cmd, {}, replyTo(reply));
}
- (void)sizeOfItemAtPath:(NSString *)path reply:(KWSizeBlock)reply {
  serve(*served, _cmd, {requiredText(path)}, replyTo(reply));
}
@end

namespace NS {

id<KWPrivilegedOperation> exportedOperations(XPCExport served) {
  KWExportedOperations *object = [[[KWExportedOperations alloc] init] autorelease];
  object->served = new XPCExport(std::move(served));
  return object;
}

} // namespace NS
