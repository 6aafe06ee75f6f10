// What an installation consists of, and that it works from where it was put.

#include "Tests/Packaging/InstalledTree.h"
#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"
#include "Tests/Support/Wait.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sstream>

namespace {

using namespace pavo::test;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

TEST(InstalledFiles, AreTheCommandTheBundleAndWhatDescribesThem)
{
    const std::string bundle = PAVO_INSTALL_LIBDIR "/pavo-camera/CMIOExtensionSupport.bundle/Contents/";
    const std::string logging = bundle + "Frameworks/PavoLoggingSupport.framework/";
    EXPECT_THAT(installed::files(), IsSupersetOf({
                                        std::string("bin/pavo"),
                                        bundle + "Info.plist",
                                        bundle + "Linux/CMIOExtensionSupport",
                                        bundle + "Frameworks/libPavoPlatform.so",
                                        bundle + "Resources/configure-pavo-full.png",
                                        logging + "PavoLoggingSupport",
                                        logging + "Resources/Info.plist",
                                        std::string("lib/systemd/user/pavo-camera.service"),
                                        std::string("share/bash-completion/completions/pavo"),
                                        std::string("share/doc/pavo-camera/WireFormat.md"),
                                        std::string("share/doc/pavo-camera/changelog.gz"),
                                        std::string("share/doc/pavo-camera/copyright"),
                                        std::string("share/man/man1/pavo.1.gz"),
                                        std::string("share/zsh/vendor-completions/_pavo"),
                                    }));
}

TEST(InstalledFiles, NameNeitherTheSourcesNorTheBuild)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "instrumented code names its sources, to report them; it is not for packages";
#endif
    const auto files = installed::files();
    ASSERT_FALSE(files.empty());
    for (const auto& file : files) {
        const std::string content = readFile(installed::prefix() / file);
        EXPECT_FALSE(content.empty()) << file;
        for (const std::string folder : {PAVO_SOURCE_FOLDER, PAVO_BUILD_FOLDER}) {
            const auto at = content.find(folder + "/");
            EXPECT_EQ(at, std::string::npos)
                << file << ": " << content.substr(at, content.find('\0', at) - at);
        }
    }
}

TEST(InstalledFiles, AreReadableByEverybodyAndWritableByTheOwnerOnly)
{
    using std::filesystem::perms;
    for (const auto& file : installed::files()) {
        const auto mode = std::filesystem::status(installed::prefix() / file).permissions();
        EXPECT_EQ(mode & (perms::group_read | perms::others_read), perms::group_read | perms::others_read)
            << file;
        EXPECT_EQ(mode & (perms::group_write | perms::others_write), perms::none) << file;
    }
}

TEST(InstalledFiles, HaveAChangelogThatBeginsWithThisVersion)
{
    const auto changelog = installed::run(
        {"gzip", "-dc", installed::prefix() / "share" / "doc" / "pavo-camera" / "changelog.gz"});
    EXPECT_EQ(changelog.status, 0);
    EXPECT_THAT(changelog.text, testing::StartsWith("pavo-camera (" PAVO_VERSION ") "));
}

TEST(InstalledFiles, AreACameraThatRunsFromWhereTheyAre)
{
    const TemporaryFolder runtime;
    ASSERT_EQ(::setenv("XDG_RUNTIME_DIR", runtime.path().c_str(), 1), 0);
    ASSERT_EQ(::setenv("PAVO_BOOTSTRAP_DIR", runtime.path().c_str(), 1), 0);
    ASSERT_EQ(::setenv("PAVO_PIPEWIRE", "embedded", 1), 0);
    ASSERT_EQ(::setenv("PIPEWIRE_REMOTE", "pavo-0", 1), 0);
    const std::string said = runtime.path() + "/camera.txt";
    const std::string picture = runtime.path() + "/picture.png";
    ChildProcess camera({installed::pavo(), "camera", "--json"}, said);
    ASSERT_TRUE(waitFor([&] { return readFile(said).find("started") != std::string::npos; },
                        std::chrono::seconds(30)))
        << readFile(said);

    // Its own files only: the same are in the build folder, too.
    std::istringstream maps(readFile("/proc/" + std::to_string(camera.pid()) + "/maps"));
    std::size_t parts = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.find("/pavo") != std::string::npos || line.find(".bundle/") != std::string::npos) {
            EXPECT_THAT(line, HasSubstr(installed::prefix().string()));
            ++parts;
        }
    }
    EXPECT_GT(parts, 0U);

    const auto view = installed::run({installed::pavo(), "view", "--snapshot", picture});
    EXPECT_EQ(view.status, 0) << view.text;
    EXPECT_THAT(readFile(picture), testing::StartsWith("\x89PNG"));
    camera.signal(SIGTERM);
    EXPECT_EQ(camera.waitForExit(std::chrono::seconds(30)), 0);
}

}  // namespace
