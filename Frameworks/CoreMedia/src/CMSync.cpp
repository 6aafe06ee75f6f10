#include <CoreMedia/CMSync.h>

#include <CoreFoundation/CFObject.h>

#include <time.h>

struct OpaqueCMClock : cf::runtime::Object {
    OpaqueCMClock() : Object(classInfo(), true) {}
    static const cf::runtime::Class& classInfo();
};

namespace {

constexpr CMTimeScale kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

const cf::runtime::Class& OpaqueCMClock::classInfo()
{
    static constinit const cf::runtime::Class info{"CMClock", cf::runtime::destroy<OpaqueCMClock>};
    return info;
}

CFTypeID CMClockGetTypeID(void)
{
    return cf::runtime::typeID<OpaqueCMClock>();
}

CMClockRef CMClockGetHostTimeClock(void)
{
    static OpaqueCMClock clock;
    return &clock;
}

CMTime CMClockGetTime(CMClockRef clock)
{
    if (!clock) return kCMTimeInvalid;
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return CMTimeMake(std::int64_t{now.tv_sec} * kNanosecondsPerSecond + now.tv_nsec, kNanosecondsPerSecond);
}
