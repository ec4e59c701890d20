// The two protocols as the platform's transport wants them. Clients that use no
// library of ours declare the same; names, order, types and odd spellings are
// the wire's.
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
- (void)pleaseTerminate;
- (void)echo:(NSString *)text withReply:(KWTextBlock)reply;
- (void)fileExistsAtPath:(NSString *)path withReply:(KWFlagBlock)reply;
- (void)moveItemAtPath:(NSString *)srcPath toPath:(NSString *)dstPath withReply:(KWFlagBlock)reply;
- (void)removeItemAtPath:(NSString *)path withReply:(KWFlagBlock)reply;
- (void)securelyRemoveItemAtPath:(NSString *)path withReply:(KWFlagBlock)reply;
- (void)moveToTrashItemAtPath:(NSString *)path withReply:(KWFlagBlock)reply;
- (void)truncateFileAtPath:(NSString *)path withReply:(KWFlagBlock)reply;
- (void)removePackageWithID:(NSString *)packageID withReply:(KWFlagBlock)reply;
- (void)removeKextAtPath:(NSString *)path withReply:(KWFlagBlock)reply;
- (void)removeASLWithReply:(KWFlagBlock)reply;
- (void)slimBinaryWithPath:(NSString *)path archs:(NSArray *)archs withReply:(KWFlagBlock)reply;
- (void)removeLaunchdAgentAtPath:(NSString *)plistPath withReply:(KWFlagBlock)reply;
- (void)enableLaunchdAgentAtPath:(NSString *)plistPath withReply:(KWFlagBlock)reply;
- (void)disableLaunchdAgentAtPath:(NSString *)plistPath withReply:(KWFlagBlock)reply;
- (void)removeSMLoginItem:(NSString *)bundleID withReply:(KWFlagBlock)reply;
- (void)startStartupItem:(NSString *)name withReply:(KWFlagBlock)reply;
- (void)stopStartupItem:(NSString *)name withReply:(KWFlagBlock)reply;
- (void)repairPermissionsWithReply:(KWRepairBlock)reply;
- (void)runPeriodicScript:(NSString *)scriptName withReply:(KWFlagBlock)reply;
- (void)startSpotlightReindexWithReply:(KWFlagBlock)reply;
- (void)removeGlobalLoginItemForAppWithPath:(NSString *)appPath withReply:(KWFlagBlock)reply;
- (void)removeLibraryFromLauchdConf:(NSString *)libraryPath withReply:(KWFlagBlock)reply;
- (void)flushDNSWithReply:(KWFlagBlock)reply;
- (void)removeDiagnosticLogsWithReply:(KWDiagnosticLogsBlock)reply;
- (void)sizeOfItemAtPath:(NSString *)path reply:(KWSizeBlock)reply;
@end

@protocol KWPrivilegedOperationProgress <NSObject>
- (void)receiveNewOutput:(NSString *)output;
@end

namespace NS {

// The protocol of an interface, by the last part of its name; nil for any
// other name.
Protocol *protocolOfInterface(const std::string &name);

} // namespace NS
