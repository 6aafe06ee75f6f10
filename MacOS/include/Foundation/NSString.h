#pragma once

#include <Foundation/NSObjCRuntime.h>

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject
// Nil where the bytes are not of that encoding.
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding;
@property(readonly) const char* UTF8String __attribute__((objc_returns_inner_pointer));
- (BOOL)isEqualToString:(NSString*)string;
@end
