#include "Platform/CoreMediaIO/mac/CMIOSourceAdapters.h"

#include "Platform/CoreMediaIO/mac/CMIOConversions.h"
#include "Platform/Foundation/mac/NSConversions.h"

namespace cmio {

namespace {

constexpr std::int64_t kParameterError = -50;

// The source's answer, with its reason where it refuses.
template <typename Source, typename Question>
auto ask(const std::weak_ptr<Source>& weakSource, NSError** outError, const Question& question)
{
    ns::Error error{ns::NSOSStatusErrorDomain, kParameterError};
    const auto source = weakSource.lock();
    auto answer = source ? question(*source, &error) : decltype(question(*source, &error)){};
    if (!answer && outError) *outError = ns::toObject(error);
    return answer;
}

template <typename Source>
NSSet<CMIOExtensionProperty>* availablePropertiesOf(const std::weak_ptr<Source>& weakSource)
{
    const auto source = weakSource.lock();
    return toObject(source ? source->availableProperties() : ExtensionPropertySet{});
}

}  // namespace

BOOL ProviderSourceAdapter::connectClient(CMIOExtensionClient* client, NSError** error) const
{
    return ask(source, error, [client](auto& asked, ns::Error* reason) {
        return asked.connectClient(fromObject(client), reason);
    });
}

void ProviderSourceAdapter::disconnectClient(CMIOExtensionClient* client) const
{
    if (const auto asked = source.lock()) asked->disconnectClient(fromObject(client));
}

NSSet<CMIOExtensionProperty>* ProviderSourceAdapter::availableProperties() const
{
    return availablePropertiesOf(source);
}

CMIOExtensionProviderProperties* ProviderSourceAdapter::properties(NSSet<CMIOExtensionProperty>* properties,
                                                                   NSError** error) const
{
    const auto answer = ask(source, error, [properties](auto& asked, ns::Error* reason) {
        return asked.providerProperties(fromObject(properties), reason);
    });
    return answer ? toObject(*answer) : nil;
}

BOOL ProviderSourceAdapter::setProperties(CMIOExtensionProviderProperties* properties, NSError** error) const
{
    return ask(source, error, [properties](auto& asked, ns::Error* reason) {
        return asked.setProviderProperties(
            ExtensionProviderProperties(fromObject(properties.propertiesDictionary)), reason);
    });
}

NSSet<CMIOExtensionProperty>* DeviceSourceAdapter::availableProperties() const
{
    return availablePropertiesOf(source);
}

CMIOExtensionDeviceProperties* DeviceSourceAdapter::properties(NSSet<CMIOExtensionProperty>* properties,
                                                               NSError** error) const
{
    const auto answer = ask(source, error, [properties](auto& asked, ns::Error* reason) {
        return asked.deviceProperties(fromObject(properties), reason);
    });
    return answer ? toObject(*answer) : nil;
}

BOOL DeviceSourceAdapter::setProperties(CMIOExtensionDeviceProperties* properties, NSError** error) const
{
    return ask(source, error, [properties](auto& asked, ns::Error* reason) {
        return asked.setDeviceProperties(
            ExtensionDeviceProperties(fromObject(properties.propertiesDictionary)), reason);
    });
}

NSArray<CMIOExtensionStreamFormat*>* StreamSourceAdapter::formats() const
{
    const auto asked = source.lock();
    return toObject(asked ? asked->formats() : std::vector<ExtensionStreamFormat>{});
}

NSSet<CMIOExtensionProperty>* StreamSourceAdapter::availableProperties() const
{
    return availablePropertiesOf(source);
}

CMIOExtensionStreamProperties* StreamSourceAdapter::properties(NSSet<CMIOExtensionProperty>* properties,
                                                               NSError** error) const
{
    const auto answer = ask(source, error, [properties](auto& asked, ns::Error* reason) {
        return asked.streamProperties(fromObject(properties), reason);
    });
    return answer ? toObject(*answer) : nil;
}

BOOL StreamSourceAdapter::setProperties(CMIOExtensionStreamProperties* properties, NSError** error) const
{
    return ask(source, error, [properties](auto& asked, ns::Error* reason) {
        return asked.setStreamProperties(
            ExtensionStreamProperties(fromObject(properties.propertiesDictionary)), reason);
    });
}

BOOL StreamSourceAdapter::isAuthorizedToStart(CMIOExtensionClient* client) const
{
    const auto asked = source.lock();
    return asked && asked->authorizedToStartStream(fromObject(client));
}

BOOL StreamSourceAdapter::start(NSError** error) const
{
    return ask(source, error, [](auto& asked, ns::Error* reason) { return asked.startStream(reason); });
}

BOOL StreamSourceAdapter::stop(NSError** error) const
{
    return ask(source, error, [](auto& asked, ns::Error* reason) { return asked.stopStream(reason); });
}

}  // namespace cmio
