#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Failure.h"
#include "Platform/Support/linux/SystemBus.h"

namespace pavo::servicemanagement {

// The systemd that runs the system's services, on the system's bus. Whether the caller may do what it asks
// for, systemd asks polkit by itself.
//
// Threads: one at a time. Every function blocks.
// Errors:  none is success; else the first thing that went wrong, as a code of the framework's.
class SystemdManager final {
public:
    using Result = std::optional<Failure>;

    SystemdManager() = default;
    SystemdManager(const SystemdManager&) = delete;
    SystemdManager& operator=(const SystemdManager&) = delete;

    // Before all else. From here on the ends of jobs are heard of.
    Result connect();
    // Makes systemd know unit files that lie outside its own folders, instead of others of their names.
    Result linkUnitFiles(const std::vector<std::string>& paths);
    // Has them started with the system, if they say where. `units` are names.
    Result enableUnitFiles(const std::vector<std::string>& units);
    // Reads all unit files again.
    Result reload();
    // Returns when the unit is up.
    Result start(const std::string& unit);
    Result restart(const std::string& unit);

private:
    using Fill = std::function<int(sd_bus_message* call)>;

    Result call(const char* method, const Fill& fill, BusMessage& reply);
    Result changeUnitFiles(const char* method, const std::vector<std::string>& files);
    Result runJob(const char* method, const std::string& unit);
    Result waitForJob(const std::string& job, const std::string& unit);
    static int jobRemoved(sd_bus_message* signal, void* manager, sd_bus_error* error);
    static int ownerChanged(sd_bus_message* signal, void* manager, sd_bus_error* error);

    Bus bus_;
    std::map<std::string, std::string> jobResults_;  // by the job's path
    bool hasGone_ = false;
};

}  // namespace pavo::servicemanagement
