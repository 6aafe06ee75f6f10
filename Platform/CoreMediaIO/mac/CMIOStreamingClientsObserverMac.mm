#include "Platform/CoreMediaIO/mac/CMIOStreamingClientsObserver.h"

#include "Platform/CoreMediaIO/mac/CMIOConversions.h"
#include "Platform/Support/Synchronized.h"

#include <utility>

using ClientsChange = cmio::ExtensionStream::ClientsChange;
using Handler = std::shared_ptr<const std::function<void(const ClientsChange&)>>;

namespace {

NSString* const kKeyPath = @"streamingClients";
// Tells our observation from one of the superclass: its address.
char observationContext;

}  // namespace

@implementation PavoStreamingClientsObserver {
    CMIOExtensionStream* _stream;
    pavo::Synchronized<Handler> _handler;
}

- (instancetype)initWithStream:(CMIOExtensionStream*)stream
                       handler:(std::function<void(const ClientsChange&)>)handler
{
    self = [super init];
    if (self) {
        _stream = stream;
        _handler.store(std::make_shared<const std::function<void(const ClientsChange&)>>(std::move(handler)));
        [_stream addObserver:self
                  forKeyPath:kKeyPath
                     options:NSKeyValueObservingOptionNew
                     context:&observationContext];
    }
    return self;
}

- (void)end
{
    [_stream removeObserver:self forKeyPath:kKeyPath context:&observationContext];
    _stream = nil;
    _handler.store(nullptr);
}

- (void)observeValueForKeyPath:(NSString*)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id>*)change
                       context:(void*)context
{
    if (context != &observationContext) {
        [super observeValueForKeyPath:keyPath ofObject:object change:change context:context];
        return;
    }
    const auto handler = _handler.load();
    if (!handler) return;
    // Where the property was set to nothing there is an NSNull.
    const id value = change[NSKeyValueChangeNewKey];
    if ([value isKindOfClass:[NSArray class]])
        (*handler)({cmio::fromObject(static_cast<NSArray<CMIOExtensionClient*>*>(value))});
    else
        (*handler)({});
}

@end
