#include "Platform/XPC/XPCConnection.h"

#include "Platform/Foundation/mac/NSConversions.h"
#include "Platform/Support/Fatal.h"
#include "Platform/XPC/mac/XPCImpl.h"
#include "Platform/XPC/mac/XPCRuntimeProtocol.h"

#include <string>
#include <utility>

namespace xpc {

namespace {

std::shared_ptr<Connection> makeConnection(NSXPCConnection* connection)
{
    return std::make_shared<Connection>(std::make_unique<Connection::Impl>(connection));
}

NSXPCInterface* interfaceOf(const ProtocolDescription& protocol)
{
    return [NSXPCInterface interfaceWithProtocol:runtimeProtocol(protocol).protocol()];
}

void (^blockOf(std::function<void()> handler))(void)
{
    if (!handler) return nil;
    return ^{
      handler();
    };
}

// Holds what it needs: the system may keep it beyond the call that it was made for.
void (^errorBlockOf(Proxy::ErrorHandler handler))(NSError*)
{
    return ^(NSError* error) {
      if (handler) handler(ns::toError(error));
    };
}

}  // namespace

void Proxy::send(std::string_view selector, std::span<const Argument> arguments) const
{
    call(selector, arguments, {});
}

void Proxy::call(std::string_view selector, std::span<const Argument> arguments, ReplySink reply) const
{
    pavo::require(protocol_ != nullptr, "A message needs a remote object interface");
    NSXPCConnection* const connection = connection_->impl().connection;
    const id target =
        isSynchronous_ ? [connection synchronousRemoteObjectProxyWithErrorHandler:errorBlockOf(errorHandler_)]
                       : connection.remoteObjectProxy;
    const bool isKnown = runtimeProtocol(*protocol_).send(target, selector, arguments, std::move(reply));
    pavo::require(isKnown, "No such message: " + std::string(selector));
}

std::shared_ptr<Connection> Connection::withMachServiceName(std::string_view name, ConnectionOptions options)
{
    return makeConnection([[NSXPCConnection alloc]
        initWithMachServiceName:ns::toObject(name)
                        options:static_cast<NSXPCConnectionOptions>(options)]);
}

std::shared_ptr<Connection> Connection::withListenerEndpoint(const ListenerEndpoint& endpoint)
{
    const auto object = (__bridge NSXPCListenerEndpoint*)endpoint.object();
    return makeConnection([[NSXPCConnection alloc] initWithListenerEndpoint:object]);
}

Connection::Connection(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Connection::~Connection() = default;

void Connection::setRemoteObjectInterface(const ProtocolDescription& protocol)
{
    impl_->remoteInterface = &protocol;
    impl_->connection.remoteObjectInterface = interfaceOf(protocol);
}

void Connection::setExportedInterface(const ProtocolDescription& protocol)
{
    impl_->connection.exportedInterface = interfaceOf(protocol);
}

void Connection::setExportedObject(ExportedObject object)
{
    if (!object.object) {
        impl_->connection.exportedObject = nil;
        return;
    }
    const auto& protocol = runtimeProtocol(*object.protocol);
    pavo::require(protocol.makeExportedObject != nullptr, "Objects of this protocol are not exported");
    impl_->connection.exportedObject = protocol.makeExportedObject(std::move(object));
}

void Connection::setInvalidationHandler(std::function<void()> handler)
{
    impl_->connection.invalidationHandler = blockOf(std::move(handler));
}

void Connection::setInterruptionHandler(std::function<void()> handler)
{
    impl_->connection.interruptionHandler = blockOf(std::move(handler));
}

void Connection::resume()
{
    [impl_->connection resume];
}

void Connection::invalidate()
{
    [impl_->connection invalidate];
}

Proxy Connection::remoteObjectProxy()
{
    return {shared_from_this(), impl_->remoteInterface};
}

Proxy Connection::synchronousRemoteObjectProxyWithErrorHandler(Proxy::ErrorHandler errorHandler)
{
    return {shared_from_this(), impl_->remoteInterface, std::move(errorHandler)};
}

std::int32_t Connection::processIdentifier() const
{
    return impl_->connection.processIdentifier;
}

}  // namespace xpc
