#pragma once

#include <Foundation/NSObjCRuntime.h>

@interface NSValue : NSObject
@end

@interface NSNumber : NSValue
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithUnsignedInt:(unsigned int)value;
+ (NSNumber*)numberWithDouble:(double)value;
@property(readonly) BOOL boolValue;
@property(readonly) unsigned int unsignedIntValue;
@end

// Stands for nothing where a collection needs an object.
@interface NSNull : NSObject
+ (NSNull*)null;
@end
