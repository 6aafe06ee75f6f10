#pragma once

#include <Foundation/NSObjCRuntime.h>

@interface NSUUID : NSObject
// A new random one.
+ (instancetype)UUID;
// Nil where the text is not one.
- (instancetype)initWithUUIDString:(NSString*)string;
- (instancetype)initWithUUIDBytes:(const unsigned char[16])bytes;
- (void)getUUIDBytes:(unsigned char[16])bytes;
@property(readonly, copy) NSString* UUIDString;
@end
