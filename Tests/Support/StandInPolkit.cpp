#include "Tests/Support/StandInPolkit.h"

namespace pavo::test {

namespace {

constexpr const char* kInterface = "org.freedesktop.PolicyKit1.Authority";

bool isCall(sd_bus_message* call, const char* method)
{
    return sd_bus_message_is_method_call(call, kInterface, method) > 0;
}

StandInPolkit::Question read(sd_bus_message* call)
{
    StandInPolkit::Question question;
    question.sender = sd_bus_message_get_sender(call);
    const char* kind = "";
    const char* key = "";
    const char* name = "";
    const char* action = "";
    sd_bus_message_enter_container(call, SD_BUS_TYPE_STRUCT, "sa{sv}");
    sd_bus_message_read(call, "s", &kind);
    sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "{sv}");
    if (sd_bus_message_read(call, "{sv}", &key, "s", &name) > 0 && std::string(key) == "name")
        question.subjectName = name;
    sd_bus_message_exit_container(call);
    sd_bus_message_exit_container(call);
    sd_bus_message_read(call, "s", &action);
    question.subjectKind = kind;
    question.action = action;
    sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "{ss}");
    for (const char* value = ""; sd_bus_message_read(call, "{ss}", &key, &value) > 0;)
        ++question.detailCount;
    sd_bus_message_exit_container(call);
    const char* cancellation = "";
    sd_bus_message_read(call, "us", &question.flags, &cancellation);
    question.cancellation = cancellation;
    return question;
}

void fail(sd_bus_message* call, const char* name, const char* text)
{
    sd_bus_reply_method_errorf(call, name, "%s", text);
}

}  // namespace

StandInPolkit::StandInPolkit(Answer answer)
    : answer_(answer),
      service_("org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
               [this](sd_bus_message* call) { return handle(call); })
{}

void StandInPolkit::setAnswer(Answer answer)
{
    const std::lock_guard lock(mutex_);
    answer_ = answer;
}

std::vector<StandInPolkit::Question> StandInPolkit::questions() const
{
    const std::lock_guard lock(mutex_);
    return questions_;
}

std::vector<std::string> StandInPolkit::cancellations() const
{
    const std::lock_guard lock(mutex_);
    return cancellations_;
}

std::vector<std::string> StandInPolkit::revocations() const
{
    const std::lock_guard lock(mutex_);
    return revocations_;
}

BusService::Outcome StandInPolkit::handle(sd_bus_message* call)
{
    const std::lock_guard lock(mutex_);
    const char* identifier = "";
    if (isCall(call, "CheckAuthorization")) return check(call);
    if (isCall(call, "CancelCheckAuthorization") && sd_bus_message_read(call, "s", &identifier) > 0) {
        cancellations_.emplace_back(identifier);
    } else if (isCall(call, "RevokeTemporaryAuthorizationById") &&
               sd_bus_message_read(call, "s", &identifier) > 0) {
        revocations_.emplace_back(identifier);
        sd_bus_reply_method_return(call, "");
    }
    return BusService::Outcome::going;
}

BusService::Outcome StandInPolkit::check(sd_bus_message* call)
{
    questions_.push_back(read(call));
    switch (answer_) {
    case Answer::grant:
        sd_bus_reply_method_return(call, "(bba{ss})", 1, 0, 0);
        break;
    case Answer::grantForAWhile:
        sd_bus_reply_method_return(call, "(bba{ss})", 1, 0, 2, "polkit.retains_authorization_after_challenge",
                                   "1", "polkit.temporary_authorization_id", "tmpauthz7");
        break;
    case Answer::deny:
        sd_bus_reply_method_return(call, "(bba{ss})", 0, 0, 0);
        break;
    case Answer::dismiss:
        sd_bus_reply_method_return(call, "(bba{ss})", 0, 0, 1, "polkit.dismissed", "true");
        break;
    case Answer::challenge:
        sd_bus_reply_method_return(call, "(bba{ss})", 0, 1, 0);
        break;
    case Answer::unknownAction:
        fail(call, "org.freedesktop.PolicyKit1.Error.Failed", "Action is not registered");
        break;
    case Answer::mayNotAsk:
        fail(call, "org.freedesktop.PolicyKit1.Error.NotAuthorized", "Only trusted callers");
        break;
    case Answer::cancelled:
        fail(call, "org.freedesktop.PolicyKit1.Error.Cancelled", "Taken back");
        break;
    case Answer::anotherType:
        sd_bus_reply_method_return(call, "b", 1);
        break;
    case Answer::whenAskedAgain:
        if (!held_) {
            held_.reset(sd_bus_message_ref(call));
            break;
        }
        sd_bus_reply_method_return(held_.get(), "(bba{ss})", 1, 0, 0);
        sd_bus_reply_method_return(call, "(bba{ss})", 1, 0, 0);
        held_.reset();
        break;
    case Answer::nothing:
        break;
    case Answer::die:
        return BusService::Outcome::dead;
    }
    return BusService::Outcome::going;
}

}  // namespace pavo::test
