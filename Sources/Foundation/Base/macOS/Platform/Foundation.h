// The platform's Foundation: its own headers, else declarations of the
// parts that the bodies here use. The cross compiler has no Objective-C headers
// but the runtime's.
#pragma once

#if __has_include(<Foundation/Foundation.h>)
#import <Foundation/Foundation.h>
#else

#include <objc/NSObject.h>
#include <sys/types.h>

typedef double NSTimeInterval;
typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSData : NSObject
- (const void *)bytes;
- (NSUInteger)length;
@end

@interface NSString : NSObject
+ (instancetype)stringWithUTF8String:(const char *)text;
- (instancetype)initWithBytes:(const void *)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding;
- (NSData *)dataUsingEncoding:(NSStringEncoding)encoding;
@end

@interface NSValue : NSObject
- (const char *)objCType;
@end

@interface NSNumber : NSValue
+ (NSNumber *)numberWithBool:(BOOL)value;
+ (NSNumber *)numberWithDouble:(double)value;
+ (NSNumber *)numberWithLongLong:(long long)value;
+ (NSNumber *)numberWithUnsignedLongLong:(unsigned long long)value;
- (BOOL)boolValue;
- (double)doubleValue;
- (long long)longLongValue;
- (unsigned long long)unsignedLongLongValue;
@end

@interface NSArray : NSObject
+ (instancetype)arrayWithObject:(id)object;
- (NSUInteger)count;
- (id)objectAtIndex:(NSUInteger)index;
@end

@interface NSMutableArray : NSArray
+ (instancetype)arrayWithCapacity:(NSUInteger)count;
- (void)addObject:(id)object;
@end

@interface NSDictionary : NSObject
- (NSArray *)allKeys;
- (id)objectForKey:(id)key;
@end

@interface NSMutableDictionary : NSDictionary
+ (instancetype)dictionaryWithCapacity:(NSUInteger)count;
- (void)setObject:(id)object forKey:(id)key;
@end

@interface NSError : NSObject
+ (instancetype)errorWithDomain:(NSString *)domain
                           code:(NSInteger)code
                       userInfo:(NSDictionary *)userInfo;
- (NSString *)domain;
- (NSInteger)code;
- (NSDictionary *)userInfo;
@end

@interface NSURL : NSObject
+ (NSURL *)fileURLWithPath:(NSString *)path isDirectory:(BOOL)isDirectory;
@end

@interface NSFileManager : NSObject
+ (NSFileManager *)defaultManager;
- (BOOL)trashItemAtURL:(NSURL *)url resultingItemURL:(NSURL **)resultingURL error:(NSError **)error;
@end

@interface NSDate : NSObject
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)seconds;
- (NSTimeInterval)timeIntervalSinceNow;
@end

@interface NSThread : NSObject
+ (NSThread *)currentThread;
+ (NSThread *)mainThread;
@end

@interface NSTimer : NSObject
+ (NSTimer *)timerWithTimeInterval:(NSTimeInterval)seconds
                            target:(id)target
                          selector:(SEL)selector
                          userInfo:(id)userInfo
                           repeats:(BOOL)repeats;
- (void)invalidate;
@end

@interface NSRunLoop : NSObject
+ (NSRunLoop *)currentRunLoop;
+ (NSRunLoop *)mainRunLoop;
- (void)addTimer:(NSTimer *)timer forMode:(NSString *)mode;
- (BOOL)runMode:(NSString *)mode beforeDate:(NSDate *)limit;
@end

@interface NSObject (KWPerformOnThread)
- (void)performSelector:(SEL)selector
               onThread:(NSThread *)thread
             withObject:(id)object
          waitUntilDone:(BOOL)waits
                  modes:(NSArray *)modes;
@end

@interface NSProgress : NSObject
+ (NSProgress *)progressWithTotalUnitCount:(int64_t)count;
+ (NSProgress *)discreteProgressWithTotalUnitCount:(int64_t)count;
- (void)becomeCurrentWithPendingUnitCount:(int64_t)count;
- (void)resignCurrent;
- (void)setCompletedUnitCount:(int64_t)count;
- (void)setCancellationHandler:(void (^)(void))handler;
- (BOOL)isCancelled;
- (void)cancel;
@end

@interface NSXPCInterface : NSObject
+ (NSXPCInterface *)interfaceWithProtocol:(Protocol *)protocol;
@end

typedef NSUInteger NSXPCConnectionOptions;
enum : NSXPCConnectionOptions { NSXPCConnectionPrivileged = 1 << 12 };

@interface NSXPCConnection : NSObject
- (instancetype)initWithMachServiceName:(NSString *)name options:(NSXPCConnectionOptions)options;
- (void)setExportedInterface:(NSXPCInterface *)interface;
- (void)setExportedObject:(id)object;
- (void)setRemoteObjectInterface:(NSXPCInterface *)interface;
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError *error))handler;
- (void)setInterruptionHandler:(void (^)(void))handler;
- (void)setInvalidationHandler:(void (^)(void))handler;
- (void)resume;
- (void)suspend;
- (void)invalidate;
- (pid_t)processIdentifier;
- (uid_t)effectiveUserIdentifier;
@end

@class NSXPCListener;

@protocol NSXPCListenerDelegate <NSObject>
@optional
- (BOOL)listener:(NSXPCListener *)listener shouldAcceptNewConnection:(NSXPCConnection *)connection;
@end

@interface NSXPCListener : NSObject
- (instancetype)initWithMachServiceName:(NSString *)name;
- (void)setDelegate:(id<NSXPCListenerDelegate>)delegate;
- (void)resume;
- (void)invalidate;
@end

#endif
