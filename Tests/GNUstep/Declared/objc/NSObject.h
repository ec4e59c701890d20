// The part of the platform's runtime that our declarations of Foundation use, for
// the compiler that reads them here.
#pragma once
#include <objc/objc.h>

typedef long NSInteger;
typedef unsigned long NSUInteger;

@protocol NSObject
@end

@interface NSObject <NSObject>
@end

@class Protocol;
