#include <CoreGraphics/CoreGraphics.h>

#include <gtest/gtest.h>

extern "C" CGFloat widthFromC(void);

namespace {

void expectRect(CGRect rect, CGFloat x, CGFloat y, CGFloat width, CGFloat height)
{
    EXPECT_EQ(rect.origin.x, x);
    EXPECT_EQ(rect.origin.y, y);
    EXPECT_EQ(rect.size.width, width);
    EXPECT_EQ(rect.size.height, height);
}

TEST(CoreGraphics, MakesWhatItIsTold)
{
    expectRect(CGRectMake(1, 2, 3, 4), 1, 2, 3, 4);
    EXPECT_EQ(CGPointMake(1, 2).y, 2);
    EXPECT_EQ(CGSizeMake(1920, 1080).height, 1080);
}

TEST(CoreGraphics, TheWidthAndHeightOfARectangleAreNeverNegative)
{
    EXPECT_EQ(CGRectGetWidth(CGRectMake(0, 0, 16, 9)), 16);
    EXPECT_EQ(CGRectGetHeight(CGRectMake(0, 0, 16, 9)), 9);
    EXPECT_EQ(CGRectGetWidth(CGRectMake(0, 0, -16, -9)), 16);
    EXPECT_EQ(CGRectGetHeight(CGRectMake(0, 0, -16, -9)), 9);
}

TEST(CoreGraphics, StandardizingMovesTheOriginOfANegativeSize)
{
    expectRect(CGRectStandardize(CGRectMake(10, 20, -4, -5)), 6, 15, 4, 5);
    expectRect(CGRectStandardize(CGRectMake(10, 20, 4, 5)), 10, 20, 4, 5);
}

TEST(CoreGraphics, TheIdentityChangesNothing)
{
    expectRect(CGRectApplyAffineTransform(CGRectMake(1, 2, 3, 4), CGAffineTransformIdentity), 1, 2, 3, 4);
}

TEST(CoreGraphics, ATranslationMovesARectangle)
{
    const auto translation = CGAffineTransformMakeTranslation(240, -30);
    expectRect(CGRectApplyAffineTransform(CGRectMake(1, 2, 3, 4), translation), 241, -28, 3, 4);
}

TEST(CoreGraphics, ATurnedRectangleFillsTheRectangleAroundItsCorners)
{
    const CGAffineTransform quarterTurn = {0, 1, -1, 0, 0, 0};
    expectRect(CGRectApplyAffineTransform(CGRectMake(0, 0, 16, 9), quarterTurn), -9, 0, 9, 16);
}

TEST(CoreGraphics, AMirroredRectangleIsStandardized)
{
    const CGAffineTransform mirror = {-2, 0, 0, 1, 0, 0};
    expectRect(CGRectApplyAffineTransform(CGRectMake(1, 0, 3, 4), mirror), -8, 0, 6, 4);
    expectRect(CGRectApplyAffineTransform(CGRectMake(4, 4, -3, -4), CGAffineTransformIdentity), 1, 0, 3, 4);
}

TEST(CoreGraphics, IsUsableFromC)
{
    EXPECT_EQ(widthFromC(), 16);
}

}  // namespace
