#include "PixelBufferRecycler.h"

#include <iterator>
#include <new>
#include <utility>

namespace corevideo {

PixelBufferRecycler::PixelBufferRecycler(const StorageRequest& request, BufferAttributes attributes,
                                         const PoolAttributes& poolAttributes)
    : request_(request),
      attributes_(std::move(attributes)),
      poolAttributes_(poolAttributes)
{}

PixelBufferRecycler::~PixelBufferRecycler() = default;

CVReturn PixelBufferRecycler::take(std::optional<std::size_t> threshold, CVPixelBufferRef* pixelBufferOut)
{
    std::unique_ptr<__CVBuffer> buffer;
    FreeBuffers aged;
    {
        const std::lock_guard lock(mutex_);
        buffer = removeReusable();
        aged = removeAged();
        if (!buffer) {
            if (threshold && allocatedCount_ >= *threshold) return kCVReturnWouldExceedAllocationThreshold;
            ++allocatedCount_;
        }
    }
    if (!buffer) buffer = makeBuffer();
    if (!buffer) {
        forgetOne();
        return kCVReturnAllocationFailed;
    }
    buffer->retainCount.store(1, std::memory_order_relaxed);
    buffer->beginUse(shared_from_this());
    buffer->setAttachments(attributes_.propagatedAttachments.get(), kCVAttachmentMode_ShouldPropagate);
    buffer->setAttachments(attributes_.nonPropagatedAttachments.get(), kCVAttachmentMode_ShouldNotPropagate);
    *pixelBufferOut = buffer.release();
    return kCVReturnSuccess;
}

void PixelBufferRecycler::takeBack(CVPixelBufferRef buffer)
{
    std::unique_ptr<__CVBuffer> returned(buffer);
    returned->removeAllAttachments();
    FreeBuffers aged;
    const std::lock_guard lock(mutex_);
    if (isClosed_) return;
    free_.push_back({std::move(returned), Clock::now()});
    aged = removeAged();
}

void PixelBufferRecycler::flush(bool isForAll)
{
    FreeBuffers freed;
    const std::lock_guard lock(mutex_);
    if (!isForAll) {
        freed = removeAged();
        return;
    }
    allocatedCount_ -= free_.size();
    freed.swap(free_);
}

void PixelBufferRecycler::close()
{
    FreeBuffers freed;
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
    freed.swap(free_);
}

bool PixelBufferRecycler::hasAged(const FreeBuffer& candidate, Clock::time_point now) const
{
    const std::chrono::duration<double> age = now - candidate.since;
    return poolAttributes_.maximumBufferAge > 0 && age.count() > poolAttributes_.maximumBufferAge;
}

// A surface that another process has kept for so long may never come back, for instance because that process
// was killed with it. The pool must not wait for it, nor count it, whatever its minimum.
PixelBufferRecycler::FreeBuffers PixelBufferRecycler::removeAged()
{
    FreeBuffers aged;
    const auto now = Clock::now();
    for (auto candidate = free_.begin(); candidate != free_.end() && hasAged(*candidate, now);) {
        if (allocatedCount_ > poolAttributes_.minimumBufferCount || candidate->buffer->isInUseElsewhere()) {
            aged.push_back(std::move(*candidate));
            candidate = free_.erase(candidate);
            --allocatedCount_;
        } else {
            ++candidate;
        }
    }
    return aged;
}

// The one that was used last: caches still know its memory, and the others can age.
std::unique_ptr<__CVBuffer> PixelBufferRecycler::removeReusable()
{
    for (auto candidate = free_.rbegin(); candidate != free_.rend(); ++candidate) {
        if (candidate->buffer->isInUseElsewhere()) continue;
        auto buffer = std::move(candidate->buffer);
        free_.erase(std::next(candidate).base());
        return buffer;
    }
    return nullptr;
}

std::unique_ptr<__CVBuffer> PixelBufferRecycler::makeBuffer()
{
    auto storage = PixelStorage::create(request_);
    if (!storage) return nullptr;
    return std::unique_ptr<__CVBuffer>(cf::runtime::create<__CVBuffer>(std::move(*storage)));
}

void PixelBufferRecycler::forgetOne()
{
    const std::lock_guard lock(mutex_);
    --allocatedCount_;
}

}  // namespace corevideo
