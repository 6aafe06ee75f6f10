#include "Tools/EventStream.h"

#include "Tools/ByteReader.h"
#include "Tools/StopSignal.h"

#include <algorithm>
#include <utility>

namespace pavo::tools {
namespace {

constexpr std::size_t kLineLimit = 64 * 1024;

}  // namespace

EventStream::EventStream(UniqueFd readEnd) : readEnd_(std::move(readEnd)), thread_([this] { read(); }) {}

EventStream::~EventStream()
{
    thread_.join();
}

void EventStream::read()
{
    ByteReader reader(readEnd_.get());
    while (const auto line = reader.readLine(kLineLimit)) {
        auto content = nlohmann::json::parse(*line, nullptr, false);
        if (!content.is_object()) continue;
        const std::lock_guard lock(mutex_);
        events_.push_back({monotonicNs(), std::move(content)});
        changed_.notify_all();
    }
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    changed_.notify_all();
}

std::vector<EventStream::Event> EventStream::events() const
{
    const std::lock_guard lock(mutex_);
    return events_;
}

bool EventStream::waitFor(const char* name, std::int64_t sinceNs, std::chrono::milliseconds deadline)
{
    const auto hasCome = [this, name, sinceNs] {
        return std::ranges::any_of(events_, [name, sinceNs](const Event& event) {
            return event.arrivalNs >= sinceNs && event.is(name);
        });
    };
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, deadline, [this, &hasCome] { return isOver_ || hasCome(); });
    return hasCome();
}

}  // namespace pavo::tools
