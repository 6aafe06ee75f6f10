#include "Producer/Pacer.h"

namespace pavo::producer {
namespace {

constexpr std::uint32_t kHighestRate = 1000;

}  // namespace

bool Rate::isValid() const
{
    return numerator > 0 && denominator > 0 &&
           numerator <= static_cast<std::uint64_t>(kHighestRate) * denominator;
}

std::int64_t Pacer::dueNs() const
{
    return beginNs_ + static_cast<std::int64_t>(static_cast<__int128>(index_) * 1'000'000'000 *
                                                rate_.denominator / rate_.numerator);
}

std::int64_t Pacer::next(std::int64_t nowNs)
{
    if (!hasBegun_ || nowNs - dueNs() > kLateNs) {
        hasBegun_ = true;
        beginNs_ = nowNs;
        index_ = 0;
    }
    const std::int64_t due = dueNs();
    ++index_;
    return due;
}

void Pacer::setRate(const Rate& rate)
{
    if (hasBegun_ && index_ > 0) {
        --index_;
        beginNs_ = dueNs();
        index_ = 1;
    }
    rate_ = rate;
}

}  // namespace pavo::producer
