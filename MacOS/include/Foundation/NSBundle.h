#pragma once

#include <Foundation/NSObjCRuntime.h>

@interface NSBundle : NSObject
+ (NSBundle*)mainBundle;
// The bundle of the image that defines the class; the main bundle where that is in none.
+ (NSBundle*)bundleForClass:(Class)type;
// Nil where there is no such folder.
+ (instancetype)bundleWithPath:(NSString*)path;
@property(readonly, copy) NSString* bundleIdentifier;
@property(readonly, copy) NSString* bundlePath;
- (NSURL*)URLForResource:(NSString*)name withExtension:(NSString*)extension;
@end
