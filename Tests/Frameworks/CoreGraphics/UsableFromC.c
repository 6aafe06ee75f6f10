// What C++ code cannot show: that the declarations are C.
#include <CoreGraphics/CoreGraphics.h>

CGFloat widthFromC(void);

CGFloat widthFromC(void)
{
    return CGRectGetWidth(CGRectApplyAffineTransform(CGRectMake(0, 0, 16, 9), CGAffineTransformIdentity));
}
