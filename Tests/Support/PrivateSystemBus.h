#pragma once

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <optional>
#include <string>

namespace pavo::test {

// A message bus of a test's own in place of the system's: a real daemon in a private folder, to which
// DBUS_SYSTEM_BUS_ADDRESS points. Nothing on it but what the test puts there, and everybody may do
// everything.
//
// Threads: the environment changes in the constructor and the destructor, so no other thread may run then.
class PrivateSystemBus {
public:
    // False, with the reason, where the daemon is not installed.
    static bool isAvailable(std::string* why);

    // Takes connections when it returns; isReady says whether that worked.
    PrivateSystemBus();
    ~PrivateSystemBus();
    PrivateSystemBus(const PrivateSystemBus&) = delete;
    PrivateSystemBus& operator=(const PrivateSystemBus&) = delete;

    bool isReady() const { return isReady_; }
    // Ends the daemon as a crash would.
    void kill();

private:
    const TemporaryFolder folder_;
    std::optional<std::string> outerAddress_;
    ChildProcess daemon_;
    bool isReady_ = false;
};

}  // namespace pavo::test
