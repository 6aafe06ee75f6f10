#pragma once

#include "Tests/Support/BusService.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace pavo::test {

// Stands in for systemd on a PrivateSystemBus: takes the calls of its Manager interface that install and
// start a unit, and answers as it is told.
class StandInSystemd {
public:
    enum class JobEnd {
        afterReply,   // as usual
        beforeReply,  // of a job that was over at once
        never,        // the unit goes on starting
        death,        // systemd ends before the job
    };

    StandInSystemd();

    bool isReady() const { return service_.isReady(); }
    // Each call as it came: "LinkUnitFiles /a /b runtime=0 force=1", "RestartUnit x.service replace".
    std::vector<std::string> calls() const;
    // Whether a call came that allows systemd to prompt a person.
    bool wasPromptAllowed() const;

    // From now on: answers the method with an error; leaves it without an answer; ends when it is called;
    // answers it with a value that is not the one of its declaration.
    void refuse(const std::string& method, const std::string& errorName);
    void ignore(const std::string& method);
    void dieAt(const std::string& method);
    void garble(const std::string& method);
    // How the jobs of a unit end.
    void setJob(JobEnd end, const std::string& result = "done");

private:
    enum class Conduct { refuse, ignore, die, garble };
    struct Order {
        Conduct conduct;
        std::string errorName;
    };

    void order(const std::string& method, Order order);
    BusService::Outcome handle(sd_bus_message* call);
    BusService::Outcome obey(const Order& order, sd_bus_message* call) const;
    BusService::Outcome answer(const std::string& method, sd_bus_message* call);
    BusService::Outcome runJob(sd_bus_message* call, const std::string& unit);
    void removeJob(sd_bus* bus, const std::string& path, const std::string& unit) const;

    mutable std::mutex mutex_;
    std::vector<std::string> calls_;
    bool wasPromptAllowed_ = false;
    std::map<std::string, Order> orders_;
    JobEnd jobEnd_ = JobEnd::afterReply;
    std::string jobResult_ = "done";
    bool hasSubscriber_ = false;
    unsigned lastJob_ = 0;
    BusService service_;  // last: its thread uses all of the above
};

}  // namespace pavo::test
