#pragma once

#include "Producer/CameraLink.h"
#include "Producer/EventQueue.h"
#include "Producer/Flag.h"
#include "Producer/Pacer.h"
#include "Producer/SendThread.h"
#include "Producer/SurfaceRing.h"

#include <pavo/producer.h>

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace pavo::producer {

// An open producer: what the C interface's functions do.
//
// Ownership: owns its link, its surfaces and its thread. Frames are known by their ids.
// Threads:   any, but for the destructor. The lock is never held while anything waits.
class Session final {
public:
    struct Configuration {
        SurfaceRing::Format format;
        Rate rate;
        std::size_t surfaceCount;
        std::string service;
    };
    // More than can be watching; what a camera claims beyond is not believed.
    static constexpr std::size_t kMostWatchers = 1024;

    // Null where the system has no memory or descriptors left.
    static std::shared_ptr<Session> open(const Configuration& configuration);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Everybody who waits returns; from then on everything answers PAVO_ERROR_CLOSED.
    void close();
    bool isOfThisProcess() const;

    pavo_status nextEvent(pavo_event& event, std::int64_t timeoutNs);
    int eventDescriptor() const { return events_.flag().descriptor(); }
    pavo_status waitUntilConnected(std::int64_t timeoutNs) { return waitFor(connectedFlag_, timeoutNs); }
    pavo_status waitUntilWanted(std::int64_t timeoutNs) { return waitFor(wantedFlag_, timeoutNs); }
    std::vector<std::int32_t> watchers() const;

    pavo_status beginFrame(pavo_frame& frame);
    pavo_status sendFrame(std::uint64_t frameId, const pavo_timing* timing);
    pavo_status discardFrame(std::uint64_t frameId);
    // The surface of a begun frame; empty where there is no such frame.
    cf::Ref<IOSurfaceRef> surfaceOf(std::uint64_t frameId) const;

    std::int64_t nextFrameTime();
    pavo_status waitUntil(std::int64_t timeNs);
    void setRate(const Rate& rate);
    pavo_statistics statistics() const;

private:
    Session(const Configuration& configuration, SurfaceRing ring);

    void heard(const pavo_event& event);
    // False where that is no news: the camera may tell twice of a process that watches.
    bool apply(const pavo_event& event);
    bool isWatching(std::int32_t pid) const;
    void setWanted(bool isWanted);
    void send(const SendThread::Item& item);
    pavo_status waitFor(const Flag& flag, std::int64_t timeoutNs);

    const pid_t process_;
    const Flag connectedFlag_;
    const Flag wantedFlag_;
    const Flag closedFlag_;

    mutable std::mutex mutex_;
    SurfaceRing ring_;
    EventQueue events_;
    Pacer pacer_;
    std::vector<std::int32_t> watchers_;
    pavo_statistics statistics_{};
    bool isWanted_ = false;
    bool isClosed_ = false;

    // The last ones: they call what is above.
    std::shared_ptr<CameraLink> link_;
    std::optional<SendThread> sender_;
};

}  // namespace pavo::producer
