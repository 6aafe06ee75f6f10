#include "StandInSystemd.h"

#include <utility>

namespace pavo::test {

namespace {

constexpr const char* kPath = "/org/freedesktop/systemd1";
constexpr const char* kInterface = "org.freedesktop.systemd1.Manager";

// The arguments of a call, as text. Empty for a type that none of the calls has.
std::string argumentsOf(sd_bus_message* call)
{
    const std::string signature = sd_bus_message_get_signature(call, 1);
    std::string text;
    if (signature == "asbb") {
        sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "s");
        for (const char* file = nullptr; sd_bus_message_read(call, "s", &file) > 0;)
            text += std::string(" ") + file;
        sd_bus_message_exit_container(call);
        int isRuntimeOnly = -1;
        int isForced = -1;
        sd_bus_message_read(call, "bb", &isRuntimeOnly, &isForced);
        text += " runtime=" + std::to_string(isRuntimeOnly) + " force=" + std::to_string(isForced);
    } else if (signature == "ss") {
        const char* unit = "";
        const char* mode = "";
        sd_bus_message_read(call, "ss", &unit, &mode);
        text = std::string(" ") + unit + " " + mode;
    } else if (!signature.empty()) {
        text = " (" + signature + ")";
    }
    return text;
}

}  // namespace

StandInSystemd::StandInSystemd()
    : service_("org.freedesktop.systemd1", kPath, [this](sd_bus_message* call) { return handle(call); })
{}

std::vector<std::string> StandInSystemd::calls() const
{
    const std::lock_guard lock(mutex_);
    return calls_;
}

bool StandInSystemd::wasPromptAllowed() const
{
    const std::lock_guard lock(mutex_);
    return wasPromptAllowed_;
}

void StandInSystemd::refuse(const std::string& method, const std::string& errorName)
{
    order(method, {Conduct::refuse, errorName});
}

void StandInSystemd::ignore(const std::string& method)
{
    order(method, {Conduct::ignore, {}});
}

void StandInSystemd::dieAt(const std::string& method)
{
    order(method, {Conduct::die, {}});
}

void StandInSystemd::garble(const std::string& method)
{
    order(method, {Conduct::garble, {}});
}

void StandInSystemd::order(const std::string& method, Order order)
{
    const std::lock_guard lock(mutex_);
    orders_.insert_or_assign(method, std::move(order));
}

void StandInSystemd::setJob(JobEnd end, const std::string& result)
{
    const std::lock_guard lock(mutex_);
    jobEnd_ = end;
    jobResult_ = result;
}

BusService::Outcome StandInSystemd::handle(sd_bus_message* call)
{
    const std::lock_guard lock(mutex_);
    if (std::string(sd_bus_message_get_interface(call)) != kInterface) return BusService::Outcome::going;
    const std::string method = sd_bus_message_get_member(call);
    wasPromptAllowed_ = wasPromptAllowed_ || sd_bus_message_get_allow_interactive_authorization(call) > 0;
    calls_.push_back(method + argumentsOf(call));
    if (const auto found = orders_.find(method); found != orders_.end()) return obey(found->second, call);
    return answer(method, call);
}

BusService::Outcome StandInSystemd::obey(const Order& order, sd_bus_message* call) const
{
    switch (order.conduct) {
    case Conduct::refuse:
        sd_bus_reply_method_errorf(call, order.errorName.c_str(), "as ordered");
        break;
    case Conduct::garble:
        sd_bus_reply_method_return(call, "u", 7U);
        break;
    case Conduct::ignore:
        break;
    case Conduct::die:
        return BusService::Outcome::dead;
    }
    return BusService::Outcome::going;
}

BusService::Outcome StandInSystemd::answer(const std::string& method, sd_bus_message* call)
{
    if (method == "LinkUnitFiles") {
        sd_bus_reply_method_return(call, "a(sss)", 0);
    } else if (method == "EnableUnitFiles") {
        sd_bus_reply_method_return(call, "ba(sss)", 1, 0);
    } else if (method == "StartUnit" || method == "RestartUnit") {
        const auto& last = calls_.back();
        const auto start = last.find(' ') + 1;
        return runJob(call, last.substr(start, last.rfind(' ') - start));
    } else if (method == "Subscribe" || method == "Reload") {
        hasSubscriber_ = hasSubscriber_ || method == "Subscribe";
        sd_bus_reply_method_return(call, "");
    } else {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no such method");
    }
    return BusService::Outcome::going;
}

BusService::Outcome StandInSystemd::runJob(sd_bus_message* call, const std::string& unit)
{
    const auto path = std::string(kPath) + "/job/" + std::to_string(++lastJob_);
    sd_bus* const bus = sd_bus_message_get_bus(call);
    // The end of somebody else's job, which nobody here has waited for.
    removeJob(bus, std::string(kPath) + "/job/0", "other.service");
    if (jobEnd_ == JobEnd::beforeReply) removeJob(bus, path, unit);
    sd_bus_reply_method_return(call, "o", path.c_str());
    if (jobEnd_ == JobEnd::afterReply) removeJob(bus, path, unit);
    if (jobEnd_ != JobEnd::death) return BusService::Outcome::going;
    sd_bus_flush(bus);
    return BusService::Outcome::dead;
}

void StandInSystemd::removeJob(sd_bus* bus, const std::string& path, const std::string& unit) const
{
    // systemd is silent towards a bus on which nobody has subscribed.
    if (!hasSubscriber_) return;
    sd_bus_emit_signal(bus, kPath, kInterface, "JobRemoved", "uoss", lastJob_, path.c_str(), unit.c_str(),
                       jobResult_.c_str());
}

}  // namespace pavo::test
