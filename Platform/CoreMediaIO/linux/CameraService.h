#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Platform/CoreMediaIO/linux/CameraNode.h"
#include "Platform/CoreMediaIO/linux/CameraReport.h"
#include "Platform/CoreMediaIO/linux/ClientTracker.h"
#include "Platform/CoreMediaIO/linux/PipeWireConnection.h"
#include "Platform/CoreMediaIO/linux/PipeWireLoop.h"
#include "Platform/CoreMediaIO/linux/StreamClients.h"
#include "Platform/Support/Dispatch.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

namespace cmio {

// Publishes a provider's devices in PipeWire: one camera node for each stream that is a source.
//
// Ownership: keeps the streams, the loop and all that lives on it.
// Threads:   start and stop on any thread. What sources are asked happens on the client queue, what PipeWire
//            says on the loop; the loop never waits for the queue.
// Errors:    a stream that has no usable format is logged and left out. Without PipeWire the cameras wait for
//            it.
class CameraService final : public std::enable_shared_from_this<CameraService> {
public:
    static std::shared_ptr<CameraService> start(std::weak_ptr<ExtensionProviderSource> source,
                                                dispatch::Queue clientQueue,
                                                const std::vector<std::shared_ptr<ExtensionDevice>>& devices);
    CameraService(std::weak_ptr<ExtensionProviderSource> source, dispatch::Queue clientQueue);
    ~CameraService();

    // The cameras disappear; streams that run are stopped on the client queue.
    void stop();

    // Not on the loop's thread.
    ServiceReport report();

private:
    struct Published {
        std::shared_ptr<ExtensionStream> stream;
        std::shared_ptr<CameraNode> node;
        std::shared_ptr<StreamClients> clients;
        std::set<std::int32_t> processes;  // as the client queue was told
    };

    // What is known without /proc, which the loop must not wait for.
    ServiceReport reportOfPipeWire();
    void publish(const std::vector<std::shared_ptr<ExtensionDevice>>& devices);
    void publish(ExtensionDevice& device, const std::shared_ptr<ExtensionStream>& stream);
    std::optional<CameraDescription> describe(ExtensionDevice& device, ExtensionStream& stream) const;
    std::string askManufacturer() const;
    void connected(pw_core* core);
    void lost();
    void updateClients();
    void refuse(const std::string& nodeName, std::int32_t process);

    const std::weak_ptr<ExtensionProviderSource> source_;
    const dispatch::Queue clientQueue_;
    std::mutex mutex_;  // guards what follows against stop; taken before the loop's lock
    bool isStopped_ = false;
    std::shared_ptr<PipeWireLoop> loop_;
    // Guarded by the loop's lock.
    std::vector<Published> published_;
    std::unique_ptr<PipeWireConnection> connection_;
    std::unique_ptr<ClientTracker> tracker_;
};

}  // namespace cmio
