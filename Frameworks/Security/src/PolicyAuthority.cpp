#include "PolicyAuthority.h"

#include <os/log_printf.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "Platform/Support/linux/SystemBus.h"

namespace pavo::security {

namespace {

constexpr const char* kService = "org.freedesktop.PolicyKit1";
constexpr const char* kPath = "/org/freedesktop/PolicyKit1/Authority";
constexpr const char* kInterface = "org.freedesktop.PolicyKit1.Authority";

constexpr std::uint32_t kAllowUserInteraction = 1;
// A person reads, looks a password up and mistypes it. Who has not answered by then has left.
constexpr std::uint64_t kPersonTimeout_us = 10ULL * 60 * 1'000'000;
constexpr std::uint64_t kServiceTimeout_us = 25ULL * 1'000'000;

os_log_t log()
{
    static const os_log_t instance = os_log_create("com.tarnwell.macos.cam.platform", "Security");
    return instance;
}

Answer internalFailure(const char* what, const char* why)
{
    os_log_printf(log(), OS_LOG_TYPE_ERROR, "%s: %s", what, why);
    return {};
}

const char* textOf(int negativeErrno)
{
    return std::strerror(-negativeErrno);  // NOLINT(concurrency-mt-unsafe): glibc's is per thread
}

// Unique among the questions that this process has open.
std::string newCancellationIdentifier()
{
    static std::atomic<unsigned> last = 0;
    return "pavo-" + std::to_string(getpid()) + "-" + std::to_string(++last);
}

// The person has not answered: the prompt goes away again.
void cancel(sd_bus* bus, const std::string& identifier)
{
    const auto call = newMethodCall(bus, kService, kPath, kInterface, "CancelCheckAuthorization");
    if (!call) return;
    sd_bus_message_set_expect_reply(call.get(), 0);
    sd_bus_message_append(call.get(), "s", identifier.c_str());
    sd_bus_send(bus, call.get(), nullptr);
    sd_bus_flush(bus);
}

// What became of a question that was answered with an error, or not at all.
Answer answerToFailure(sd_bus* bus, int result, const BusError& error, const std::string& cancellation)
{
    if (error.is("org.freedesktop.PolicyKit1.Error.Cancelled")) return {errAuthorizationCanceled, {}};
    // We may not even ask.
    if (error.is("org.freedesktop.PolicyKit1.Error.NotAuthorized") || error.is(SD_BUS_ERROR_ACCESS_DENIED))
        return {errAuthorizationDenied, {}};
    // The bus says "no reply" where the authority died; what the library says when the time is over is
    // another.
    const bool isTimeOver = result == -ETIMEDOUT && !error.is(SD_BUS_ERROR_NO_REPLY);
    if (isTimeOver && !cancellation.empty()) {
        cancel(bus, cancellation);
        return {errAuthorizationCanceled, {}};
    }
    return internalFailure("polkit does not answer", error.text());
}

Answer readAnswer(sd_bus_message* reply)
{
    if (!sd_bus_message_has_signature(reply, "(bba{ss})"))
        return internalFailure("polkit answers nonsense", sd_bus_message_get_signature(reply, 1));
    int isAuthorized = 0;
    int isChallenge = 0;
    int result = sd_bus_message_enter_container(reply, SD_BUS_TYPE_STRUCT, "bba{ss}");
    if (result >= 0) result = sd_bus_message_read(reply, "bb", &isAuthorized, &isChallenge);
    if (result >= 0) result = sd_bus_message_enter_container(reply, SD_BUS_TYPE_ARRAY, "{ss}");
    std::string temporaryAuthorization;
    bool isDismissed = false;
    while (result >= 0) {
        const char* key = nullptr;
        const char* value = nullptr;
        result = sd_bus_message_read(reply, "{ss}", &key, &value);
        if (result <= 0) break;
        if (std::strcmp(key, "polkit.temporary_authorization_id") == 0) temporaryAuthorization = value;
        if (std::strcmp(key, "polkit.dismissed") == 0) isDismissed = std::strcmp(value, "true") == 0;
    }
    if (result < 0) return internalFailure("polkit answers nonsense", textOf(result));

    if (isAuthorized) return {errAuthorizationSuccess, temporaryAuthorization};
    if (isDismissed) return {errAuthorizationCanceled, {}};
    // Somebody would have to authenticate, and there is no program that could ask them to, or it may not.
    return {isChallenge ? errAuthorizationInteractionNotAllowed : errAuthorizationDenied, {}};
}

}  // namespace

Answer checkAuthorization(const std::string& action, bool isInteractionAllowed)
{
    int result = 0;
    const auto bus = openSystemBus(result);
    const char* self = nullptr;
    // Our name on the bus tells polkit which process asks, and cannot be another's by the time it looks.
    if (result >= 0) result = sd_bus_get_unique_name(bus.get(), &self);
    if (result < 0) return internalFailure("No system bus", textOf(result));

    const auto cancellation = isInteractionAllowed ? newCancellationIdentifier() : std::string();
    const auto call = newMethodCall(bus.get(), kService, kPath, kInterface, "CheckAuthorization");
    // No details: from a caller that is not root, polkit takes a question with any for an attempt at deceit.
    result =
        call ? sd_bus_message_append(call.get(), "(sa{sv})sa{ss}us", "system-bus-name", 1, "name", "s", self,
                                     action.c_str(), 0, isInteractionAllowed ? kAllowUserInteraction : 0,
                                     cancellation.c_str())
             : -ENOMEM;
    if (result < 0) return internalFailure("Cannot ask polkit", textOf(result));

    BusError error;
    sd_bus_message* received = nullptr;
    result = sd_bus_call(bus.get(), call.get(), isInteractionAllowed ? kPersonTimeout_us : kServiceTimeout_us,
                         error.get(), &received);
    const BusMessage reply(received);
    return result < 0 ? answerToFailure(bus.get(), result, error, cancellation) : readAnswer(reply.get());
}

void revokeTemporaryAuthorization(const std::string& identifier)
{
    int result = 0;
    const auto bus = openSystemBus(result);
    BusError error;
    if (result >= 0)
        result =
            sd_bus_call_method(bus.get(), kService, kPath, kInterface, "RevokeTemporaryAuthorizationById",
                               error.get(), nullptr, "s", identifier.c_str());
    // It runs out by itself in some minutes; nobody can do more about it.
    if (result < 0)
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Cannot give an authorization back: %s",
                      bus ? error.text() : textOf(result));
}

}  // namespace pavo::security
