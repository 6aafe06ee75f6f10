#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What the kernel knows of another process.
namespace pavo::test {

std::size_t openDescriptorCount(pid_t process);

// Where files whose path contains `part` are mapped: address range to inode.
std::map<std::string, std::uint64_t> mappingsOf(pid_t process, const std::string& part);

// What it keeps of memory for itself alone, and how much it has in all, in bytes.
std::uint64_t privateMemory(pid_t process);
std::uint64_t residentMemory(pid_t process);
// The same, with what it shares divided among those who share it.
std::uint64_t proportionalMemory(pid_t process);

// Processor time that it has used, in user mode and in the kernel, in parts of a second as the kernel counts
// them (1 / sysconf(_SC_CLK_TCK)).
std::uint64_t processorTicks(pid_t process);

// How often each of its threads has gone to sleep by itself, which is how often it was woken. By thread id.
using Switches = std::map<pid_t, std::uint64_t>;
Switches voluntarySwitches(pid_t process);

// Of threads that are there at the end: one that has come meanwhile counts from its beginning.
std::uint64_t wakeUpsBetween(const Switches& before, const Switches& after);

// The processes that it started, those that these started, and so on: each after its parent.
std::vector<pid_t> descendantsOf(pid_t process);

}  // namespace pavo::test
