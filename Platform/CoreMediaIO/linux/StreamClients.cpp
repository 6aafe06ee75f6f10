#include "Platform/CoreMediaIO/linux/StreamClients.h"

#include "Platform/CoreMediaIO/linux/CMIOExtensionImpl.h"
#include "Platform/CoreMediaIO/linux/Log.h"

#include <algorithm>
#include <utility>

namespace cmio {

StreamClients::StreamClients(std::weak_ptr<ExtensionProviderSource> provider,
                             std::shared_ptr<ExtensionStream> stream,
                             std::function<void(std::int32_t)> refuse)
    : provider_(std::move(provider)),
      stream_(std::move(stream)),
      refuse_(std::move(refuse))
{}

void StreamClients::setProcesses(const std::set<std::int32_t>& processes)
{
    for (auto each = clients_.begin(); each != clients_.end();) {
        if (processes.contains(each->first)) {
            ++each;
            continue;
        }
        remove(each->second);
        each = clients_.erase(each);
    }
    for (const std::int32_t process : processes)
        if (!clients_.contains(process)) add(process);
}

void StreamClients::add(std::int32_t process)
{
    Client& client = clients_.emplace(process, Client{{ns::UUID::random(), process}}).first->second;
    if (const char* refuser = admit(client)) {
        os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "Refused process %d: %s", process, refuser);
        refuse_(process);
        return;
    }
    client.isStreaming = true;
    order_.push_back(process);
    publish();
}

const char* StreamClients::admit(Client& client)
{
    const auto provider = provider_.lock();
    const auto source = stream_->impl().source.lock();
    if (!provider || !source) return "the camera has gone";
    ns::Error error;
    client.isConnected = provider->connectClient(client.client, &error);
    if (!client.isConnected) return "the provider does not connect it";
    if (!source->authorizedToStartStream(client.client)) return "it may not start the stream";
    if (!isAnyoneStreaming() && !source->startStream(&error)) return "the stream does not start";
    return nullptr;
}

void StreamClients::remove(Client& client)
{
    const std::int32_t process = client.client.pid;
    if (client.isStreaming) {
        const auto source = stream_->impl().source.lock();
        ns::Error error;
        if (order_.size() == 1 && source && !source->stopStream(&error))
            os_log_printf(faceLog(), OS_LOG_TYPE_ERROR, "The stream does not stop: %s %lld",
                          error.domain.c_str(), static_cast<long long>(error.code));
        std::erase(order_, process);
        publish();
    }
    const auto provider = provider_.lock();
    if (client.isConnected && provider) provider->disconnectClient(client.client);
}

void StreamClients::publish()
{
    std::vector<ExtensionClient> streaming;
    std::transform(order_.begin(), order_.end(), std::back_inserter(streaming),
                   [this](std::int32_t process) { return clients_.at(process).client; });
    stream_->impl().clients.set(std::move(streaming));
}

bool StreamClients::isAnyoneStreaming() const
{
    return !order_.empty();
}

}  // namespace cmio
