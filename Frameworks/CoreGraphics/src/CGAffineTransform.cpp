#include <CoreGraphics/CGAffineTransform.h>

#include <algorithm>

namespace {

CGPoint apply(CGAffineTransform t, CGFloat x, CGFloat y)
{
    return CGPointMake(t.a * x + t.c * y + t.tx, t.b * x + t.d * y + t.ty);
}

}  // namespace

const CGAffineTransform CGAffineTransformIdentity = {1, 0, 0, 1, 0, 0};

CGAffineTransform CGAffineTransformMakeTranslation(CGFloat tx, CGFloat ty)
{
    return {1, 0, 0, 1, tx, ty};
}

CGRect CGRectApplyAffineTransform(CGRect rect, CGAffineTransform t)
{
    const CGFloat left = rect.origin.x;
    const CGFloat bottom = rect.origin.y;
    const CGFloat right = left + rect.size.width;
    const CGFloat top = bottom + rect.size.height;
    const CGPoint p = apply(t, left, bottom);
    const CGPoint q = apply(t, right, bottom);
    const CGPoint r = apply(t, left, top);
    const CGPoint s = apply(t, right, top);
    const auto [minX, maxX] = std::minmax({p.x, q.x, r.x, s.x});
    const auto [minY, maxY] = std::minmax({p.y, q.y, r.y, s.y});
    return CGRectMake(minX, minY, maxX - minX, maxY - minY);
}
