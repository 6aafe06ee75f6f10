#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"
#include "Platform/Support/Dispatch.h"
#include "Tests/Platform/CoreMediaIO/Pictures.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace cmio::test {

// A provider with one device and one 1920 x 1080 stream, which writes down what the platform asks.
class TestCamera {
public:
    TestCamera();
    // Everything is unpublished; the sources go once the client queue is done with them.
    ~TestCamera();
    TestCamera(const TestCamera&) = delete;
    TestCamera& operator=(const TestCamera&) = delete;

    void publish();
    // Sends `picture` sixty times a second until the next call, or until stopSending.
    void startSending(cf::Ref<CVPixelBufferRef> picture);
    void stopSending();
    // Sends one sample now, and gives it back.
    cf::Ref<CMSampleBufferRef> sendOnce(CVPixelBufferRef picture, std::uint64_t hostTimeNanoseconds);

    // What happened, in order: "connect 12", "authorize 12", "start", "clients 12", "stop", "clients",
    // "disconnect 12".
    std::vector<std::string> events() const;
    std::vector<std::int32_t> streamingProcesses() const;
    // From now on nobody may start the stream.
    void refuseEverybody();

private:
    class Sources;

    dispatch::Queue clientQueue_;
    dispatch::Queue sendQueue_;
    std::shared_ptr<Sources> sources_;
    std::shared_ptr<ExtensionStream> stream_;
    std::shared_ptr<ExtensionProvider> provider_;
    ns::KeyValueObservation observation_;
    std::unique_ptr<dispatch::TimerSource> sender_;
};

}  // namespace cmio::test
