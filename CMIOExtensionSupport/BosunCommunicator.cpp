#include "CMIOExtensionSupport/BosunCommunicator.h"

#include "CMIOExtensionSupport/PrivilegedHelperInstallManager.h"
#include "PavoLoggingSupport/Logger.h"
#include "Platform/Foundation/NSBundle.h"
#include "Platform/Support/Fatal.h"

#include <utility>

namespace pavo {

namespace {

constexpr const char* kCommunicationErrorDomain = "CMIOExtensionSupport.BosunCommunicator.CommunicationError";

const Logger& logger()
{
    static const Logger instance(ns::Bundle::mainBundle(), "BosunCommunicator");
    return instance;
}

}  // namespace

ns::Error BosunCommunicator::makeError(CommunicationError error)
{
    return {kCommunicationErrorDomain, static_cast<std::int64_t>(error)};
}

BosunCommunicator::Result BosunCommunicator::create(bool installIfNeeded)
{
    const std::shared_ptr<BosunCommunicator> communicator(new BosunCommunicator);
    if (auto failure = communicator->open(installIfNeeded)) return *std::move(failure);
    return communicator;
}

BosunCommunicator::Result BosunCommunicator::perform(bool installIfNeeded, const Body& body)
{
    auto result = create(installIfNeeded);
    const auto* communicator = std::get_if<std::shared_ptr<BosunCommunicator>>(&result);
    if (!communicator) return result;
    if (auto failure = (*communicator)->withRemoteObject(true, body)) return *std::move(failure);
    return result;
}

bool BosunCommunicator::isHelperInstallationNeeded()
{
    const std::shared_ptr<BosunCommunicator> communicator(new BosunCommunicator);
    communicator->openConnection();
    communicator->installConnectionHandlers();
    if (communicator->error()) return true;
    logger().log("Bosun lives! Enjoy the connection.");
    return communicator->helperNeedsUpdate();
}

BosunCommunicator::~BosunCommunicator()
{
    logger().log("Closing Bosun connection for deinit");
    // Closing it is no loss, so nobody is to report one.
    connection_->setInvalidationHandler({});
    connection_->setInterruptionHandler({});
    connection_->invalidate();
}

std::optional<ns::Error> BosunCommunicator::open(bool installIfNeeded)
{
    openConnection();
    if (installIfNeeded && helperNeedsUpdate()) {
        logger().log("Installing new helper…");
        PrivilegedHelperInstallManager manager;
        if (auto failure = manager.installHelper()) return failure;
        // To the new helper.
        openConnection();
    }
    installConnectionHandlers();
    if (auto failure = error()) return failure;
    logger().log("Bosun lives! Enjoy the connection.");
    return std::nullopt;
}

void BosunCommunicator::openConnection()
{
    setError(std::nullopt);
    if (connection_) connection_->invalidate();
    connection_ = xpc::Connection::withMachServiceName(kHelperLabel, xpc::ConnectionOptions::privileged);
    connection_->setRemoteObjectInterface(xpc::describe<BosunServiceProtocol>());
    connection_->resume();
    logger().log("Opened a new Bosun connection!");
}

// The messages are written also when the communicator is gone.
void BosunCommunicator::installConnectionHandlers()
{
    connection_->setInvalidationHandler([weakSelf = weak_from_this()] {
        logger().log("Lost a Bosun connection to invalidation mid-run :/");
        if (const auto self = weakSelf.lock()) self->setError(makeError(CommunicationError::invalidated));
    });
    connection_->setInterruptionHandler([weakSelf = weak_from_this()] {
        logger().log("Lost a Bosun connection to interruption mid-run :/");
        if (const auto self = weakSelf.lock()) self->setError(makeError(CommunicationError::interrupted));
    });
}

bool BosunCommunicator::helperNeedsUpdate()
{
    logger().log("Checking Bosun privileged helper version…");
    const auto helper = Remote::cast(synchronousProxy());
    if (!helper) {
        logger().log("Couldn't perform initial Bosun communication!");
        return true;
    }
    // A helper that does not answer has version 0.
    std::uint64_t helperVersion = 0;
    helper->call<&BosunServiceProtocol::getCommunicationVersion>(
        [&helperVersion](std::uint64_t version) { helperVersion = version; });
    if (helperVersion == kHelperCommunicationVersion) return false;
    logger().log("Bosun version mismatch! (helper: %{public}u, me: %{public}u).", helperVersion,
                 kHelperCommunicationVersion);
    return true;
}

std::optional<ns::Error> BosunCommunicator::withRemoteObject(bool synchronous, const Body& body)
{
    const auto helper = Remote::cast(synchronous ? synchronousProxy() : connection_->remoteObjectProxy());
    require(helper.has_value(), "The helper's proxy does not conform to BosunServiceProtocol");
    body(*helper);
    return error();
}

// Its failures end up in `error`. The handler runs on the caller's thread, within a call of this object's
// proxy; a body that keeps the proxy longer than this object must find nobody.
xpc::Proxy BosunCommunicator::synchronousProxy()
{
    return connection_->synchronousRemoteObjectProxyWithErrorHandler(
        [weakSelf = weak_from_this()](const ns::Error& failure) {
            if (const auto self = weakSelf.lock()) self->setError(failure);
        });
}

}  // namespace pavo
