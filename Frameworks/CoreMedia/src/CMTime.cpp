#include <CoreMedia/CMTime.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

const CMTime kCMTimeInvalid = {0, 0, 0, 0};
const CMTime kCMTimeIndefinite = {0, 0, kCMTimeFlags_Valid | kCMTimeFlags_Indefinite, 0};
const CMTime kCMTimePositiveInfinity = {0, 0, kCMTimeFlags_Valid | kCMTimeFlags_PositiveInfinity, 0};
const CMTime kCMTimeNegativeInfinity = {0, 0, kCMTimeFlags_Valid | kCMTimeFlags_NegativeInfinity, 0};
const CMTime kCMTimeZero = {0, 1, kCMTimeFlags_Valid, 0};

namespace {

// Products and sums of 64-bit values fit this without overflow.
using Wide = __int128;

constexpr double kTwoTo63 = 9223372036854775808.0;

bool fits(Wide value)
{
    return value >= std::numeric_limits<std::int64_t>::min() &&
           value <= std::numeric_limits<std::int64_t>::max();
}

Wide dividedRoundingHalfAwayFromZero(Wide dividend, Wide divisor)
{
    const Wide half = dividend < 0 ? -divisor / 2 : divisor / 2;
    return (dividend + half) / divisor;
}

// A usable number: a valid one whose time scale means something.
bool isNumeric(CMTime time)
{
    return CMTIME_IS_NUMERIC(time) && time.timescale > 0;
}

bool isInvalid(CMTime time)
{
    return CMTIME_IS_INVALID(time) || (CMTIME_IS_NUMERIC(time) && time.timescale <= 0);
}

// The sum of two times one of which is no number, in the order of what prevails.
CMTime sumOfSpecials(CMTime a, CMTime b)
{
    if (isInvalid(a) || isInvalid(b)) return kCMTimeInvalid;
    const bool hasPositive = CMTIME_IS_POSITIVE_INFINITY(a) || CMTIME_IS_POSITIVE_INFINITY(b);
    const bool hasNegative = CMTIME_IS_NEGATIVE_INFINITY(a) || CMTIME_IS_NEGATIVE_INFINITY(b);
    if (CMTIME_IS_INDEFINITE(a) || CMTIME_IS_INDEFINITE(b) || (hasPositive && hasNegative))
        return kCMTimeIndefinite;
    return hasPositive ? kCMTimePositiveInfinity : kCMTimeNegativeInfinity;
}

struct WideTime {
    Wide value;
    std::int64_t timescale;
    bool isRounded;
};

// The value in another time scale.
WideTime rescaled(CMTime time, std::int64_t timescale)
{
    const Wide product = Wide{time.value} * timescale;
    const bool isExact = product % time.timescale == 0;
    return {dividedRoundingHalfAwayFromZero(product, time.timescale), timescale,
            !isExact || CMTIME_HAS_BEEN_ROUNDED(time)};
}

CMTime narrowed(WideTime time, CMTimeEpoch epoch)
{
    while (!fits(time.value) && time.timescale > 1) {
        time.isRounded = true;
        const auto halved = time.timescale / 2;
        time.value = dividedRoundingHalfAwayFromZero(time.value * halved, time.timescale);
        time.timescale = halved;
    }
    if (!fits(time.value)) return time.value > 0 ? kCMTimePositiveInfinity : kCMTimeNegativeInfinity;
    const CMTimeFlags flags =
        kCMTimeFlags_Valid | (time.isRounded ? CMTimeFlags{kCMTimeFlags_HasBeenRounded} : 0);
    return {static_cast<CMTimeValue>(time.value), static_cast<CMTimeScale>(time.timescale), flags, epoch};
}

// `sign` is 1 or -1, and applies to the second number.
CMTime sumOfNumbers(CMTime a, CMTime b, int sign, CMTimeEpoch epoch)
{
    const auto common = std::lcm(std::int64_t{a.timescale}, std::int64_t{b.timescale});
    const auto timescale = common > kCMTimeMaxTimescale ? std::int64_t{kCMTimeMaxTimescale} : common;
    const auto first = rescaled(a, timescale);
    const auto second = rescaled(b, timescale);
    return narrowed({first.value + sign * second.value, timescale, first.isRounded || second.isRounded},
                    epoch);
}

CMTime negated(CMTime time)
{
    if (CMTIME_IS_POSITIVE_INFINITY(time)) return kCMTimeNegativeInfinity;
    if (CMTIME_IS_NEGATIVE_INFINITY(time)) return kCMTimePositiveInfinity;
    return time;
}

// Where the kind of time stands among the others.
int rank(CMTime time)
{
    if (isInvalid(time)) return 4;
    if (CMTIME_IS_POSITIVE_INFINITY(time)) return 3;
    if (CMTIME_IS_INDEFINITE(time)) return 2;
    if (CMTIME_IS_NEGATIVE_INFINITY(time)) return 0;
    return 1;
}

template <typename Number>
std::int32_t compared(Number a, Number b)
{
    return a < b ? -1 : a > b ? 1 : 0;
}

}  // namespace

CMTime CMTimeMake(int64_t value, int32_t timescale)
{
    return CMTimeMakeWithEpoch(value, timescale, 0);
}

CMTime CMTimeMakeWithEpoch(int64_t value, int32_t timescale, int64_t epoch)
{
    return {value, timescale, kCMTimeFlags_Valid, epoch};
}

CMTime CMTimeMakeWithSeconds(Float64 seconds, int32_t preferredTimescale)
{
    if (preferredTimescale <= 0 || std::isnan(seconds)) return kCMTimeInvalid;
    std::int32_t timescale = preferredTimescale;
    while (std::fabs(seconds * timescale) >= kTwoTo63 && timescale > 1)
        timescale /= 2;
    const double value = seconds * timescale;
    if (std::fabs(value) >= kTwoTo63) return seconds > 0 ? kCMTimePositiveInfinity : kCMTimeNegativeInfinity;
    CMTime time = CMTimeMake(static_cast<std::int64_t>(value), timescale);
    if (CMTimeGetSeconds(time) != seconds) time.flags |= kCMTimeFlags_HasBeenRounded;
    return time;
}

Float64 CMTimeGetSeconds(CMTime time)
{
    if (CMTIME_IS_POSITIVE_INFINITY(time)) return std::numeric_limits<double>::infinity();
    if (CMTIME_IS_NEGATIVE_INFINITY(time)) return -std::numeric_limits<double>::infinity();
    if (!isNumeric(time)) return std::numeric_limits<double>::quiet_NaN();
    return static_cast<double>(time.value) / time.timescale;
}

CMTime CMTimeAdd(CMTime lhs, CMTime rhs)
{
    if (!isNumeric(lhs) || !isNumeric(rhs)) return sumOfSpecials(lhs, rhs);
    if (lhs.epoch != rhs.epoch && lhs.epoch != 0 && rhs.epoch != 0) return kCMTimeInvalid;
    return sumOfNumbers(lhs, rhs, 1, lhs.epoch != 0 ? lhs.epoch : rhs.epoch);
}

CMTime CMTimeSubtract(CMTime lhs, CMTime rhs)
{
    if (!isNumeric(lhs) || !isNumeric(rhs)) return sumOfSpecials(lhs, negated(rhs));
    if (lhs.epoch != rhs.epoch && lhs.epoch != 0 && rhs.epoch != 0) return kCMTimeInvalid;
    // Between two times of one epoch lies a duration, which belongs to none.
    return sumOfNumbers(lhs, rhs, -1, lhs.epoch == rhs.epoch ? 0 : lhs.epoch != 0 ? lhs.epoch : rhs.epoch);
}

int32_t CMTimeCompare(CMTime time1, CMTime time2)
{
    if (rank(time1) != rank(time2) || rank(time1) != 1) return compared(rank(time1), rank(time2));
    if (time1.epoch != time2.epoch) return compared(time1.epoch, time2.epoch);
    return compared(Wide{time1.value} * time2.timescale, Wide{time2.value} * time1.timescale);
}
