#include "Tests/Support/ProcessFacts.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <sstream>
#include <system_error>

namespace pavo::test {

namespace {

std::string folderOf(pid_t process)
{
    return "/proc/" + std::to_string(process);
}

std::uint64_t switchesOf(const std::filesystem::path& task)
{
    std::ifstream status(task / "status");
    const std::string key = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(key)) return std::stoull(line.substr(key.size()));
    return 0;
}

// The fields of its status from the third on: the name before them may hold anything, a bracket ends it.
std::string factsAfterName(pid_t process)
{
    std::string line;
    std::getline(std::ifstream(folderOf(process) + "/stat") >> std::ws, line);
    return line.substr(line.rfind(')') + 1);
}

// None where it has ended.
pid_t parentOf(pid_t process)
{
    std::istringstream words(factsAfterName(process));
    std::string state;
    pid_t parent = -1;
    words >> state >> parent;
    return parent;
}

// Sum of the named lines of the memory that it maps.
std::uint64_t memoryOf(pid_t process, std::initializer_list<const char*> keys)
{
    std::ifstream rollup(folderOf(process) + "/smaps_rollup");
    std::uint64_t kibibytes = 0;
    for (std::string line; std::getline(rollup, line);)
        for (const std::string key : keys)
            if (line.starts_with(key + ":")) kibibytes += std::stoull(line.substr(key.size() + 1));
    return kibibytes * 1024;
}

}  // namespace

std::size_t openDescriptorCount(pid_t process)
{
    std::error_code error;
    const std::filesystem::directory_iterator files(folderOf(process) + "/fd", error);
    return error ? 0 : static_cast<std::size_t>(std::distance(files, {}));
}

std::map<std::string, std::uint64_t> mappingsOf(pid_t process, const std::string& part)
{
    std::map<std::string, std::uint64_t> mappings;
    std::ifstream maps(folderOf(process) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find(part) == std::string::npos) continue;
        std::istringstream words(line);
        std::string range, access, offset, device;
        std::uint64_t inode = 0;
        words >> range >> access >> offset >> device >> inode;
        mappings.emplace(range, inode);
    }
    return mappings;
}

std::uint64_t privateMemory(pid_t process)
{
    return memoryOf(process, {"Private_Clean", "Private_Dirty"});
}

std::uint64_t residentMemory(pid_t process)
{
    return memoryOf(process, {"Rss"});
}

std::uint64_t proportionalMemory(pid_t process)
{
    return memoryOf(process, {"Pss"});
}

std::uint64_t processorTicks(pid_t process)
{
    std::istringstream words(factsAfterName(process));
    // The first is the third of all, the times are the fourteenth and fifteenth.
    std::string skipped;
    for (int field = 3; field < 14; ++field)
        words >> skipped;
    std::uint64_t user = 0, system = 0;
    words >> user >> system;
    return user + system;
}

Switches voluntarySwitches(pid_t process)
{
    std::map<pid_t, std::uint64_t> switches;
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator(folderOf(process) + "/task", error))
        switches.emplace(std::stoi(task.path().filename().string()), switchesOf(task.path()));
    return switches;
}

std::uint64_t wakeUpsBetween(const Switches& before, const Switches& after)
{
    std::uint64_t count = 0;
    for (const auto& [thread, switches] : after) {
        const auto known = before.find(thread);
        count += switches - (known == before.end() ? 0 : known->second);
    }
    return count;
}

std::vector<pid_t> descendantsOf(pid_t process)
{
    std::multimap<pid_t, pid_t> children;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        const pid_t child = std::stoi(name);
        children.emplace(parentOf(child), child);
    }
    std::vector<pid_t> found = {process};
    for (std::size_t next = 0; next < found.size(); ++next) {
        const auto [begin, end] = children.equal_range(found[next]);
        std::transform(begin, end, std::back_inserter(found), [](const auto& pair) { return pair.second; });
    }
    found.erase(found.begin());
    return found;
}

}  // namespace pavo::test
