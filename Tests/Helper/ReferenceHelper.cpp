// Plays the privileged helper for tests, in the system's namespace:
//
//     ReferenceHelper <behaviour> [<version>]
//
//     sound        answers what it is asked, with that version (5 where none is given)
//     slow         answers half a second later
//     silent       takes every call and never answers
//     dying        ends in the middle of the first call
//     twice        answers every call twice, the second time with another version
//     unreading    accepts its peers and reads nothing that they send
//     unaccepting  does not even accept them
//
// Writes "ready" when it has its name, then a line for each call.

#include "CMIOExtensionSupport/BosunServiceProtocol.h"
#include "Platform/Support/Dispatch.h"
#include "Platform/XPC/XPCListener.h"
#include "Tests/Platform/XPC/RawPeer.h"

#include <poll.h>
#include <servers/bootstrap.h>
#include <servers/bootstrap_private.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr std::int64_t kSlowNanoseconds = 500'000'000;

struct Options {
    std::string behaviour;
    std::uint64_t version = pavo::kHelperCommunicationVersion;
};

void say(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

class Helper final : public pavo::BosunServiceProtocol {
public:
    explicit Helper(Options options) : options_(std::move(options)) {}

    void getCommunicationVersion(xpc::Reply<std::uint64_t> reply) override
    {
        take("getCommunicationVersion", [reply, version = options_.version] { reply(version); });
    }
    void ping() override { take("ping", {}); }
    void launchStudioIfNeeded() override { take("launchStudioIfNeeded", {}); }
    void doInstall(const std::string& stepIdentifier, const ns::Data& encodedContext, const ns::Data& state,
                   xpc::Reply<std::optional<ns::Data>, std::optional<ns::Error>> reply) override
    {
        take("doInstall " + stepIdentifier + " " + std::to_string(state.size()),
             [reply, encodedContext] { reply(encodedContext, std::nullopt); });
    }
    void doComponentUninstall(xpc::Reply<std::optional<ns::Error>> reply) override
    {
        take("doComponentUninstall", [reply] { reply(ns::Error{"NSPOSIXErrorDomain", 2}); });
    }
    void coreadiosd(xpc::Reply<std::optional<ns::Error>> reply) override
    {
        take("coreadiosd", [reply] { reply(std::nullopt); });
    }
    void checkCMIOExtensionRegistered(xpc::Reply<bool> reply) override
    {
        take("checkCMIOExtensionRegistered", [reply] { reply(true); });
    }

private:
    void take(const std::string& call, const std::function<void()>& answer)
    {
        say(call);
        if (options_.behaviour == "dying") ::_exit(0);
        if (!answer) return;
        if (options_.behaviour == "silent") {
            const std::lock_guard lock(mutex_);
            unanswered_.push_back(answer);
        } else if (options_.behaviour == "slow") {
            dispatch::after(dispatch_time(DISPATCH_TIME_NOW, kSlowNanoseconds),
                            dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), answer);
        } else {
            answer();
        }
    }

    const Options options_;
    std::mutex mutex_;
    std::vector<std::function<void()>> unanswered_;  // kept: a reply that goes would be an answer, too
};

class House final : public xpc::ListenerDelegate {
public:
    explicit House(Options options)
        : helper_(std::make_shared<Helper>(options)),
          reads_(options.behaviour != "unreading")
    {}

    bool listenerShouldAcceptNewConnection(xpc::Listener&,
                                           const std::shared_ptr<xpc::Connection>& newConnection) override
    {
        newConnection->setExportedInterface(xpc::describe<pavo::BosunServiceProtocol>());
        newConnection->setExportedObject(xpc::exportObject<pavo::BosunServiceProtocol>(helper_));
        if (reads_)
            newConnection->resume();
        else
            unread_.push_back(newConnection);
        return true;
    }

private:
    const std::shared_ptr<Helper> helper_;
    const bool reads_;
    std::vector<std::shared_ptr<xpc::Connection>> unread_;
};

bool takeName(xpc::Listener& listener)
{
    name_t name{};
    std::copy(pavo::kHelperLabel.begin(), pavo::kHelperLabel.end(), name);
    const auto endpoint = listener.endpoint();
    return bootstrap_register(bootstrap_system_port(), name,
                              xpc::ListenerEndpoint::machPort(endpoint.object())) == BOOTSTRAP_SUCCESS;
}

// By hand, because no decent side of a connection can answer twice. Serves one peer after the other.
[[noreturn]] void answerTwice(xpc::Listener& listener, std::uint64_t version)
{
    const auto endpoint = listener.endpoint();
    const auto port = static_cast<int>(xpc::ListenerEndpoint::machPort(endpoint.object()));
    for (;;) {
        pollfd waiting{port, POLLIN, 0};
        ::poll(&waiting, 1, -1);
        pavo::test::RawPeer peer(pavo::UniqueFd(::accept4(port, nullptr, nullptr, SOCK_CLOEXEC)));
        if (!peer.answerAuthentication()) continue;
        for (auto call = peer.receiveMessage(); call.size() > 16; call = peer.receiveMessage()) {
            const auto serial = pavo::test::serialOf(call);
            if (call.find("getCommunicationVersionWithReply_") == std::string::npos) {
                say("another call");
                continue;
            }
            say("getCommunicationVersion");
            peer.send(pavo::test::answerTo(serial, "t", pavo::test::little(version)).bytes() +
                      pavo::test::answerTo(serial, "t", pavo::test::little(version + 1)).bytes());
        }
    }
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount < 2) return 2;
    Options options{arguments[1]};
    if (argumentCount > 2) options.version = std::strtoull(arguments[2], nullptr, 10);
    const auto listener = xpc::Listener::anonymousListener();
    const auto house = std::make_shared<House>(options);
    listener->setDelegate(house);
    const bool isByHand = options.behaviour == "twice";
    if (!isByHand && options.behaviour != "unaccepting") listener->resume();
    if (!takeName(*listener)) return 1;
    say("ready");
    if (isByHand) answerTwice(*listener, options.version);
    for (;;)
        ::pause();
}
