// Reads the sources and checks what a compiler does not: who may include what, and the few rules of writing
// that a reviewer should not have to repeat. Every test names each offending line.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct SourceFile {
    std::string path;  // from the project's root
    std::vector<std::string> lines;
};

const fs::path& root()
{
    static const fs::path folder(PAVO_SOURCE_FOLDER);
    return folder;
}

bool isCode(const fs::path& path)
{
    static const std::set<std::string> endings = {".h", ".c", ".cpp", ".mm"};
    return endings.contains(path.extension().string());
}

bool isBuildFile(const fs::path& path)
{
    return path.filename() == "CMakeLists.txt" || path.extension() == ".cmake" ||
           path.string().ends_with(".cmake.in");
}

SourceFile sourceFile(const fs::path& path)
{
    SourceFile file{fs::relative(path, root()).string(), {}};
    std::ifstream stream(path);
    for (std::string line; std::getline(stream, line);)
        file.lines.push_back(line);
    return file;
}

std::vector<SourceFile> filesUnder(const std::vector<std::string>& folders,
                                   const std::function<bool(const fs::path&)>& wanted = isCode)
{
    std::vector<SourceFile> files;
    for (const auto& folder : folders) {
        if (!fs::exists(root() / folder)) continue;
        for (const auto& entry : fs::recursive_directory_iterator(root() / folder))
            if (entry.is_regular_file() && wanted(entry.path())) files.push_back(sourceFile(entry.path()));
    }
    return files;
}

const std::vector<std::string>& productFolders()
{
    static const std::vector<std::string> folders = {"CMIOExtensionSupport", "PavoLoggingSupport"};
    return folders;
}

const std::vector<std::string>& codeFolders()
{
    static const std::vector<std::string> folders = {"CMIOExtensionSupport",
                                                     "PavoLoggingSupport",
                                                     "Platform",
                                                     "Frameworks",
                                                     "Bundle",
                                                     "Examples",
                                                     "Producer",
                                                     "Stub",
                                                     "Tools",
                                                     "Tests",
                                                     "Resources",
                                                     "Benchmarks"};
    return folders;
}

// The code, and what describes its build.
std::vector<SourceFile> codeAndBuildFiles()
{
    auto folders = codeFolders();
    folders.insert(folders.end(), {"CMake", "MacOS", "Packaging"});
    auto files = filesUnder(folders, [](const fs::path& path) { return isCode(path) || isBuildFile(path); });
    files.push_back(sourceFile(root() / "CMakeLists.txt"));
    return files;
}

// Reports each line of the files that `isBad` says yes to.
void expectNoLine(const std::vector<SourceFile>& files, const std::function<bool(const std::string&)>& isBad,
                  std::string_view rule)
{
    ASSERT_FALSE(files.empty());
    for (const auto& file : files)
        for (std::size_t i = 0; i < file.lines.size(); ++i)
            EXPECT_FALSE(isBad(file.lines[i]))
                << file.path << ":" << i + 1 << ": " << rule << ": " << file.lines[i];
}

std::string includedName(const std::string& line)
{
    static const std::regex include(R"(^\s*#\s*include\s*[<"]([^>"]+)[>"])");
    std::smatch match;
    return std::regex_search(line, match, include) ? match[1].str() : std::string();
}

bool startsWithAny(const std::string& text, const std::vector<std::string>& beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&text](const std::string& beginning) { return text.starts_with(beginning); });
}

TEST(Tidy, ProductCodeKnowsNoPlatform)
{
    static const std::regex conditional(R"(^\s*#\s*(if|ifdef|ifndef|elif|else)\b)");
    // A public header that C may include too needs the language's own question, and no other.
    expectNoLine(
        filesUnder(productFolders()),
        [](const std::string& line) {
            return std::regex_search(line, conditional) && line.find("__cplusplus") == std::string::npos;
        },
        "product code is the same on every platform");
}

TEST(Tidy, ProductCodeIncludesOnlyFacesFrameworksAndTheLanguage)
{
    static const std::set<std::string> language = {"algorithm",
                                                   "array",
                                                   "atomic",
                                                   "charconv",
                                                   "cmath",
                                                   "concepts",
                                                   "cstddef",
                                                   "cstdint",
                                                   "cstdio",
                                                   "cstdlib",
                                                   "cstring",
                                                   "functional",
                                                   "initializer_list",
                                                   "iterator",
                                                   "limits",
                                                   "map",
                                                   "memory",
                                                   "new",
                                                   "optional",
                                                   "set",
                                                   "source_location",
                                                   "span",
                                                   "string",
                                                   "string_view",
                                                   "tuple",
                                                   "type_traits",
                                                   "unordered_map",
                                                   "unordered_set",
                                                   "utility",
                                                   "variant",
                                                   "vector",
                                                   "cinttypes",
                                                   "cstdarg"};
    static const std::vector<std::string> allowed = {"CMIOExtensionSupport/",
                                                     "PavoLoggingSupport/",
                                                     "Platform/Support/",
                                                     "Platform/Foundation/",
                                                     "Platform/CoreImage/",
                                                     "Platform/CoreMediaIO/",
                                                     "Platform/XPC/",
                                                     "CoreFoundation/CoreFoundation.h",
                                                     "CoreGraphics/CoreGraphics.h",
                                                     "CoreMedia/CoreMedia.h",
                                                     "CoreVideo/CoreVideo.h",
                                                     "IOSurface/IOSurface.h",
                                                     "Security/Security.h",
                                                     "ServiceManagement/ServiceManagement.h",
                                                     "dispatch/dispatch.h",
                                                     "mach/mach_time.h",
                                                     "mach/port.h",
                                                     "os/log.h",
                                                     "servers/bootstrap.h"};
    expectNoLine(
        filesUnder(productFolders()),
        [](const std::string& line) {
            const auto name = includedName(line);
            if (name.empty()) return false;
            return name.find("/linux/") != std::string::npos || name.find("/mac/") != std::string::npos ||
                   !(language.contains(name) || startsWithAny(name, allowed));
        },
        "not for product code");
}

TEST(Tidy, TheLoggingModuleKnowsNothingOfTheCamera)
{
    expectNoLine(
        filesUnder({"PavoLoggingSupport"}),
        [](const std::string& line) { return includedName(line).starts_with("CMIOExtensionSupport/"); },
        "the logging module stands alone");
}

TEST(Tidy, PlatformCodeKnowsNoProduct)
{
    expectNoLine(
        filesUnder({"Platform", "Frameworks"}),
        [](const std::string& line) {
            return startsWithAny(includedName(line), {"CMIOExtensionSupport/", "PavoLoggingSupport/"});
        },
        "platform code knows no product");
}

TEST(Tidy, FrameworksDoNotIncludeFaces)
{
    expectNoLine(
        filesUnder({"Frameworks"}),
        [](const std::string& line) {
            const auto name = includedName(line);
            return name.starts_with("Platform/") && !name.starts_with("Platform/Support/");
        },
        "faces stand on frameworks, not the other way round");
}

TEST(Tidy, HeadersAreIncludedOnce)
{
    for (const auto& file : filesUnder(codeFolders())) {
        if (!file.path.ends_with(".h")) continue;
        EXPECT_TRUE(std::any_of(file.lines.begin(), file.lines.end(), [](const std::string& line) {
            return line == "#pragma once";
        })) << file.path;
    }
}

TEST(Tidy, LinesAreAtMost110ColumnsWithoutTabsOrTrailingBlanks)
{
    expectNoLine(
        codeAndBuildFiles(),
        [](const std::string& line) {
            // Columns, not bytes: the second and later bytes of a UTF-8 character take none.
            const auto columns = std::count_if(line.begin(), line.end(), [](char c) {
                return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
            });
            return columns > 110 || line.find('\t') != std::string::npos || line.ends_with(' ');
        },
        "layout");
}

TEST(Tidy, NothingIsLeftForLater)
{
    // The words are put together here, or this file would find itself.
    const std::vector<std::string> words = {std::string("TO") + "DO", std::string("FIX") + "ME",
                                            std::string("XX") + "X:"};
    expectNoLine(
        codeAndBuildFiles(),
        [&words](const std::string& line) {
            return std::any_of(words.begin(), words.end(), [&line](const std::string& word) {
                return line.find(word) != std::string::npos;
            });
        },
        "finish it, or leave it out");
}

TEST(Tidy, TestsWaitForConditionsNotForTime)
{
    static const std::regex sleeping("sleep_for|sleep_until|\\b(u|nano)?sle"
                                     "ep *\\(");
    auto files = filesUnder({"Tests"});
    std::erase_if(files, [](const SourceFile& file) { return file.path.starts_with("Tests/Tidy/"); });
    expectNoLine(
        files, [](const std::string& line) { return std::regex_search(line, sleeping); },
        "wait for a condition");
}

// The monotonic clock stands still while a machine sleeps: then nothing has happened, and nothing is overdue.
// Others jump when it wakes, or when somebody sets them, and a timer of theirs would fire at once or never.
TEST(Tidy, OnlyTheLogReadsAClockThatJumps)
{
    constexpr std::array<std::string_view, 13> kJumping = {
        "CLOCK_REALTIME", "CLOCK_BOOTTIME", "CLOCK_TAI",        "system_clock",  "gettimeofday",
        "time(nullptr)",  "time(NULL)",     "mach_continuous",  "sem_timedwait", "cond_timedwait",
        "CFAbsoluteTime", "CFDateCreate",   "dispatch_walltime"};
    auto files = filesUnder({"CMIOExtensionSupport", "PavoLoggingSupport", "Platform", "Frameworks", "Bundle",
                             "Producer", "Stub", "Tools"});
    EXPECT_EQ(
        std::erase_if(
            files, [](const SourceFile& file) { return file.path == "Frameworks/OSLog/src/LogOutput.cpp"; }),
        1U);
    expectNoLine(
        files,
        [&kJumping](const std::string& line) {
            return std::any_of(kJumping.begin(), kJumping.end(), [&line](std::string_view word) {
                return line.find(word) != std::string::npos;
            });
        },
        "what is compared or waited for is a time of the monotonic clock");
}

}  // namespace
