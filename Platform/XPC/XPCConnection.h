#pragma once

#include "Platform/Foundation/NSError.h"
#include "Platform/XPC/XPCListenerEndpoint.h"
#include "Platform/XPC/XPCProtocol.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace xpc {

class Connection;

// The peer's exported object, as it is seen from here. Keeps the connection. Made anew by each function of
// Connection that gives one.
//
// An asynchronous proxy never waits, and its failures are silent. A synchronous one waits for the replies of
// calls that have one, however long the peer takes; a message without a reply goes out as soon as the peer's
// service has been found, which depends on no peer. Its failures are told to its error handler, on the
// caller's thread, before send or call returns. Not from the connection's own queue: replies would wait for
// it.
class Proxy final {
public:
    using ErrorHandler = std::function<void(const ns::Error&)>;

    // Asynchronous.
    Proxy(std::shared_ptr<Connection> connection, const ProtocolDescription* protocol)
        : connection_(std::move(connection)),
          protocol_(protocol)
    {}
    // Synchronous.
    Proxy(std::shared_ptr<Connection> connection, const ProtocolDescription* protocol,
          ErrorHandler errorHandler)
        : connection_(std::move(connection)),
          protocol_(protocol),
          isSynchronous_(true),
          errorHandler_(std::move(errorHandler))
    {}

    bool conformsTo(const ProtocolDescription& protocol) const
    {
        return protocol_ && protocol_->conformsTo(protocol);
    }
    // For methods without a reply.
    void send(std::string_view selector, std::span<const Argument> arguments) const;
    // For methods with one. `reply` runs at most once, and is gone when it will not run any more.
    void call(std::string_view selector, std::span<const Argument> arguments, ReplySink reply) const;

private:
    std::shared_ptr<Connection> connection_;
    const ProtocolDescription* protocol_;
    bool isSynchronous_ = false;
    ErrorHandler errorHandler_;
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
        static_assert(std::is_void_v<typename Signature<decltype(Method)>::Reply>, "the method has a reply");
        proxy_.send(checkedSelector<Method, A...>(), wrap(values...));
    }
    // `reply` takes what the method's reply carries: on this thread before this returns where the proxy is
    // synchronous, else on the connection's queue.
    template <auto Method, typename Handler, typename... A>
    void call(Handler reply, const A&... values) const
    {
        using Values = typename Signature<decltype(Method)>::Reply::Values;
        proxy_.call(checkedSelector<Method, A...>(), wrap(values...),
                    [reply = std::move(reply)](std::span<const Argument> answer) mutable {
                        std::apply(reply, unwrapAll<Values>(answer));
                    });
    }

private:
    explicit Remote(Proxy proxy) : proxy_(std::move(proxy)) {}

    template <auto Method, typename... A>
    static constexpr std::string_view checkedSelector()
    {
        constexpr std::string_view selector = selectorOf<Service, MethodTag<Method>>();
        static_assert(!selector.empty(), "no such message in this protocol");
        static_assert(std::is_same_v<std::tuple<A...>, typename Signature<decltype(Method)>::Arguments>,
                      "the arguments do not match the declaration");
        return selector;
    }
    template <typename... A>
    static std::array<Argument, sizeof...(A)> wrap(const A&... values)
    {
        return {Travels<A>::wrap(values)...};
    }

    Proxy proxy_;
};

// Where the name of a service is looked up.
enum class ConnectionOptions : std::uint64_t {
    none = 0,             // in the namespace of the process, then in its parents
    privileged = 0x1000,  // in the system's namespace only: a service that the administrator has installed
};

// A two-way link with one peer process. Both sides may export an object and call the other's.
//
// Ownership: shared. A resumed connection keeps itself alive until it is invalidated or lost for good, so
//            dropping the last reference of a live one neither closes it nor runs a handler.
// Threads:   every connection has a serial queue of its own; messages and both handlers run there, one at a
//            time, in arrival order. All functions may be called from any thread.
// Errors:    nothing that the peer does is fatal. A broken message, an unknown selector or a message to an
//            absent exported object invalidates the connection. An answer that is not the declared reply
//            fails its call only.
class Connection final : public std::enable_shared_from_this<Connection> {
public:
    struct Impl;

    // To a service registered by name. Does not connect before resume. If the peer goes away the connection
    // is interrupted, stays usable, and looks the name up again at the next message; where the name is gone
    // it is invalidated. Calls that wait for a reply then fail.
    static std::shared_ptr<Connection>
    withMachServiceName(std::string_view name, ConnectionOptions options = ConnectionOptions::none);
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
    // Ends the connection: asynchronous; nothing is received afterwards, and nothing sent but the messages
    // from before, as far as the peer takes them. Calls that wait for a reply fail.
    void invalidate();

    Proxy remoteObjectProxy();
    Proxy synchronousRemoteObjectProxyWithErrorHandler(Proxy::ErrorHandler errorHandler);
    // Process identifier of the peer, 0 while there is none.
    std::int32_t processIdentifier() const;

    Impl& impl() { return *impl_; }

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace xpc
