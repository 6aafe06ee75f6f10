#include "Tools/Doctor/SessionBus.h"

#include <cstring>

namespace pavo::tools {
namespace {

constexpr const char* kNobody = "org.freedesktop.DBus.Error.NameHasNoOwner";
constexpr const char* kBusName = "org.freedesktop.DBus";

std::string textOf(sd_bus_message* message)
{
    const char* text = "";
    return sd_bus_message_read(message, "s", &text) >= 0 ? text : "";
}

}  // namespace

bool SessionBus::open()
{
    if (bus_) return true;
    if (!problem_.empty()) return false;
    sd_bus* bus = nullptr;
    const int result = sd_bus_open_user(&bus);
    bus_.reset(bus);
    if (result < 0) problem_ = std::string("there is no session bus: ") + std::strerror(-result);
    return result >= 0;
}

BusMessage SessionBus::newCall(const Address& address, const char* method)
{
    if (!open()) return nullptr;
    auto call = newMethodCall(bus_.get(), address.service, address.path, address.interface, method);
    if (call) sd_bus_message_set_auto_start(call.get(), 0);
    return call;
}

SessionBus::Reply SessionBus::ask(BusMessage call)
{
    Reply reply;
    if (!call) {
        reply.problem = problem_.empty() ? "there is no memory for a question" : problem_;
        return reply;
    }
    const Patience patience(patience_.left(), patience_.left());
    if (patience.left().count() == 0) {
        reply.problem = "no time was left to ask";
        return reply;
    }
    // Not sd_bus_call: that one waits for a bus that says nothing at all longer than anybody should.
    const auto take = [](sd_bus_message* message, void* taken, sd_bus_error*) {
        static_cast<BusMessage*>(taken)->reset(sd_bus_message_ref(message));
        return 1;
    };
    BusMessage message;
    const std::string service = sd_bus_message_get_destination(call.get());
    int result = sd_bus_call_async(bus_.get(), nullptr, call.get(), take, &message, UINT64_MAX);
    while (result >= 0 && !message && patience.left().count() > 0) {
        result = sd_bus_process(bus_.get(), nullptr);
        const auto leftUs = std::chrono::microseconds(patience.left()).count();
        if (result == 0) result = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(leftUs));
    }
    if (!message) {
        // The answer may still come and must find nobody.
        bus_.reset();
        reply.problem =
            service == kBusName ? "the session bus does not answer" : service + " does not answer";
        if (service == kBusName) problem_ = reply.problem;
    } else if (const sd_bus_error* error = sd_bus_message_get_error(message.get())) {
        reply.errorName = error->name ? error->name : "";
        reply.problem = error->message ? error->message : reply.errorName;
    } else {
        reply.message = std::move(message);
    }
    return reply;
}

SessionBus::Reply SessionBus::askProperty(const Address& address, const char* name)
{
    auto call = newCall({address.service, address.path, "org.freedesktop.DBus.Properties"}, "Get");
    if (call) sd_bus_message_append(call.get(), "ss", address.interface, name);
    return ask(std::move(call));
}

Result<pid_t> SessionBus::ownerOf(const char* name)
{
    auto call = newCall({kBusName, "/org/freedesktop/DBus", kBusName}, "GetConnectionUnixProcessID");
    if (call) sd_bus_message_append(call.get(), "s", name);
    const Reply reply = ask(std::move(call));
    if (reply.errorName == kNobody) return pid_t(0);
    if (!reply) return Problem{reply.problem};
    std::uint32_t pid = 0;
    sd_bus_message_read(reply.message.get(), "u", &pid);
    return static_cast<pid_t>(pid);
}

Result<bool> SessionBus::isActivatable(const std::string& name)
{
    const Reply reply = ask(newCall({kBusName, "/org/freedesktop/DBus", kBusName}, "ListActivatableNames"));
    if (!reply) return Problem{reply.problem};
    sd_bus_message_enter_container(reply.message.get(), SD_BUS_TYPE_ARRAY, "s");
    const char* each = "";
    while (sd_bus_message_read(reply.message.get(), "s", &each) > 0)
        if (name == each) return true;
    return false;
}

Result<std::optional<UserService>> SessionBus::service(const std::string& unit)
{
    constexpr Address kManager{"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                               "org.freedesktop.systemd1.Manager"};
    const auto owner = ownerOf(kManager.service);
    if (!owner) return owner.problem();
    if (owner.value() == 0) return std::optional<UserService>();

    UserService service;
    auto call = newCall(kManager, "GetUnitFileState");
    if (call) sd_bus_message_append(call.get(), "s", unit.c_str());
    const Reply file = ask(std::move(call));
    if (!file && file.errorName.empty()) return Problem{file.problem};
    // An error of systemd's own says that there is no such file.
    if (file) service.fileState = textOf(file.message.get());

    call = newCall(kManager, "ListUnitsByNames");
    if (call) sd_bus_message_append(call.get(), "as", 1, unit.c_str());
    const Reply units = ask(std::move(call));
    if (!units) return Problem{units.problem};
    const char* active = "";
    const char* sub = "";
    sd_bus_message_enter_container(units.message.get(), SD_BUS_TYPE_ARRAY, "(ssssssouso)");
    if (sd_bus_message_read(units.message.get(), "(ssssssouso)", nullptr, nullptr, nullptr, &active, &sub,
                            nullptr, nullptr, nullptr, nullptr, nullptr) > 0) {
        service.activeState = active;
        service.subState = sub;
    }
    return std::optional(service);
}

Result<CameraPortal> SessionBus::cameraPortal()
{
    constexpr Address kCamera{"org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                              "org.freedesktop.portal.Camera"};
    const auto owner = ownerOf(kCamera.service);
    if (!owner) return owner.problem();
    CameraPortal portal;
    portal.pid = owner.value();
    portal.isInstalled = portal.pid != 0;
    if (portal.pid == 0) {
        const auto activatable = isActivatable(kCamera.service);
        if (!activatable) return activatable.problem();
        portal.isInstalled = activatable.value();
        return portal;
    }
    const Reply present = askProperty(kCamera, "IsCameraPresent");
    // An error of the portal's own says that it has no such interface.
    if (!present && present.errorName.empty()) return Problem{present.problem};
    portal.hasCameras = static_cast<bool>(present);
    int isPresent = 0;
    if (present) sd_bus_message_read(present.message.get(), "v", "b", &isPresent);
    portal.seesCamera = isPresent != 0;
    return portal;
}

Result<std::map<std::string, std::string>> SessionBus::cameraPermissions()
{
    constexpr Address kStore{"org.freedesktop.impl.portal.PermissionStore",
                             "/org/freedesktop/impl/portal/PermissionStore",
                             "org.freedesktop.impl.portal.PermissionStore"};
    const auto owner = ownerOf(kStore.service);
    if (!owner) return owner.problem();
    if (owner.value() == 0) return Problem{"the permission store does not run"};
    auto call = newCall(kStore, "Lookup");
    if (call) sd_bus_message_append(call.get(), "ss", "devices", "camera");
    const Reply reply = ask(std::move(call));
    std::map<std::string, std::string> permissions;
    if (reply.errorName == "org.freedesktop.portal.Error.NotFound") return permissions;
    if (!reply) return Problem{reply.problem};
    sd_bus_message_enter_container(reply.message.get(), SD_BUS_TYPE_ARRAY, "{sas}");
    while (sd_bus_message_enter_container(reply.message.get(), SD_BUS_TYPE_DICT_ENTRY, "sas") > 0) {
        const std::string application = textOf(reply.message.get());
        sd_bus_message_enter_container(reply.message.get(), SD_BUS_TYPE_ARRAY, "s");
        const char* permission = "";
        if (sd_bus_message_read(reply.message.get(), "s", &permission) > 0)
            permissions[application] = permission;
        while (sd_bus_message_skip(reply.message.get(), "s") > 0) {
        }
        sd_bus_message_exit_container(reply.message.get());
        sd_bus_message_exit_container(reply.message.get());
    }
    return permissions;
}

}  // namespace pavo::tools
