#include "Platform/CoreMediaIO/linux/StreamingClientList.h"

#include <algorithm>
#include <utility>

namespace cmio {

struct StreamingClientList::Observer {
    Handler handler;
    bool isActive = true;  // guarded by the state's mutex
};

struct StreamingClientList::State {
    mutable std::mutex mutex;
    std::vector<ExtensionClient> clients;
    std::vector<std::shared_ptr<Observer>> observers;
};

StreamingClientList::StreamingClientList() : state_(std::make_shared<State>()) {}

StreamingClientList::~StreamingClientList() = default;

std::vector<ExtensionClient> StreamingClientList::clients() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->clients;
}

bool StreamingClientList::isEmpty() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->clients.empty();
}

void StreamingClientList::set(std::vector<ExtensionClient> clients)
{
    const ExtensionStream::ClientsChange change{clients};
    std::vector<std::shared_ptr<Observer>> observers;
    {
        const std::lock_guard lock(state_->mutex);
        state_->clients = std::move(clients);
        observers = state_->observers;
    }
    for (const auto& observer : observers) {
        {
            // One that ended in the meantime, maybe by another's handler, hears nothing more.
            const std::lock_guard lock(state_->mutex);
            if (!observer->isActive) continue;
        }
        observer->handler(change);
    }
}

ns::KeyValueObservation StreamingClientList::observe(Handler handler)
{
    auto observer = std::make_shared<Observer>(std::move(handler));
    {
        const std::lock_guard lock(state_->mutex);
        state_->observers.push_back(observer);
    }
    return ns::KeyValueObservation([weakState = std::weak_ptr(state_), observer = std::move(observer)] {
        const auto state = weakState.lock();
        if (!state) return;
        const std::lock_guard lock(state->mutex);
        observer->isActive = false;
        std::erase(state->observers, observer);
    });
}

}  // namespace cmio
