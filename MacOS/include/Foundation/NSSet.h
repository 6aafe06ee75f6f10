#pragma once

#include <Foundation/NSEnumerator.h>

@interface NSSet<__covariant ObjectType> : NSObject <NSFastEnumeration>
@property(readonly) NSUInteger count;
@end

@interface NSMutableSet<ObjectType> : NSSet <ObjectType>
+ (instancetype)set;
- (void)addObject:(ObjectType)object;
@end
