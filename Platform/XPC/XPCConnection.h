#pragma once

#include "Platform/XPC/XPCListenerEndpoint.h"
#include "Platform/XPC/XPCProtocol.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace xpc {

class Connection;

// The peer's exported object, as it is seen from here. Messages on it go out without waiting; failures are
// silent. Keeps the connection. Made anew by each Connection::remoteObjectProxy.
class Proxy final {
public:
    Proxy(std::shared_ptr<Connection> connection, const ProtocolDescription* protocol)
        : connection_(std::move(connection)),
          protocol_(protocol)
    {}

    bool conformsTo(const ProtocolDescription& protocol) const
    {
        return protocol_ && protocol_->conformsTo(protocol);
    }
    void send(std::string_view selector, std::span<const Argument> arguments) const;

private:
    std::shared_ptr<Connection> connection_;
    const ProtocolDescription* protocol_;
};

// A proxy that is known to conform to the protocol of `Service`:
//     remote.send<&VideoFrameConsumerService::targetFPSChangedTo>(60.0);
template <typename Service>
class Remote final {
public:
    // None where the proxy does not conform.
    static std::optional<Remote> cast(const Proxy& proxy)
    {
        if (!proxy.conformsTo(describe<Service>())) return std::nullopt;
        return Remote(proxy);
    }

    template <auto Method, typename... A>
    void send(const A&... values) const
    {
        constexpr std::string_view selector = selectorOf<Service, MethodTag<Method>>();
        static_assert(!selector.empty(), "no such message in this protocol");
        static_assert(std::is_same_v<std::tuple<A...>, typename Signature<decltype(Method)>::Arguments>,
                      "the arguments do not match the declaration");
        const std::array<Argument, sizeof...(A)> arguments = {Travels<A>::wrap(values)...};
        proxy_.send(selector, arguments);
    }

private:
    explicit Remote(Proxy proxy) : proxy_(std::move(proxy)) {}

    Proxy proxy_;
};

// A two-way link with one peer process. Both sides may export an object and call the other's.
//
// Ownership: shared. A resumed connection keeps itself alive until it is invalidated or lost for good, so
//            dropping the last reference of a live one neither closes it nor runs a handler.
// Threads:   every connection has a serial queue of its own; messages and both handlers run there, one at a
//            time, in arrival order. All functions may be called from any thread.
// Errors:    nothing that the peer does is fatal. A broken message, an unknown selector or a message to an
//            absent exported object invalidates the connection.
class Connection final : public std::enable_shared_from_this<Connection> {
public:
    struct Impl;

    // To a service registered by name (bootstrap namespace of the process, then its parents). Does not
    // connect before resume. If the peer goes away the connection is interrupted, stays usable, and looks the
    // name up again at the next message; where the name is gone it is invalidated.
    static std::shared_ptr<Connection> withMachServiceName(std::string_view name);
    // To a listener by its endpoint. If the peer goes away it is invalidated.
    static std::shared_ptr<Connection> withListenerEndpoint(const ListenerEndpoint& endpoint);

    explicit Connection(std::unique_ptr<Impl> impl);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // What the peer's object can be sent, and what the peer may send to ours.
    void setRemoteObjectInterface(const ProtocolDescription& protocol);
    void setExportedInterface(const ProtocolDescription& protocol);
    // Held strongly until the connection is invalidated. May be changed while the connection lives.
    void setExportedObject(ExportedObject object);
    // Run once, and last: afterwards both handlers and the exported object are dropped.
    void setInvalidationHandler(std::function<void()> handler);
    // Run each time the peer goes away but the connection can be used again (named services only).
    void setInterruptionHandler(std::function<void()> handler);

    // Starts sending and receiving; messages sent before are kept. Connections start suspended.
    void resume();
    // Ends the connection: asynchronous; nothing is sent or received afterwards.
    void invalidate();

    Proxy remoteObjectProxy();
    // Process identifier of the peer, 0 while there is none.
    std::int32_t processIdentifier() const;

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace xpc
