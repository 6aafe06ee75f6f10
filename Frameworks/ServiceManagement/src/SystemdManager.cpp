#include "SystemdManager.h"

#include <ServiceManagement/ServiceManagement.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

namespace pavo::servicemanagement {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kService = "org.freedesktop.systemd1";
constexpr const char* kPath = "/org/freedesktop/systemd1";
constexpr const char* kInterface = "org.freedesktop.systemd1.Manager";

// Reading all units again takes its time on a large system.
constexpr auto kCallTimeout = std::chrono::seconds(90);
// systemd gives a service 90 seconds to stop and 90 to start, unless its unit says otherwise.
constexpr auto kJobTimeout = std::chrono::seconds(200);

Failure unavailable(int negativeErrno)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc's is per thread
    return {kSMErrorServiceUnavailable,
            std::string("systemd cannot be reached: ") + std::strerror(-negativeErrno)};
}

// What an error of systemd's, of the bus's or of the library's means to the caller.
CFIndex codeOf(const BusError& error)
{
    struct Meaning {
        const char* name;
        CFIndex code;
    };
    static constexpr Meaning kMeanings[] = {
        {SD_BUS_ERROR_ACCESS_DENIED, kSMErrorAuthorizationFailure},
        {SD_BUS_ERROR_INTERACTIVE_AUTHORIZATION_REQUIRED, kSMErrorAuthorizationFailure},
        {SD_BUS_ERROR_SERVICE_UNKNOWN, kSMErrorServiceUnavailable},
        {SD_BUS_ERROR_NAME_HAS_NO_OWNER, kSMErrorServiceUnavailable},
        {SD_BUS_ERROR_NO_REPLY, kSMErrorServiceUnavailable},
        {SD_BUS_ERROR_TIMEOUT, kSMErrorServiceUnavailable},
        {SD_BUS_ERROR_DISCONNECTED, kSMErrorServiceUnavailable},
        {SD_BUS_ERROR_FILE_NOT_FOUND, kSMErrorJobNotFound},
        {"org.freedesktop.systemd1.NoSuchUnit", kSMErrorJobNotFound},
        {"org.freedesktop.systemd1.LoadFailed", kSMErrorInvalidPlist},
        {"org.freedesktop.systemd1.BadUnitSetting", kSMErrorInvalidPlist},
        {"org.freedesktop.systemd1.UnitMasked", kSMErrorJobMustBeEnabled},
    };
    const auto* const found =
        std::find_if(std::begin(kMeanings), std::end(kMeanings),
                     [&error](const Meaning& meaning) { return error.is(meaning.name); });
    return found == std::end(kMeanings) ? static_cast<CFIndex>(kSMErrorInternalFailure) : found->code;
}

bool isConnectionLost(int negativeErrno)
{
    return negativeErrno == -ECONNRESET || negativeErrno == -ENOTCONN || negativeErrno == -EPIPE ||
           negativeErrno == -ETIMEDOUT;
}

}  // namespace

SystemdManager::Result SystemdManager::connect()
{
    int result = 0;
    bus_ = openSystemBus(result);
    // Before anything is started: a job may be over before the call that began it has returned.
    if (result >= 0)
        result = sd_bus_match_signal(bus_.get(), nullptr, kService, kPath, kInterface, "JobRemoved",
                                     jobRemoved, this);
    if (result >= 0)
        result = sd_bus_match_signal(bus_.get(), nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                     "org.freedesktop.DBus", "NameOwnerChanged", ownerChanged, this);
    if (result < 0) return unavailable(result);
    // systemd tells nobody anything unless somebody has asked for it.
    BusMessage reply;
    return call("Subscribe", [](sd_bus_message*) { return 0; }, reply);
}

SystemdManager::Result SystemdManager::linkUnitFiles(const std::vector<std::string>& paths)
{
    return changeUnitFiles("LinkUnitFiles", paths);
}

SystemdManager::Result SystemdManager::enableUnitFiles(const std::vector<std::string>& units)
{
    return changeUnitFiles("EnableUnitFiles", units);
}

SystemdManager::Result SystemdManager::reload()
{
    BusMessage reply;
    return call("Reload", [](sd_bus_message*) { return 0; }, reply);
}

SystemdManager::Result SystemdManager::start(const std::string& unit)
{
    return runJob("StartUnit", unit);
}

SystemdManager::Result SystemdManager::restart(const std::string& unit)
{
    return runJob("RestartUnit", unit);
}

SystemdManager::Result SystemdManager::call(const char* method, const Fill& fill, BusMessage& reply)
{
    const auto message = newMethodCall(bus_.get(), kService, kPath, kInterface, method);
    int result = message ? fill(message.get()) : -ENOMEM;
    if (result < 0) return unavailable(result);
    // Nobody is prompted again: the caller has brought the right along, or systemd refuses.
    BusError error;
    sd_bus_message* received = nullptr;
    result = sd_bus_call(bus_.get(), message.get(), std::chrono::microseconds(kCallTimeout).count(),
                         error.get(), &received);
    reply.reset(received);
    if (result >= 0) return std::nullopt;
    const auto code =
        isConnectionLost(result) ? static_cast<CFIndex>(kSMErrorServiceUnavailable) : codeOf(error);
    return Failure{code, std::string("systemd refuses ") + method + ": " + error.text()};
}

SystemdManager::Result SystemdManager::changeUnitFiles(const char* method,
                                                       const std::vector<std::string>& files)
{
    // For good, not until the next start of the system; and a unit of that name that stands in the way goes.
    constexpr int kIsRuntimeOnly = 0;
    constexpr int kIsForced = 1;
    BusMessage reply;
    return call(
        method,
        [&files](sd_bus_message* message) {
            int result = sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "s");
            for (const auto& file : files)
                if (result >= 0) result = sd_bus_message_append(message, "s", file.c_str());
            if (result >= 0) result = sd_bus_message_close_container(message);
            if (result >= 0) result = sd_bus_message_append(message, "bb", kIsRuntimeOnly, kIsForced);
            return result;
        },
        reply);
}

SystemdManager::Result SystemdManager::runJob(const char* method, const std::string& unit)
{
    BusMessage reply;
    auto failure = call(
        method,
        [&unit](sd_bus_message* message) {
            return sd_bus_message_append(message, "ss", unit.c_str(), "replace");
        },
        reply);
    if (failure) return failure;
    const char* job = nullptr;
    if (sd_bus_message_read(reply.get(), "o", &job) <= 0)
        return Failure{kSMErrorInternalFailure, std::string("systemd answers ") + method + " without a job"};
    return waitForJob(job, unit);
}

SystemdManager::Result SystemdManager::waitForJob(const std::string& job, const std::string& unit)
{
    const auto deadline = Clock::now() + kJobTimeout;
    while (!jobResults_.contains(job)) {
        if (hasGone_)
            return Failure{kSMErrorServiceUnavailable, "systemd has ended before " + unit + " was up"};
        int result = sd_bus_process(bus_.get(), nullptr);
        if (result > 0) continue;
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
        if (result == 0 && left > 0) {
            result = sd_bus_wait(bus_.get(), static_cast<std::uint64_t>(left));
            if (result > 0 || result == -EINTR) continue;
        }
        if (result < 0) return unavailable(result);
        return Failure{kSMErrorServiceUnavailable, unit + " is not up, and systemd does not say why"};
    }
    const auto& result = jobResults_[job];
    if (result == "done") return std::nullopt;
    return Failure{kSMErrorInternalFailure, unit + " did not start: " + result};
}

int SystemdManager::jobRemoved(sd_bus_message* signal, void* manager, sd_bus_error*)
{
    std::uint32_t id = 0;
    const char* job = nullptr;
    const char* unit = nullptr;
    const char* result = nullptr;
    if (sd_bus_message_read(signal, "uoss", &id, &job, &unit, &result) > 0)
        static_cast<SystemdManager*>(manager)->jobResults_.insert_or_assign(job, result);
    return 0;
}

int SystemdManager::ownerChanged(sd_bus_message* signal, void* manager, sd_bus_error*)
{
    const char* name = nullptr;
    const char* before = nullptr;
    const char* now = nullptr;
    if (sd_bus_message_read(signal, "sss", &name, &before, &now) > 0 && std::string_view(name) == kService &&
        *now == '\0')
        static_cast<SystemdManager*>(manager)->hasGone_ = true;
    return 0;
}

}  // namespace pavo::servicemanagement
