#include "Tools/StatusWatch.h"

#include "Tools/StopSignal.h"

#include <chrono>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::int64_t kPeriodNs = 900'000'000;      // a bit less than the page's
constexpr std::int64_t kInterestNs = 3'000'000'000;  // after which nobody wants to know any more

}  // namespace

StatusWatch::StatusWatch(Source source)
    : source_(std::move(source)),
      latest_({{"camera", nullptr}, {"problem", nullptr}}),
      thread_([this] { run(); })
{}

StatusWatch::~StatusWatch()
{
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

nlohmann::json StatusWatch::latest()
{
    const std::lock_guard lock(mutex_);
    const std::int64_t now = monotonicNs();
    // An old answer is worse than none.
    if (now - wantedNs_ > kInterestNs && now - askedNs_ > kInterestNs)
        latest_ = {{"camera", nullptr}, {"problem", nullptr}};
    wantedNs_ = now;
    changed_.notify_all();
    return latest_;
}

void StatusWatch::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return isOver_ || monotonicNs() - wantedNs_ < kInterestNs; });
        const auto left = std::chrono::nanoseconds(askedNs_ + kPeriodNs - monotonicNs());
        if (askedNs_ > 0) changed_.wait_for(lock, left, [this] { return isOver_; });
        if (isOver_) return;
        askedNs_ = monotonicNs();
        lock.unlock();
        const auto answer = source_();
        lock.lock();
        latest_ = {{"camera", nullptr}, {"problem", nullptr}};
        if (answer)
            latest_["camera"] = answer.value();
        else
            latest_["problem"] = answer.problem().text;
    }
}

}  // namespace pavo::tools
