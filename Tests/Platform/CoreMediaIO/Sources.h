#pragma once

#include "Platform/CoreMediaIO/CMIOExtensionProvider.h"

#include <gmock/gmock.h>

namespace cmio::test {

// Without a source.
inline std::shared_ptr<ExtensionStream>
makeStream(ExtensionStreamDirection direction = ExtensionStreamDirection::source)
{
    return ExtensionStream::create("Stream", ns::UUID::random(), direction,
                                   ExtensionStreamClockType::hostTime, {});
}

class MockProviderSource : public ExtensionProviderSource {
public:
    MOCK_METHOD(bool, connectClient, (const ExtensionClient&, ns::Error*), (override));
    MOCK_METHOD(void, disconnectClient, (const ExtensionClient&), (override));
    MOCK_METHOD(ExtensionPropertySet, availableProperties, (), (const, override));
    MOCK_METHOD(std::optional<ExtensionProviderProperties>, providerProperties,
                (const ExtensionPropertySet&, ns::Error*), (override));
    MOCK_METHOD(bool, setProviderProperties, (const ExtensionProviderProperties&, ns::Error*), (override));
    virtual ~MockProviderSource() = default;
};

class MockStreamSource : public ExtensionStreamSource {
public:
    MOCK_METHOD(std::vector<ExtensionStreamFormat>, formats, (), (const, override));
    MOCK_METHOD(ExtensionPropertySet, availableProperties, (), (const, override));
    MOCK_METHOD(std::optional<ExtensionStreamProperties>, streamProperties,
                (const ExtensionPropertySet&, ns::Error*), (override));
    MOCK_METHOD(bool, setStreamProperties, (const ExtensionStreamProperties&, ns::Error*), (override));
    MOCK_METHOD(bool, authorizedToStartStream, (const ExtensionClient&), (override));
    MOCK_METHOD(bool, startStream, (ns::Error*), (override));
    MOCK_METHOD(bool, stopStream, (ns::Error*), (override));
    virtual ~MockStreamSource() = default;
};

}  // namespace cmio::test
