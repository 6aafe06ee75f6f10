#include "Bundle/mac/SourceObjects.h"

#include "Platform/Support/Fatal.h"

#include <string>
#include <utility>

namespace {

// The plain initializer exists, because the superclass has one, and has nothing to answer with.
[[noreturn]] void refusePlainInitializer(id object)
{
    pavo::fatalError("Use of unimplemented initializer 'init()' for class '" +
                     std::string(class_getName([object class])) + "'");
}

}  // namespace

@implementation PavoProviderSource {
    cmio::ProviderSourceAdapter _adapter;
}

- (instancetype)init
{
    refusePlainInitializer(self);
}

- (instancetype)initWithAdapter:(cmio::ProviderSourceAdapter)adapter
{
    self = [super init];
    if (self) _adapter = std::move(adapter);
    return self;
}

- (BOOL)connectClient:(CMIOExtensionClient*)client error:(NSError**)outError
{
    return _adapter.connectClient(client, outError);
}

- (void)disconnectClient:(CMIOExtensionClient*)client
{
    _adapter.disconnectClient(client);
}

- (NSSet<CMIOExtensionProperty>*)availableProperties
{
    return _adapter.availableProperties();
}

- (CMIOExtensionProviderProperties*)providerPropertiesForProperties:(NSSet<CMIOExtensionProperty>*)properties
                                                              error:(NSError**)outError
{
    return _adapter.properties(properties, outError);
}

- (BOOL)setProviderProperties:(CMIOExtensionProviderProperties*)providerProperties error:(NSError**)outError
{
    return _adapter.setProperties(providerProperties, outError);
}

@end

@implementation PavoVideoDeviceSource {
    cmio::DeviceSourceAdapter _adapter;
}

- (instancetype)init
{
    refusePlainInitializer(self);
}

- (instancetype)initWithAdapter:(cmio::DeviceSourceAdapter)adapter
{
    self = [super init];
    if (self) _adapter = std::move(adapter);
    return self;
}

- (NSSet<CMIOExtensionProperty>*)availableProperties
{
    return _adapter.availableProperties();
}

- (CMIOExtensionDeviceProperties*)devicePropertiesForProperties:(NSSet<CMIOExtensionProperty>*)properties
                                                          error:(NSError**)outError
{
    return _adapter.properties(properties, outError);
}

- (BOOL)setDeviceProperties:(CMIOExtensionDeviceProperties*)deviceProperties error:(NSError**)outError
{
    return _adapter.setProperties(deviceProperties, outError);
}

@end

@implementation PavoVideoStreamSource {
    cmio::StreamSourceAdapter _adapter;
}

- (instancetype)init
{
    refusePlainInitializer(self);
}

- (instancetype)initWithAdapter:(cmio::StreamSourceAdapter)adapter
{
    self = [super init];
    if (self) _adapter = std::move(adapter);
    return self;
}

- (NSArray<CMIOExtensionStreamFormat*>*)formats
{
    return _adapter.formats();
}

- (NSSet<CMIOExtensionProperty>*)availableProperties
{
    return _adapter.availableProperties();
}

- (CMIOExtensionStreamProperties*)streamPropertiesForProperties:(NSSet<CMIOExtensionProperty>*)properties
                                                          error:(NSError**)outError
{
    return _adapter.properties(properties, outError);
}

- (BOOL)setStreamProperties:(CMIOExtensionStreamProperties*)streamProperties error:(NSError**)outError
{
    return _adapter.setProperties(streamProperties, outError);
}

- (BOOL)authorizedToStartStreamForClient:(CMIOExtensionClient*)client
{
    return _adapter.isAuthorizedToStart(client);
}

- (BOOL)startStreamAndReturnError:(NSError**)outError
{
    return _adapter.start(outError);
}

- (BOOL)stopStreamAndReturnError:(NSError**)outError
{
    return _adapter.stop(outError);
}

@end

const cmio::SourceFactories cmio::sourceFactories = {
    [](ProviderSourceAdapter adapter) -> id<CMIOExtensionProviderSource> {
        return [[PavoProviderSource alloc] initWithAdapter:std::move(adapter)];
    },
    [](DeviceSourceAdapter adapter) -> id<CMIOExtensionDeviceSource> {
        return [[PavoVideoDeviceSource alloc] initWithAdapter:std::move(adapter)];
    },
    [](StreamSourceAdapter adapter) -> id<CMIOExtensionStreamSource> {
        return [[PavoVideoStreamSource alloc] initWithAdapter:std::move(adapter)];
    },
};
