// The two protocols as the platform's transport wants them. Clients without
// libkeepwell declare the same protocols, so the names, the order, the types and
// the odd spellings must not change.
#pragma once

#include "Foundation/Base/macOS/Platform/Foundation.h"

#include <string>

typedef void (^KWFlagBlock)(BOOL success, NSError *error);
typedef void (^KWTextBlock)(NSString *text, NSError *error);
typedef void (^KWRepairBlock)(BOOL success, int value, NSString *text);
typedef void (^KWDiagnosticLogsBlock)(NSString *output, long long status, NSString *errorOutput,
                                      NSError *error);
typedef void (^KWSizeBlock)(long long size, NSError *error);

@protocol KWPrivilegedOperation <NSObject>
#include "Protocol/OperationMessages.inc"
@end

@protocol KWPrivilegedOperationProgress <NSObject>
- (void)receiveNewOutput:(NSString *)output;
@end

namespace NS {

// The protocol of an interface, by the last part of its name; nil for any
// other name.
Protocol *protocolOfInterface(const std::string &name);

} // namespace NS
