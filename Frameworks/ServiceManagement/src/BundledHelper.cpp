#include "BundledHelper.h"

#include <ServiceManagement/ServiceManagement.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "MainBundle.h"
#include "Platform/Support/linux/TrustedPath.h"
#include "UnitFile.h"

namespace pavo::servicemanagement {

namespace {

constexpr const char* kFolder = "/Contents/Library/LaunchServices/";
// systemd's own limit is 255 for a unit's name.
constexpr std::size_t kMaxLabelLength = 240;
// A unit has a few hundred bytes.
constexpr std::size_t kMaxUnitSize = 64 * 1024;

// Whether the label is the name of a file and, with an ending, that of a unit which is no template.
bool isUsableLabel(const std::string& label)
{
    return !label.empty() && label.size() <= kMaxLabelLength && label.front() != '.' &&
           std::all_of(label.begin(), label.end(), [](unsigned char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                      c == '.' || c == '-' || c == '_';
           });
}

std::string reasonText(int reason)
{
    return std::strerror(reason);  // NOLINT(concurrency-mt-unsafe): glibc's is per thread
}

// A file of the helper: what was opened, or why not. `codeIfMissing` says which of the files it is.
struct HelperFile {
    UniqueFd descriptor;
    std::optional<Failure> failure;
    bool isMissing = false;
};

HelperFile openFile(const std::string& path, CFIndex codeIfMissing)
{
    HelperFile file{openTrusted(path, TrustedOwner::root), std::nullopt};
    file.isMissing = !file.descriptor.isValid() && errno == ENOENT;
    if (file.descriptor.isValid()) {
        struct stat status{};
        if (fstat(file.descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode))
            file.failure = {codeIfMissing, path + " is no regular file"};
    } else if (errno == EPERM) {
        file.failure = {kSMErrorInvalidSignature, "Somebody other than root could change " + path};
    } else {
        file.failure = {codeIfMissing, path + ": " + reasonText(errno)};
    }
    return file;
}

// The content of the file that was looked at, whatever lies under its path by now.
std::string contentOf(const UniqueFd& file)
{
    const auto path = "/proc/self/fd/" + std::to_string(file.get());
    const UniqueFd readable(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string content(kMaxUnitSize, '\0');
    const auto size = readable.isValid() ? read(readable.get(), content.data(), content.size()) : -1;
    content.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return content;
}

}  // namespace

std::variant<BundledHelper, Failure> findBundledHelper(const std::string& label)
{
    if (!isUsableLabel(label))
        return Failure{kSMErrorToolNotValid, "No helper can be named \"" + label + "\""};
    const auto program = mainBundlePath() + kFolder + label;

    const auto tool = openFile(program, kSMErrorToolNotValid);
    if (tool.failure) return *tool.failure;
    struct stat status{};
    if (fstat(tool.descriptor.get(), &status) != 0 || (status.st_mode & S_IXUSR) == 0)
        return Failure{kSMErrorToolNotValid, program + " is no program"};

    BundledHelper helper{label + ".service", std::nullopt, {program + ".service"}};
    const auto unit = openFile(helper.unitFiles.front(), kSMErrorJobPlistNotFound);
    if (unit.failure) return *unit.failure;
    // Else another program would run than the one that was looked at.
    if (programOfUnit(contentOf(unit.descriptor)) != program)
        return Failure{kSMErrorInvalidPlist, helper.unitFiles.front() + " does not start " + program};

    const auto socket = openFile(program + ".socket", kSMErrorJobPlistNotFound);
    if (socket.failure && !socket.isMissing) return *socket.failure;
    if (!socket.isMissing) {
        helper.socket = label + ".socket";
        helper.unitFiles.push_back(program + ".socket");
    }
    return helper;
}

}  // namespace pavo::servicemanagement
