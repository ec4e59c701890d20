// What our declarations of Foundation take from the platform's runtime, for the
// compiler that reads them here.
#pragma once
#include <objc/objc.h>

typedef long NSInteger;
typedef unsigned long NSUInteger;

@protocol NSObject
@end

@interface NSObject <NSObject>
@end

@class Protocol;
