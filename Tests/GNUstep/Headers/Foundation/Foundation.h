// GNUstep's Foundation, and calls of the platform's that it does not have.
#pragma once
#include_next <Foundation/Foundation.h>

@interface NSFileManager (KWTrash)
- (BOOL)trashItemAtURL:(NSURL *)url resultingItemURL:(NSURL **)resultingURL error:(NSError **)error;
@end
