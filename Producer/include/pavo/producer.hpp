#pragma once

// The C interface of pavo/producer.h as C++ objects that clean up after themselves. Header only: nothing but
// the C interface is linked, so any C++17 compiler and standard library will do. What functions do, units,
// threads and errors are as described there.

#include <pavo/producer.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace pavo {

enum class ProducerStatus {
    ok = PAVO_OK,
    timedOut = PAVO_TIMED_OUT,
    interrupted = PAVO_INTERRUPTED,
    notWanted = PAVO_NOT_WANTED,
    ringFull = PAVO_RING_FULL,
    badArgument = PAVO_ERROR_ARGUMENT,
    closed = PAVO_ERROR_CLOSED,
    badFrame = PAVO_ERROR_FRAME,
    forked = PAVO_ERROR_FORKED,
    noResources = PAVO_ERROR_RESOURCES,
};

inline const char* describe(ProducerStatus status)
{
    return pavo_status_text(static_cast<pavo_status>(status));
}

// A frame to draw into. Discarded at the end of its life unless it was sent.
class ProducerFrame final {
public:
    ProducerFrame(ProducerFrame&& other) noexcept
        : producer_(std::exchange(other.producer_, nullptr)),
          frame_(other.frame_)
    {}
    ProducerFrame& operator=(ProducerFrame&& other) noexcept
    {
        if (this != &other) {
            discard();
            producer_ = std::exchange(other.producer_, nullptr);
            frame_ = other.frame_;
        }
        return *this;
    }
    ~ProducerFrame() { discard(); }

    std::uint32_t width() const { return frame_.width; }
    std::uint32_t height() const { return frame_.height; }
    pavo_pixel_format format() const { return static_cast<pavo_pixel_format>(frame_.format); }
    std::size_t planeCount() const { return frame_.plane_count; }
    const pavo_plane& plane(std::size_t index) const { return frame_.planes[index]; }
    std::uint8_t* row(std::size_t plane, std::size_t y) const
    {
        return frame_.planes[plane].data + y * frame_.planes[plane].stride;
    }

    // badFrame where it was sent or discarded before.
    ProducerStatus send() { return finish(pavo_producer_send_frame(producer_, &frame_, nullptr)); }
    ProducerStatus send(const pavo_timing& timing)
    {
        return finish(pavo_producer_send_frame(producer_, &frame_, &timing));
    }
    void discard()
    {
        if (producer_) pavo_producer_discard_frame(std::exchange(producer_, nullptr), &frame_);
    }

private:
    friend class Producer;

    ProducerFrame(pavo_producer* producer, const pavo_frame& frame) : producer_(producer), frame_(frame) {}

    ProducerStatus finish(pavo_status status)
    {
        if (!producer_) return ProducerStatus::badFrame;
        if (status != PAVO_ERROR_ARGUMENT) producer_ = nullptr;
        return static_cast<ProducerStatus>(status);
    }

    pavo_producer* producer_;
    pavo_frame frame_;
};

// A producer, open until it is closed or destroyed. Frames may outlive it: sending them then says so.
class Producer final {
public:
    // None, with the reason in `status` where that is not null.
    static std::optional<Producer> open(const pavo_producer_config& config, ProducerStatus* status = nullptr)
    {
        pavo_producer* producer = nullptr;
        const auto result = pavo_producer_open(&config, &producer);
        if (status) *status = static_cast<ProducerStatus>(result);
        if (result != PAVO_OK) return std::nullopt;
        return Producer(producer);
    }
    Producer(Producer&& other) noexcept : producer_(std::exchange(other.producer_, nullptr)) {}
    Producer& operator=(Producer&& other) noexcept
    {
        if (this != &other) {
            close();
            producer_ = std::exchange(other.producer_, nullptr);
        }
        return *this;
    }
    ~Producer() { close(); }

    // Other threads may still be inside of calls: they return.
    void close() const
    {
        if (producer_) pavo_producer_close(producer_);
    }
    pavo_producer* handle() const { return producer_; }

    // Waiting calls take nanoseconds.
    ProducerStatus nextEvent(pavo_event& event, std::int64_t timeoutNs = PAVO_FOREVER) const
    {
        return static_cast<ProducerStatus>(pavo_producer_next_event(producer_, &event, timeoutNs));
    }
    int eventDescriptor() const { return pavo_producer_event_fd(producer_); }
    ProducerStatus waitUntilConnected(std::int64_t timeoutNs = PAVO_FOREVER) const
    {
        return static_cast<ProducerStatus>(pavo_producer_wait_until_connected(producer_, timeoutNs));
    }
    ProducerStatus waitUntilWanted(std::int64_t timeoutNs = PAVO_FOREVER) const
    {
        return static_cast<ProducerStatus>(pavo_producer_wait_until_wanted(producer_, timeoutNs));
    }
    bool isConnected() const { return waitUntilConnected(0) == ProducerStatus::ok; }
    bool isWanted() const { return waitUntilWanted(0) == ProducerStatus::ok; }
    std::vector<std::int32_t> watchers() const
    {
        std::vector<std::int32_t> pids(16);
        for (;;) {
            std::size_t count = 0;
            pavo_producer_get_watchers(producer_, pids.data(), pids.size(), &count);
            const bool isWhole = count <= pids.size();
            pids.resize(count);
            if (isWhole) return pids;
        }
    }

    // None, with the reason in `status` where that is not null.
    std::optional<ProducerFrame> beginFrame(ProducerStatus* status = nullptr) const
    {
        pavo_frame frame;
        const auto result = pavo_producer_begin_frame(producer_, &frame);
        if (status) *status = static_cast<ProducerStatus>(result);
        if (result != PAVO_OK) return std::nullopt;
        return ProducerFrame(producer_, frame);
    }

    // None where the producer is not open.
    std::optional<std::int64_t> nextFrameTime() const
    {
        std::int64_t dueNs = 0;
        if (pavo_producer_get_next_frame_time(producer_, &dueNs) != PAVO_OK) return std::nullopt;
        return dueNs;
    }
    ProducerStatus waitForNextFrame() const
    {
        return static_cast<ProducerStatus>(pavo_producer_wait_for_next_frame(producer_));
    }
    ProducerStatus setRate(std::uint32_t numerator, std::uint32_t denominator = 1) const
    {
        return static_cast<ProducerStatus>(pavo_producer_set_rate(producer_, numerator, denominator));
    }
    // All zero where the producer is not open.
    pavo_statistics statistics() const
    {
        pavo_statistics statistics{};
        pavo_producer_get_statistics(producer_, &statistics, sizeof statistics);
        return statistics;
    }

private:
    explicit Producer(pavo_producer* producer) : producer_(producer) {}

    pavo_producer* producer_;
};

}  // namespace pavo
