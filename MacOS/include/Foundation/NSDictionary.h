#pragma once

#include <Foundation/NSEnumerator.h>

@interface NSDictionary<__covariant KeyType, __covariant ObjectType> : NSObject <NSFastEnumeration>
+ (instancetype)dictionary;
@property(readonly) NSUInteger count;
- (ObjectType)objectForKeyedSubscript:(KeyType)key;
@end
