#include "Tools/Doctor/LinuxSystem.h"

#include "Tools/ChildProcess.h"
#include "Tools/Doctor/LocalSocket.h"
#include "Tools/StatusClient.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <pipewire/pipewire.h>
#include <poll.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace pavo::tools {
namespace {

// More than any file has that is read here.
constexpr std::size_t kLargestFile = 4 << 20;

std::string folderOf(pid_t pid)
{
    return "/proc/" + std::to_string(pid) + "/";
}

std::vector<std::string> splitAtNul(const std::string& text)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, '\0');)
        parts.push_back(part);
    return parts;
}

bool isNumber(const std::string& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

uid_t LinuxSystem::user() const
{
    return ::geteuid();
}

std::string LinuxSystem::version() const
{
    return PAVO_VERSION;
}

std::string LinuxSystem::bundlePath() const
{
    return bundlePath_;
}

std::optional<std::string> LinuxSystem::environment(const std::string& name) const
{
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

std::optional<FileStatus> LinuxSystem::statusOf(const std::string& path) const
{
    struct stat found{};
    if (::stat(path.c_str(), &found) != 0) return std::nullopt;
    FileStatus status;
    if (S_ISREG(found.st_mode)) status.kind = FileStatus::Kind::file;
    if (S_ISDIR(found.st_mode)) status.kind = FileStatus::Kind::folder;
    if (S_ISSOCK(found.st_mode)) status.kind = FileStatus::Kind::socket;
    status.owner = found.st_uid;
    status.permissions = found.st_mode & 07777;
    return status;
}

bool LinuxSystem::isWritable(const std::string& path) const
{
    return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
}

std::optional<std::string> LinuxSystem::readFile(const std::string& path) const
{
    // Nothing that a name may lead to makes opening wait.
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat status{};
    if (!file.isValid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    std::string content;
    std::array<char, 65536> part;
    while (content.size() < kLargestFile) {
        const ssize_t count = ::read(file.get(), part.data(), part.size());
        if (count < 0) return std::nullopt;
        if (count == 0) break;
        content.append(part.data(), static_cast<std::size_t>(count));
    }
    return content;
}

std::optional<std::string> LinuxSystem::readLink(const std::string& path) const
{
    std::error_code error;
    const auto target = std::filesystem::read_symlink(path, error);
    return error ? std::nullopt : std::optional(target.string());
}

std::vector<std::string> LinuxSystem::list(const std::string& folder) const
{
    std::vector<std::string> names;
    std::error_code error;
    for (std::filesystem::directory_iterator each(folder, error), end; !error && each != end;
         each.increment(error))
        names.push_back(each->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

bool LinuxSystem::isInstalled(const std::string& program) const
{
    return isProgramInstalled(program);
}

bool LinuxSystem::answers(const std::string& path) const
{
    return connectTo(path).isValid() || errno == EAGAIN;
}

std::vector<Process> LinuxSystem::processes() const
{
    std::vector<Process> processes;
    for (const std::string& name : list("/proc"))
        if (isNumber(name))
            if (auto process = processIn("/proc/" + name + "/")) {
                process->pid = static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10));
                processes.push_back(std::move(*process));
            }
    return processes;
}

std::optional<Process> LinuxSystem::processIn(const std::string& folder) const
{
    Process process;
    process.arguments = splitAtNul(readFile(folder + "cmdline").value_or(""));
    const std::string status = readFile(folder + "status").value_or("");
    const auto state = status.find("\nState:\t");
    const auto owner = status.find("\nUid:\t");
    // The kernel's own, or gone meanwhile.
    if (process.arguments.empty() || state == std::string::npos || owner == std::string::npos)
        return std::nullopt;
    process.state = status[state + std::strlen("\nState:\t")];
    // The second number is whom it acts for. The folder's owner may be root though the process is not root's.
    std::istringstream users(status.substr(owner + std::strlen("\nUid:\t")));
    uid_t real = 0;
    users >> real >> process.owner;
    // Programs that write over their arguments leave them as one.
    const std::string& first = process.arguments.front();
    std::string file = readLink(folder + "exe").value_or(first.substr(0, first.find(' ')));
    constexpr std::string_view kReplaced = " (deleted)";
    process.isReplaced = file.ends_with(kReplaced);
    if (process.isReplaced) file.resize(file.size() - kReplaced.size());
    process.program = file.substr(file.rfind('/') + 1);
    return process;
}

std::optional<std::map<std::string, std::string>> LinuxSystem::environmentOf(pid_t pid) const
{
    const auto text = readFile(folderOf(pid) + "environ");
    if (!text) return std::nullopt;
    std::map<std::string, std::string> environment;
    for (const std::string& entry : splitAtNul(*text))
        if (const auto sign = entry.find('='); sign != std::string::npos)
            environment.emplace(entry.substr(0, sign), entry.substr(sign + 1));
    return environment;
}

std::optional<DescriptorUse> LinuxSystem::descriptorsOf(pid_t pid) const
{
    const auto limits = readFile(folderOf(pid) + "limits");
    const auto open = list(folderOf(pid) + "fd");
    const auto line = limits ? limits->find("Max open files") : std::string::npos;
    if (line == std::string::npos || open.empty()) return std::nullopt;
    DescriptorUse use;
    use.open = open.size();
    std::istringstream words(limits->substr(line + std::strlen("Max open files")));
    std::string limit;
    words >> limit;
    use.limit = isNumber(limit) ? std::stoull(limit) : std::numeric_limits<std::uint64_t>::max();
    return use;
}

PipeWireAnswer LinuxSystem::pipeWire(const std::string& remote) const
{
    const auto limit = patience_.left();
    if (limit.count() == 0) return {PipeWireAnswer::Kind::silent, "no time was left to ask", {}};
    // Where PipeWire's own clients look.
    std::vector<std::string> sockets = {remote};
    if (!remote.starts_with('/')) {
        sockets.clear();
        for (const char* name : {"PIPEWIRE_RUNTIME_DIR", "XDG_RUNTIME_DIR"})
            if (const auto folder = environment(name)) sockets.push_back(*folder + "/" + remote);
        sockets.push_back("/run/pipewire/" + remote);
    }
    PipeWireAnswer first{PipeWireAnswer::Kind::absent, "there is no runtime folder", {}};
    for (const auto& socket : sockets) {
        auto answer = readPipeWire(socket, limit);
        if (answer.kind != PipeWireAnswer::Kind::absent) return answer;
        if (&socket == &sockets.front()) first = std::move(answer);
    }
    return first;
}

std::string LinuxSystem::pipeWireLibraryVersion() const
{
    return pw_get_library_version();
}

Result<CameraStatus> LinuxSystem::cameraStatus() const
{
    const auto limit = patience_.left();
    if (limit.count() == 0) return Problem{"no time was left to ask"};
    return askForStatus(limit);
}

Result<std::optional<UserService>> LinuxSystem::cameraService() const
{
    return bus_.service("pavo-camera.service");
}

Result<CameraPortal> LinuxSystem::cameraPortal() const
{
    return bus_.cameraPortal();
}

Result<std::map<std::string, std::string>> LinuxSystem::cameraPermissions() const
{
    return bus_.cameraPermissions();
}

void LinuxSystem::pause() const
{
    constexpr std::chrono::milliseconds kPause(300);
    ::poll(nullptr, 0, static_cast<int>(std::min(kPause, patience_.left()).count()));
}

}  // namespace pavo::tools
