#pragma once

#include "Platform/Support/Ref.h"

#include <CoreMedia/CoreMedia.h>

#include <cstdint>

namespace cmio {

// One sample on its way to the clients.
struct OutgoingSample {
    cf::Ref<CMSampleBufferRef> sample;
    std::uint64_t hostTimeNanoseconds = 0;  // 0: none
    bool isDiscontinuous = false;
};

// Where a stream's samples go while the stream is published.
class SampleSink {
public:
    virtual void send(OutgoingSample sample) = 0;

protected:
    ~SampleSink() = default;
};

}  // namespace cmio
