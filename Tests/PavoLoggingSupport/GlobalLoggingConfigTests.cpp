#include "PavoLoggingSupport/GlobalLoggingConfig.h"

#include "PavoLoggingSupport/Logger.h"
#include "Tests/Support/RecordingInterceptor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace pavo {
namespace {

class CountingInterceptor final : public LogIntercepting {
public:
    void interceptLoggedMessage(const std::string&, const std::optional<std::string>&, os_log_type_t) override
    {
        ++count;
    }

    std::atomic<int> count = 0;
};

TEST(GlobalLoggingConfig, IsOneForTheProcessAndStartsWithoutAnInterceptor)
{
    EXPECT_EQ(&GlobalLoggingConfig::shared(), &GlobalLoggingConfig::shared());
    EXPECT_EQ(GlobalLoggingConfig::shared().interceptor(), nullptr);
}

TEST(GlobalLoggingConfig, HoldsTheInterceptorUntilAnotherOneIsSet)
{
    auto first = std::make_shared<CountingInterceptor>();
    const std::weak_ptr<CountingInterceptor> observed = first;
    GlobalLoggingConfig::shared().setInterceptor(std::move(first));
    EXPECT_FALSE(observed.expired());
    GlobalLoggingConfig::shared().setInterceptor(std::make_shared<CountingInterceptor>());
    EXPECT_TRUE(observed.expired());
    GlobalLoggingConfig::shared().setInterceptor(nullptr);
    EXPECT_EQ(GlobalLoggingConfig::shared().interceptor(), nullptr);
}

TEST(GlobalLoggingConfig, AMessageReachesTheInterceptorOnTheThreadThatLogs)
{
    class ThreadInterceptor final : public LogIntercepting {
    public:
        void interceptLoggedMessage(const std::string&, const std::optional<std::string>&,
                                    os_log_type_t) override
        {
            thread = std::this_thread::get_id();
        }

        std::thread::id thread;
    };
    const auto interceptor = std::make_shared<ThreadInterceptor>();
    GlobalLoggingConfig::shared().setInterceptor(interceptor);
    std::thread logging([] { Logger::plugin("Category").notifyInterceptor("text", OS_LOG_TYPE_INFO); });
    const auto expected = logging.get_id();
    logging.join();
    GlobalLoggingConfig::shared().setInterceptor(nullptr);
    EXPECT_EQ(interceptor->thread, expected);
}

TEST(GlobalLoggingConfig, InterceptorsMayChangeWhileOtherThreadsLog)
{
    constexpr int kMessageCount = 2000;
    const auto counting = std::make_shared<CountingInterceptor>();
    GlobalLoggingConfig::shared().setInterceptor(counting);
    const auto logger = Logger::plugin("Category");
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([logger] {
            for (int message = 0; message < kMessageCount; ++message)
                logger.notifyInterceptor("text", OS_LOG_TYPE_INFO);
        });
    for (int i = 0; i < 1000; ++i) {
        GlobalLoggingConfig::shared().setInterceptor(std::make_shared<CountingInterceptor>());
        GlobalLoggingConfig::shared().setInterceptor(counting);
    }
    for (auto& thread : threads)
        thread.join();
    logger.notifyInterceptor("text", OS_LOG_TYPE_INFO);
    GlobalLoggingConfig::shared().setInterceptor(nullptr);
    EXPECT_GE(counting->count, 1);
    EXPECT_LE(counting->count, 3 * kMessageCount + 1);
}

TEST(RecordingInterceptor, RecordsWhileItLives)
{
    const auto logger = Logger::plugin("Category");
    test::RecordingInterceptor recording;
    logger.notifyInterceptor("a", OS_LOG_TYPE_INFO);
    logger.notifyInterceptor("a", OS_LOG_TYPE_INFO);
    EXPECT_EQ(recording.count("a"), 2U);
    recording.clear();
    EXPECT_TRUE(recording.messages().empty());
}

TEST(RecordingInterceptor, EndsWithItsLife)
{
    {
        const test::RecordingInterceptor recording;
    }
    EXPECT_EQ(GlobalLoggingConfig::shared().interceptor(), nullptr);
}

}  // namespace
}  // namespace pavo
