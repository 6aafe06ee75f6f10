#pragma once

#include <CoreMedia/CoreMedia.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace pavo::producer {

// Hands frames over to the connection, one after the other, on a thread of its own: making a message
// allocates memory, which a caller that draws in real time is spared.
//
// Threads: any; the owner makes it and stops it.
class SendThread final {
public:
    struct Item {
        std::size_t place;
        CMSampleTimingInfo timing;
    };

    // `send` runs on the thread. No more than `capacity` items may wait.
    SendThread(std::size_t capacity, std::function<void(const Item&)> send);
    ~SendThread();
    SendThread(const SendThread&) = delete;
    SendThread& operator=(const SendThread&) = delete;

    // Allocates nothing.
    void push(const Item& item);
    // Returns when all that was pushed is through.
    void stop();

private:
    void run();

    const std::function<void(const Item&)> send_;
    std::mutex mutex_;
    std::condition_variable hasChanged_;
    std::vector<Item> items_;  // a circle
    std::size_t first_ = 0;
    std::size_t count_ = 0;
    bool isStopped_ = false;
    std::thread thread_;  // the last one: it uses all others
};

}  // namespace pavo::producer
