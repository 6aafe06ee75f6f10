// What drawing and sending cost in memory. The test's own malloc counts for each thread; the library calls
// it, as it calls any other.
#include "Tests/Producer/ProducerFixture.h"
#include "Tests/Support/Wait.h"

#include <malloc.h>

#include <cstring>

namespace {

thread_local std::uint64_t allocationCount = 0;

}  // namespace

extern "C" {

void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

void* malloc(size_t size)
{
    ++allocationCount;
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    ++allocationCount;
    return __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size)
{
    ++allocationCount;
    return __libc_realloc(memory, size);
}

}  // extern "C"

namespace pavo::test {
namespace {

class ProducerAllocations : public ProducerFixture {
protected:
    void sendFrames(const Producer& producer, int count)
    {
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(producer.waitForNextFrame(), ProducerStatus::ok);
            ProducerStatus status{};
            auto frame = producer.beginFrame(&status);
            if (!frame) {
                ASSERT_EQ(status, ProducerStatus::ringFull);  // a machine that is busy with others
                continue;
            }
            std::memset(frame->row(0, 0), i, frame->plane(0).stride);
            ASSERT_EQ(frame->send(), ProducerStatus::ok);
        }
    }
};

TEST_F(ProducerAllocations, TheCountSeesWhatTheLibraryAllocates)
{
    const auto before = allocationCount;
    const auto producer = open(config());
    EXPECT_GT(allocationCount, before);
}

TEST_F(ProducerAllocations, AFrameAllocatesNothingOnTheThreadThatSendsIt)
{
    auto settings = config();
    settings.rate_numerator = 500;
    const auto producer = openWanted(settings);
    sendFrames(producer, 50);
    const auto before = allocationCount;
    sendFrames(producer, 500);
    EXPECT_EQ(allocationCount, before);
    EXPECT_GT(producer.statistics().sent, 100u);
}

TEST_F(ProducerAllocations, MemoryDoesNotGrowWithTheFrames)
{
    auto settings = config();
    settings.rate_numerator = 1000;
    const auto producer = openWanted(settings);
    const auto inUse = [&] {
        EXPECT_TRUE(waitFor([&] { return camera->frameCount() == producer.statistics().sent; }));
        return ::mallinfo2().uordblks;
    };
    sendFrames(producer, 500);
    const auto before = inUse();
    sendFrames(producer, 2000);
    EXPECT_LT(inUse(), before + 64 * 1024);
}

}  // namespace
}  // namespace pavo::test
