#pragma once

#include <systemd/sd-bus.h>

#include <memory>

// Owners of what the D-Bus library hands out, and the way to the system's bus.
namespace pavo {

struct BusDeleter {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
struct BusMessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using BusMessage = std::unique_ptr<sd_bus_message, BusMessageDeleter>;

// The error that a call was answered with, or that the library met; without a name while there is none.
class BusError final {
public:
    BusError() = default;
    ~BusError() { sd_bus_error_free(&error_); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    sd_bus_error* get() { return &error_; }
    bool is(const char* name) const { return sd_bus_error_has_name(&error_, name) != 0; }
    const char* text() const
    {
        return error_.message ? error_.message : error_.name ? error_.name : "no reason";
    }

private:
    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

// A connection of the caller's own to the system's bus (DBUS_SYSTEM_BUS_ADDRESS moves it). Null, with
// `result` a negative errno, where there is no bus.
inline Bus openSystemBus(int& result)
{
    sd_bus* bus = nullptr;
    result = sd_bus_open_system(&bus);
    return Bus(bus);
}

inline BusMessage newMethodCall(sd_bus* bus, const char* service, const char* path, const char* interface,
                                const char* method)
{
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(bus, &call, service, path, interface, method);
    return BusMessage(call);
}

}  // namespace pavo
