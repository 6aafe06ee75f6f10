#pragma once

#include <Foundation/NSObjCRuntime.h>

@interface NSURL : NSObject
+ (NSURL*)fileURLWithPath:(NSString*)path;
@property(readonly, copy) NSString* path;
@end
