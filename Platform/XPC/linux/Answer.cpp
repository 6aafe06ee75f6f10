#include "Platform/XPC/linux/Answer.h"

#include "Platform/XPC/linux/PeerLink.h"
#include "Platform/XPC/linux/WireText.h"
#include "Platform/XPC/linux/XPCLog.h"

#include <string>
#include <utility>
#include <vector>

namespace xpc {

Answer::Answer(std::weak_ptr<PeerLink> link, std::uint64_t cookie, const MethodDescription& method)
    : link_(std::move(link)),
      cookie_(cookie),
      method_(method)
{}

Answer::~Answer()
{
    if (isGiven_) return;
    if (const auto link = link_.lock()) link->answer(cookie_, nullptr);
}

void Answer::give(std::span<const Argument> values)
{
    if (isGiven_.exchange(true)) {
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "Answered twice: %s", std::string(method_.selector).c_str());
        return;
    }
    const bool isSendable = canTravel(values);
    if (!isSendable)
        os_log_printf(log(), OS_LOG_TYPE_ERROR, "The answer to %s cannot be put in a message",
                      std::string(method_.selector).c_str());
    const std::vector<Argument> kept(values.begin(), values.end());
    if (const auto link = link_.lock()) link->answer(cookie_, isSendable ? &kept : nullptr);
}

}  // namespace xpc
