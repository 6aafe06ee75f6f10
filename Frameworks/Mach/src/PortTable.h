#pragma once

#include <mach/port.h>
#include <sys/types.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "BootstrapNamespace.h"
#include "Platform/Support/UniqueFd.h"

namespace pavo::mach {

// The receive rights of this process, and the names that they are registered under.
//
// Ownership: owns the listening descriptors, the lock of each registration, and the files of both. What is
//            left at the end of the process is removed from the disk then.
// Threads:   thread-safe.
// Errors:    codes of <mach/kern_return.h> and <servers/bootstrap.h>.
class PortTable final {
public:
    // Never destroyed: other objects of the process may let go of their ports until the very end.
    static PortTable& shared();

    kern_return_t allocate(mach_port_name_t& name);
    // False where the port is not one of ours; else its descriptor is closed and its files are gone.
    bool deallocate(mach_port_name_t name);
    // Where the port's socket is; empty where the port is not one of ours.
    std::string pathOf(mach_port_name_t name);
    // The name that the port was registered under last; empty where it has none.
    std::string nameOf(mach_port_name_t name);
    kern_return_t registerName(Namespace where, const std::string& name, mach_port_t port);

private:
    struct Registration {
        std::string folder;
        std::string name;
        UniqueFd lock;  // held as long as the name is active
    };
    struct Right {
        pid_t process;  // whose files they are: a forked child has a copy of the table
        UniqueFd listener;
        std::string path;
        std::vector<Registration> registrations;
    };

    PortTable();
    static void withdraw(Right& right);
    void removeFiles();

    std::mutex mutex_;
    std::map<mach_port_name_t, Right> rights_;
    std::set<std::pair<pid_t, std::string>> folders_;  // the process namespaces that were made, and by whom
    unsigned int lastNumber_ = 0;
};

}  // namespace pavo::mach
