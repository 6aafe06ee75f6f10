#include "Platform/CoreMediaIO/linux/DriverCycle.h"

namespace cmio {

bool DriverCycle::process()
{
    if (!isFinishedForClients_) return true;
    const bool isInTime = state_ == State::finished;
    state_ = isInTime ? State::starting : State::startingLate;
    return isInTime;
}

bool DriverCycle::triggerDone()
{
    switch (state_.load()) {
    case State::starting:
    case State::recovering:
        state_ = State::running;
        return false;
    case State::startingLate:
        state_ = State::recovering;
        return true;
    case State::finished:
    case State::running:
        break;
    }
    state_ = State::finished;
    return false;
}

}  // namespace cmio
