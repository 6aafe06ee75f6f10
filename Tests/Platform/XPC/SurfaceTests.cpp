// Surfaces between processes: the same memory on both sides, mapped once, and let go of in the end.

#include "Tests/Platform/XPC/LinuxFixture.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <sstream>

namespace pavo::test {
namespace {

constexpr const char* kSurfacesName = "com.tarnwell.macos.cam.tests.surfaces";

class XPCSurfaceTest : public XPCTest {
protected:
    // Another process that shines with so many surfaces, so many times.
    ChildProcess startProducer(int surfaceCount, int messageCount)
    {
        registerName(kSurfacesName);
        listener->resume();
        return ChildProcess({peerProgram(), "producer", kSurfacesName, std::to_string(surfaceCount),
                             std::to_string(messageCount)},
                            output());
    }
    std::string output() const { return folder_.path() + "/inodes"; }

private:
    TemporaryFolder folder_;
};

TEST_F(XPCSurfaceTest, SurfaceOfAnotherProcessArrivesWithoutACopy)
{
    const auto producer = startProducer(3, 3);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 3; }));
    std::istringstream inodes(readFile(output()));
    for (int i = 0; i < 3; ++i) {
        const auto surface = house->lamp->surfaces().at(static_cast<std::size_t>(i));
        std::uint64_t inode = 0;
        ASSERT_TRUE(inodes >> inode);
        EXPECT_EQ(inodeOf(surface.get()), inode);
        EXPECT_EQ(markOf(surface.get()), i);
        EXPECT_EQ(IOSurfaceGetWidth(surface.get()), 64U);
        EXPECT_EQ(IOSurfaceGetHeight(surface.get()), 48U);
    }
}

TEST_F(XPCSurfaceTest, SurfaceThatComesAgainIsTheSameObjectAndIsMappedOnce)
{
    // The lamp lets go of each surface at once: only the connection keeps them.
    house->lamp->keepsSurfaces = false;
    const auto before = mappedSurfaceCount();
    const auto producer = startProducer(2, 100);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 100; }));
    EXPECT_EQ(mappedSurfaceCount() - before, 2U);
}

TEST_F(XPCSurfaceTest, ReceivingASurfaceDoesNotTakeItIntoUse)
{
    const auto producer = startProducer(1, 1);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    const auto surface = house->lamp->surfaces().at(0);
    EXPECT_FALSE(IOSurfaceIsInUse(surface.get()));
    IOSurfaceIncrementUseCount(surface.get());
    EXPECT_TRUE(IOSurfaceIsInUse(surface.get()));
    IOSurfaceDecrementUseCount(surface.get());
}

TEST_F(XPCSurfaceTest, UseByTheReceiverIsSeenByTheSender)
{
    // In one process both sides share the object, so its use count of this process is the sender's, too.
    listener->resume();
    const auto connection = connectByEndpoint();
    endLater(connection);
    connection->resume();
    const auto surface = makeSurface(9);
    lampOf(*connection).send<&Lamp::shine>(surface.get(), makeTiming(1));
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 1; }));
    EXPECT_EQ(house->lamp->surfaces().at(0).get(), surface.get());
}

TEST_F(XPCSurfaceTest, ConnectionKeepsTheLast32SurfacesOnly)
{
    house->lamp->keepsSurfaces = false;
    const auto before = mappedSurfaceCount();
    const auto producer = startProducer(40, 40);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 40; }));
    EXPECT_TRUE(waitFor([before] { return mappedSurfaceCount() - before == 32; }))
        << mappedSurfaceCount() - before;
}

TEST_F(XPCSurfaceTest, SurfacesGoWithTheirConnection)
{
    house->lamp->keepsSurfaces = false;
    const auto before = mappedSurfaceCount();
    auto producer = startProducer(5, 5);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 5; }));
    producer.end(SIGKILL);
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    EXPECT_TRUE(waitFor([before] { return mappedSurfaceCount() == before; }));
}

TEST_F(XPCSurfaceTest, SurfaceThatIsStillHeldOutlivesItsConnectionAndItsMaker)
{
    auto producer = startProducer(2, 2);
    ASSERT_TRUE(waitFor([this] { return house->lamp->callCount() == 2; }));
    const auto surface = house->lamp->surfaces().at(1);
    producer.end(SIGKILL);
    ASSERT_TRUE(waitFor([this] { return house->counts(0)->invalidations == 1; }));
    EXPECT_EQ(markOf(surface.get()), 1);
}

}  // namespace
}  // namespace pavo::test
