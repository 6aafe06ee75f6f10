#pragma once

#include "Platform/Support/Ref.h"

#include <IOSurface/IOSurface.h>
#include <pavo/producer.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace pavo::producer {

// The surfaces that a producer draws into in turn. All are made at the beginning and sealed; a frame
// allocates nothing. One that somebody still reads is never given out: its readers count themselves in its
// memory, and the latest ones sent are kept back until the camera has surely begun to.
//
// Threads: its owner's lock protects it. Pixels belong to whoever draws.
class SurfaceRing final {
public:
    struct Format {
        pavo_pixel_format format;
        std::uint32_t width;
        std::uint32_t height;
    };
    // How many of the latest frames may still be on their way to the camera.
    static constexpr std::uint64_t kFramesUnderWay = 3;

    // None where the system has no memory or descriptors for that.
    static std::optional<SurfaceRing> create(const Format& format, std::size_t count);

    // A surface that is free and was not sent for the longest time, as a frame. None while there is none.
    std::optional<pavo_frame> take();
    // The place of a surface that is being drawn.
    std::optional<std::size_t> find(std::uint64_t frameId) const;
    IOSurfaceRef surface(std::size_t place) const { return slots_[place].surface.get(); }

    // From being drawn to waiting to be sent; to sent, or not; back to free.
    void endDrawing(std::size_t place);
    void endSending(std::size_t place, bool wasSent);
    void discard(std::size_t place);

    // The camera has gone, with all that it held. Its claims on surfaces are left behind in them, so those
    // are replaced.
    void forgetCamera();

private:
    enum class State { free, drawn, waiting };
    struct Slot {
        cf::Ref<IOSurfaceRef> surface;
        State state = State::free;
        std::uint64_t frameId = 0;
        std::uint64_t sentAs = 0;  // 0: by the camera's connection of now, never
    };

    SurfaceRing(const Format& format, std::vector<Slot> slots) : format_(format), slots_(std::move(slots)) {}

    bool isFree(const Slot& slot) const;
    pavo_frame describe(const Slot& slot) const;

    Format format_;
    std::vector<Slot> slots_;
    std::uint64_t lastFrameId_ = 0;
    std::uint64_t sentCount_ = 0;
};

}  // namespace pavo::producer
