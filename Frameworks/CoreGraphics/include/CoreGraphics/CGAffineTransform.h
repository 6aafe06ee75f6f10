#pragma once

#include <CoreGraphics/CGBase.h>
#include <CoreGraphics/CGGeometry.h>

// Maps (x, y) to (a x + c y + tx, b x + d y + ty).
struct CGAffineTransform {
    CGFloat a, b, c, d;
    CGFloat tx, ty;
};
typedef struct CGAffineTransform CGAffineTransform;

#ifdef __cplusplus
static_assert(sizeof(CGAffineTransform) == 48, "size of the ABI");
#else
_Static_assert(sizeof(CGAffineTransform) == 48, "size of the ABI");
#endif

CG_EXTERN const CGAffineTransform CGAffineTransformIdentity;

CG_EXTERN CGAffineTransform CGAffineTransformMakeTranslation(CGFloat tx, CGFloat ty);
// The smallest rectangle, standardized, that holds the four mapped corners.
CG_EXTERN CGRect CGRectApplyAffineTransform(CGRect rect, CGAffineTransform t);
