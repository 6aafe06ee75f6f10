#pragma once

namespace cmio {

// How long the camera waits for buffers that clients hold. A client that was killed holds its own for ever,
// and one that gives none back holds all of them in the end: then nobody would see anything.
//
// Threads: for one thread at a time.
class BufferPatience final {
public:
    // A sample found no buffer. True: do not wait for the clients any more, take their buffers back.
    bool isExhausted()
    {
        waited_ += 1;
        if (waited_ < limit_) return false;
        // Whoever took all buffers may do it again at once.
        limit_ = 1;
        waited_ = 0;
        served_ = 0;
        return true;
    }

    // A sample found one.
    void bufferFound()
    {
        waited_ = 0;
        served_ += 1;
        if (served_ > kSamplesUntilTrust) limit_ = kLongWait;
    }

private:
    // In samples, of which there are at most sixty a second.
    static constexpr int kLongWait = 60, kSamplesUntilTrust = 600;

    int limit_ = kLongWait;
    int waited_ = 0;
    int served_ = 0;
};

}  // namespace cmio
