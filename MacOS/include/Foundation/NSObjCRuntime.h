#pragma once

#include <objc/NSObject.h>
#include <objc/runtime.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#define FOUNDATION_EXPORT extern "C"

typedef double NSTimeInterval;

@class NSArray<ObjectType>;
@class NSData;
@class NSDictionary<KeyType, ObjectType>;
@class NSError;
@class NSSet<ObjectType>;
@class NSURL;
@class NSUUID;
