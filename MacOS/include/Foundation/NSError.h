#pragma once

#include <Foundation/NSObjCRuntime.h>

@interface NSError : NSObject
+ (instancetype)errorWithDomain:(NSString*)domain code:(NSInteger)code userInfo:(NSDictionary*)userInfo;
@property(readonly, copy) NSString* domain;
@property(readonly) NSInteger code;
@end
