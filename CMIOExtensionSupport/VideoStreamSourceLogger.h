#pragma once

#include "PavoLoggingSupport/Logger.h"

namespace pavo {

// The one logger of the stream source, whose code lies in two files.
inline const Logger& videoStreamSourceLogger()
{
    static const Logger instance = Logger::plugin("VideoStreamSource");
    return instance;
}

}  // namespace pavo
