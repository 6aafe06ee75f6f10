#pragma once

#include "CMIOExtensionSupport/BosunServiceProtocol.h"
#include "Platform/Foundation/NSError.h"
#include "Platform/Support/Synchronized.h"
#include "Platform/XPC/XPCConnection.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <variant>

namespace pavo {

// One short exchange with the privileged helper: made, used for a call or a few, and let go.
//
// Ownership: shared, because the handlers of its connection know it weakly. Closes the connection at the end.
// Threads:   used on its caller's thread, which waits for the replies of synchronous calls. The connection's
//            handlers run on its own queue and only write the error: the last one to write it counts.
// Errors:    what the platform would throw is returned. A failed communicator does not recover: make another.
class BosunCommunicator final : public std::enable_shared_from_this<BosunCommunicator> {
public:
    enum class CommunicationError : std::int64_t {
        invalidated = 0,
        interrupted = 1,
    };
    // As the platform sees it.
    static ns::Error makeError(CommunicationError error);

    using Remote = xpc::Remote<BosunServiceProtocol>;
    using Body = std::function<void(const Remote&)>;
    using Result = std::variant<std::shared_ptr<BosunCommunicator>, ns::Error>;

    // With `installIfNeeded` it asks the helper for its version and installs another helper where that is not
    // ours, which may show a prompt; without it, it only opens the connection.
    static Result create(bool installIfNeeded);
    // Makes a communicator and runs `body` with its synchronous proxy.
    static Result perform(bool installIfNeeded, const Body& body);
    // Whether the helper is missing or speaks another version.
    static bool isHelperInstallationNeeded();

    ~BosunCommunicator();
    BosunCommunicator(const BosunCommunicator&) = delete;
    BosunCommunicator& operator=(const BosunCommunicator&) = delete;

    // Runs `body` with a proxy of the helper. The error is the connection's last one, if it has failed by
    // then.
    std::optional<ns::Error> withRemoteObject(bool synchronous, const Body& body);

    // Why the connection failed, if it has.
    std::optional<ns::Error> error() const { return error_.load(); }
    void setError(std::optional<ns::Error> error) { error_.store(std::move(error)); }

private:
    BosunCommunicator() = default;

    std::optional<ns::Error> open(bool installIfNeeded);
    void openConnection();
    void installConnectionHandlers();
    bool helperNeedsUpdate();
    xpc::Proxy synchronousProxy();

    std::shared_ptr<xpc::Connection> connection_;
    Synchronized<std::optional<ns::Error>> error_;
};

}  // namespace pavo
