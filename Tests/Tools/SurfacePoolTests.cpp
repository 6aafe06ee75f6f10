#include "Tools/SurfacePool.h"

#include "Tests/Tools/ToolsTestSupport.h"

#include <IOSurface/IOSurface.h>
#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace pavo::tools {
namespace {

constexpr std::size_t kRingSize = 8;

TEST(SurfacePool, MakesSurfacesOfEachFormatAtOddSizes)
{
    for (const auto packing : {Packing::uyvy, Packing::yuy2, Packing::nv12, Packing::i420, Packing::bgra}) {
        const VideoFormat format{packing, 33, 17};
        auto pool = SurfacePool::create(format);
        ASSERT_TRUE(pool) << nameOf(packing);
        const auto buffer = pool->take();
        ASSERT_TRUE(buffer) << nameOf(packing);
        EXPECT_TRUE(CVPixelBufferGetIOSurface(buffer.get()));
        const LockedPixels pixels(buffer.get(), format);
        std::size_t index = 0;
        for (const auto& plane : planesOf(format)) {
            EXPECT_GE(pixels.view().planes[index].strideBytes, plane.rowBytes) << nameOf(packing);
            ++index;
        }
    }
}

TEST(SurfacePool, HasARingOfSurfacesAndNoMore)
{
    auto pool = SurfacePool::create({Packing::uyvy, 64, 48});
    ASSERT_TRUE(pool);
    std::vector<cf::Ref<CVPixelBufferRef>> taken;
    std::set<IOSurfaceRef> surfaces;
    for (std::size_t i = 0; i < kRingSize; ++i) {
        taken.push_back(pool->take());
        ASSERT_TRUE(taken.back());
        surfaces.insert(CVPixelBufferGetIOSurface(taken.back().get()));
    }
    EXPECT_EQ(surfaces.size(), kRingSize);
    EXPECT_FALSE(pool->take());
    taken.pop_back();
    const auto again = pool->take();
    ASSERT_TRUE(again);
    EXPECT_TRUE(surfaces.contains(CVPixelBufferGetIOSurface(again.get())));
}

TEST(SurfacePool, DoesNotGiveASurfaceAwayThatTheCameraHasInUse)
{
    auto pool = SurfacePool::create({Packing::bgra, 64, 48});
    ASSERT_TRUE(pool);
    auto buffer = pool->take();
    ASSERT_TRUE(buffer);
    const auto surface = cf::retain(CVPixelBufferGetIOSurface(buffer.get()));
    IOSurfaceIncrementUseCount(surface.get());
    buffer = {};
    std::vector<cf::Ref<CVPixelBufferRef>> taken;
    for (std::size_t i = 1; i < kRingSize; ++i) {
        taken.push_back(pool->take());
        ASSERT_TRUE(taken.back());
        EXPECT_NE(CVPixelBufferGetIOSurface(taken.back().get()), surface.get());
    }
    EXPECT_FALSE(pool->take());
    IOSurfaceDecrementUseCount(surface.get());
    taken.push_back(pool->take());
    ASSERT_TRUE(taken.back());
    EXPECT_EQ(CVPixelBufferGetIOSurface(taken.back().get()), surface.get());
}

TEST(SurfacePool, TellsReadersThatItsPixelsChange)
{
    const VideoFormat format{Packing::uyvy, 64, 48};
    auto pool = SurfacePool::create(format);
    ASSERT_TRUE(pool);
    const auto buffer = pool->take();
    const auto seed = IOSurfaceGetSeed(CVPixelBufferGetIOSurface(buffer.get()));
    {
        const LockedPixels pixels(buffer.get(), format);
    }
    EXPECT_GT(IOSurfaceGetSeed(CVPixelBufferGetIOSurface(buffer.get())), seed);
}

}  // namespace
}  // namespace pavo::tools
