#pragma once

#include "CVAttributes.h"
#include "CVBufferObject.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace corevideo {

// The buffers of a pool: makes them, takes them back, lets them age. Apart from the pool, because the buffers
// that are out need somewhere to return to when the pool is gone.
//
// Ownership: owns the buffers that nobody holds. Buffers that are held own it.
// Threads:   safe from any thread.
class PixelBufferRecycler final : public std::enable_shared_from_this<PixelBufferRecycler> {
public:
    PixelBufferRecycler(const StorageRequest& request, BufferAttributes attributes,
                        const PoolAttributes& poolAttributes);
    ~PixelBufferRecycler();
    PixelBufferRecycler(const PixelBufferRecycler&) = delete;
    PixelBufferRecycler& operator=(const PixelBufferRecycler&) = delete;

    // A buffer with one reference. None is added while there are `threshold` or more, free ones included.
    CVReturn take(std::optional<std::size_t> threshold, CVPixelBufferRef* pixelBufferOut);
    // The last reference to the buffer is gone.
    void takeBack(CVPixelBufferRef buffer);
    // Frees what has aged, or all that is free.
    void flush(bool isForAll);
    // The pool is gone: buffers that come back are freed.
    void close();

private:
    using Clock = std::chrono::steady_clock;
    struct FreeBuffer {
        std::unique_ptr<__CVBuffer> buffer;
        Clock::time_point since;
    };
    using FreeBuffers = std::vector<FreeBuffer>;

    bool hasAged(const FreeBuffer& candidate, Clock::time_point now) const;
    // With the mutex held. What goes is handed out, to be freed after it.
    FreeBuffers removeAged();
    std::unique_ptr<__CVBuffer> removeReusable();
    std::unique_ptr<__CVBuffer> makeBuffer();
    void forgetOne();

    const StorageRequest request_;
    const BufferAttributes attributes_;
    const PoolAttributes poolAttributes_;
    std::mutex mutex_;
    FreeBuffers free_;                // the longest free one first
    std::size_t allocatedCount_ = 0;  // free and held
    bool isClosed_ = false;
};

}  // namespace corevideo
