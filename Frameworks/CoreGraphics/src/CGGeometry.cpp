#include <CoreGraphics/CGGeometry.h>

#include <cmath>

CGFloat CGRectGetWidth(CGRect rect)
{
    return std::fabs(rect.size.width);
}

CGFloat CGRectGetHeight(CGRect rect)
{
    return std::fabs(rect.size.height);
}

CGRect CGRectStandardize(CGRect rect)
{
    const CGFloat x = rect.size.width < 0 ? rect.origin.x + rect.size.width : rect.origin.x;
    const CGFloat y = rect.size.height < 0 ? rect.origin.y + rect.size.height : rect.origin.y;
    return CGRectMake(x, y, CGRectGetWidth(rect), CGRectGetHeight(rect));
}
