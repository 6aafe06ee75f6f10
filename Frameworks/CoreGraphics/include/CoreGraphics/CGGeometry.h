#pragma once

#include <CoreGraphics/CGBase.h>

struct CGPoint {
    CGFloat x;
    CGFloat y;
};
typedef struct CGPoint CGPoint;

struct CGSize {
    CGFloat width;
    CGFloat height;
};
typedef struct CGSize CGSize;

// A size may be negative: the rectangle then reaches from the origin to the left or downwards.
struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef struct CGRect CGRect;

#ifdef __cplusplus
static_assert(sizeof(CGPoint) == 16 && sizeof(CGSize) == 16 && sizeof(CGRect) == 32, "sizes of the ABI");
#else
_Static_assert(sizeof(CGPoint) == 16 && sizeof(CGSize) == 16 && sizeof(CGRect) == 32, "sizes of the ABI");
#endif

CG_INLINE CGPoint CGPointMake(CGFloat x, CGFloat y)
{
    CGPoint point;
    point.x = x;
    point.y = y;
    return point;
}

CG_INLINE CGSize CGSizeMake(CGFloat width, CGFloat height)
{
    CGSize size;
    size.width = width;
    size.height = height;
    return size;
}

CG_INLINE CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height)
{
    CGRect rect;
    rect.origin = CGPointMake(x, y);
    rect.size = CGSizeMake(width, height);
    return rect;
}

// The extent, which is never negative.
CG_EXTERN CGFloat CGRectGetWidth(CGRect rect);
CG_EXTERN CGFloat CGRectGetHeight(CGRect rect);
// The same rectangle with a size that is not negative.
CG_EXTERN CGRect CGRectStandardize(CGRect rect);
