#include "Tests/Frameworks/Dispatch/DispatchTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace {

using pavo::test::waitFor;

// How often each thread of the dispatch library has been woken or interrupted, by name and thread.
std::map<std::string, long> switchesOfDispatchThreads()
{
    std::map<std::string, long> switches;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        std::string name;
        long count = 0;
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("Name:\t")) name = line.substr(6);
            const auto value = line.find("ctxt_switches:");
            if (value != std::string::npos) count += std::stol(line.substr(value + 14));
        }
        if (name.starts_with("dispatch-")) switches[name + " " + task.path().filename().string()] = count;
    }
    return switches;
}

bool anyWorker(const std::map<std::string, long>& switches)
{
    const auto first = switches.lower_bound("dispatch-worker");
    return first != switches.end() && first->first.starts_with("dispatch-worker");
}

// Frames come and go, so the threads must not stay for ever; and a camera that nobody watches must not cost
// anything, so the thread of a paused timer must not wake.
TEST(DispatchIdle, EndsItsWorkersAndNeverWakesWithoutARunningTimer)
{
    std::atomic<int> count = 0;
    dispatch::TimerSource timer(dispatch_get_global_queue(QOS_CLASS_USER_INTERACTIVE, 0));
    timer.setEventHandler([&count] { ++count; });
    timer.schedule(DISPATCH_TIME_NOW, NSEC_PER_MSEC);
    timer.resume();
    ASSERT_TRUE(waitFor([&] { return count > 3; }));
    EXPECT_TRUE(anyWorker(switchesOfDispatchThreads()));
    timer.suspend();

    ASSERT_TRUE(waitFor([] { return !anyWorker(switchesOfDispatchThreads()); }, std::chrono::seconds(30)));
    const auto before = switchesOfDispatchThreads();
    EXPECT_EQ(before.size(), 1U);  // the timer thread
    EXPECT_FALSE(
        waitFor([&] { return switchesOfDispatchThreads() != before; }, std::chrono::milliseconds(300)));
    timer.cancel();
}

}  // namespace
