#pragma once

#include <string_view>

namespace pavo::test {

// While it lives, the C function of that name fails, as where the system has no room.
class FailingCall {
public:
    explicit FailingCall(std::string_view function);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;
};

}  // namespace pavo::test
