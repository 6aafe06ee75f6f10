#include "CMIOExtensionSupport/FrameRate.h"

#include "Platform/Support/Fatal.h"

#include <cmath>
#include <limits>

namespace pavo {

std::int32_t timescaleForFrameRate(double framesPerSecond)
{
    require(std::isfinite(framesPerSecond), "The frame rate is not finite");
    require(framesPerSecond > -2147483649.0 && framesPerSecond < 2147483648.0,
            "The frame rate does not fit 32 bits");
    const auto scale = static_cast<std::int64_t>(framesPerSecond) * 100;
    require(scale >= std::numeric_limits<std::int32_t>::min() &&
                scale <= std::numeric_limits<std::int32_t>::max(),
            "The time scale of the frame rate does not fit 32 bits");
    return static_cast<std::int32_t>(scale);
}

}  // namespace pavo
