#pragma once

#include "Tests/Support/BusService.h"
#include "Tests/Support/ChildProcess.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>

namespace pavo::test {

// The desktop's camera portal on the bus of a PipeWireSession, as browsers need it, with a user who says yes.
// That user is asked by an object of this process, which stands in for the desktop's dialog.
//
// The session's bus is also the system's for as long as the portal is there, so that neither it nor a browser
// speaks to services of the machine.
//
// Threads: the environment changes in the constructor and the destructor, so no other thread may run then.
class CameraPortal {
public:
    // False, with the reason, where a program that it consists of is not installed.
    static bool isAvailable(std::string* why);

    // `folder` is the session's. The portal knows of a camera when the constructor returns; isReady says
    // whether that worked.
    explicit CameraPortal(const std::string& folder);
    ~CameraPortal();
    CameraPortal(const CameraPortal&) = delete;
    CameraPortal& operator=(const CameraPortal&) = delete;

    bool isReady() const { return isReady_; }
    // How often the user was asked.
    int questions() const { return questions_; }

private:
    BusService::Outcome answer(sd_bus_message* call);

    std::optional<std::string> outerSystemBus_;
    std::atomic<int> questions_ = 0;
    std::unique_ptr<BusService> user_;
    ChildProcess permissions_;
    ChildProcess portal_;
    bool isReady_ = false;
};

}  // namespace pavo::test
