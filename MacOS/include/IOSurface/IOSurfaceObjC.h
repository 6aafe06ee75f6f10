#pragma once

#include <objc/NSObject.h>

// The object behind an IOSurfaceRef, which is bridged: the same pointer.
@interface IOSurface : NSObject
@end
