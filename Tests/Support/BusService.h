#pragma once

#include "Platform/Support/UniqueFd.h"
#include "Platform/Support/linux/SystemBus.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace pavo::test {

// A service of a test's own on the system's bus (a PrivateSystemBus): one name, one object.
//
// Threads: it has one of its own, on which it is connected and its handler runs.
class BusService {
public:
    // Answers a method call, or leaves it without an answer, or has the service end here and now.
    enum class Outcome { going, dead };
    using Handler = std::function<Outcome(sd_bus_message* call)>;

    // Has its name when it returns; isReady says whether that worked.
    BusService(std::string name, std::string path, Handler handler);
    ~BusService();
    BusService(const BusService&) = delete;
    BusService& operator=(const BusService&) = delete;

    bool isReady() const { return isReady_; }

private:
    void run();
    bool connect();
    static int handle(sd_bus_message* call, void* service, sd_bus_error* error);

    const std::string name_;
    const std::string path_;
    const Handler handler_;
    UniqueFd end_;
    Bus bus_;
    bool isDead_ = false;  // of the thread's own
    std::atomic<bool> isReady_ = false;
    std::thread thread_;
};

}  // namespace pavo::test
