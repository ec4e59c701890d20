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
    auto progress = std::make_shared<Progress>();
    NSProgress *platformProgress = [NSProgress progressWithTotalUnitCount:1];
    [platformProgress setCancellationHandler:^{
      progress->cancel();
    }];
    if ([platformProgress isCancelled])
      progress->cancel();
    Progress::Scope scope(*progress);
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

#include "Protocol/OperationMethods.inc"
@end

namespace NS {

id<KWPrivilegedOperation> exportedOperations(XPCExport served) {
  KWExportedOperations *object = [[[KWExportedOperations alloc] init] autorelease];
  object->served = new XPCExport(std::move(served));
  return object;
}

} // namespace NS
