#include "Tests/Support/BusService.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <latch>
#include <utility>

namespace pavo::test {

BusService::BusService(std::string name, std::string path, Handler handler)
    : name_(std::move(name)),
      path_(std::move(path)),
      handler_(std::move(handler)),
      end_(eventfd(0, EFD_CLOEXEC))
{
    std::latch isConnected(1);
    thread_ = std::thread([this, &isConnected] {
        isReady_ = connect();
        isConnected.count_down();
        if (isReady_) run();
        bus_.reset();
    });
    isConnected.wait();
}

BusService::~BusService()
{
    eventfd_write(end_.get(), 1);
    thread_.join();
}

bool BusService::connect()
{
    int result = 0;
    bus_ = openSystemBus(result);
    return bus_ && sd_bus_add_object(bus_.get(), nullptr, path_.c_str(), handle, this) >= 0 &&
           sd_bus_request_name(bus_.get(), name_.c_str(), 0) >= 0;
}

int BusService::handle(sd_bus_message* call, void* service, sd_bus_error*)
{
    auto& self = *static_cast<BusService*>(service);
    self.isDead_ = self.handler_(call) == Outcome::dead;
    return 1;
}

void BusService::run()
{
    for (;;) {
        int result = 0;
        while (!isDead_ && (result = sd_bus_process(bus_.get(), nullptr)) > 0)
            ;
        if (isDead_ || result < 0) return;
        std::array<pollfd, 2> waiting = {{{end_.get(), POLLIN, 0}, {sd_bus_get_fd(bus_.get()), POLLIN, 0}}};
        if (sd_bus_get_events(bus_.get()) & POLLOUT) waiting[1].events |= POLLOUT;
        poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents != 0) return;
    }
}

}  // namespace pavo::test
