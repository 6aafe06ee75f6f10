#pragma once

#include "PixelStorage.h"

#include <CoreFoundation/CFObject.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace corevideo {
class PixelBufferRecycler;
}

// A pixel buffer, the only kind of buffer there is.
//
// Ownership: owns its storage and attachments. While somebody holds it, it keeps the pool that it came from,
//            and its surface in use. When the last reference goes it returns to that pool, or else is freed.
struct __CVBuffer : cf::runtime::Object {
    explicit __CVBuffer(corevideo::PixelStorage pixels);
    ~__CVBuffer();
    static const cf::runtime::Class& classInfo();

    // Between these somebody holds the buffer.
    void beginUse(std::shared_ptr<corevideo::PixelBufferRecycler> owner);
    void endUse();
    // A dictionary may be null, and then changes nothing.
    void setAttachments(CFDictionaryRef attachments, CVAttachmentMode mode);
    void removeAllAttachments();
    // For a surface that nobody here holds: whether another process has it.
    bool isInUseElsewhere() const;

    corevideo::PixelStorage storage;
    std::shared_ptr<corevideo::PixelBufferRecycler> recycler;  // while in use, if it came from a pool
    std::atomic<std::uint32_t> readLocks = 0;
    std::atomic<std::uint32_t> writeLocks = 0;
    std::mutex attachmentsMutex;
    // Made when the first attachment of the mode is; by mode.
    cf::Ref<CFMutableDictionaryRef> attachments[2];
};
