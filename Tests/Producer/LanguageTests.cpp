// The library from other languages: the Python module, the examples, and the installed package.
#include "Tests/Producer/LanguageFixture.h"
#include "Tests/Support/Wait.h"

#include <signal.h>

#include <chrono>
#include <filesystem>

namespace pavo::test {
namespace {

using std::chrono::seconds;

class PythonModule : public LanguageFixture, public testing::WithParamInterface<const char*> {};

TEST_P(PythonModule, KeepsItsPromises)
{
    if (const auto why = whyNoPython(); !why.empty()) GTEST_SKIP() << why;
    auto run = start(python({PAVO_MODULE_TESTS, PAVO_TEST_CAMERA, "-v", GetParam()}));
    EXPECT_EQ(run.waitForExit(seconds(120)), 0) << output();
    EXPECT_NE(output().find("Ran "), std::string::npos) << output();
}

INSTANTIATE_TEST_SUITE_P(Python, PythonModule,
                         testing::Values("Frames", "Events", "Misuse", "Threads", "Declarations"),
                         [](const auto& part) { return std::string(part.param); });

class Example : public LanguageFixture {
protected:
    void expectFrames(const std::vector<std::string>& program, const std::string& rate)
    {
        const auto camera = startCamera();
        auto run = start(program);
        EXPECT_TRUE(waitFor([this] { return cameraHasSaid("many\n"); }, seconds(60))) << output();
        EXPECT_TRUE(cameraHasSaid("frame at " + rate + "\n"));
        run.signal(SIGINT);
        run.waitForExit();
    }
};

TEST_F(Example, InCSendsFramesAndEndsWhenToldTo)
{
    const auto camera = startCamera();
    auto run = start({PAVO_EXAMPLE_C});
    EXPECT_TRUE(waitFor([this] { return cameraHasSaid("frame at 30\n"); })) << output();
    run.signal(SIGINT);
    EXPECT_EQ(run.waitForExit(), 0) << output();
}

TEST_F(Example, InCPlusPlusSendsFramesTellsOfEventsAndEndsWhenToldTo)
{
    const auto camera = startCamera();
    auto run = start({PAVO_EXAMPLE_CPP});
    EXPECT_TRUE(waitFor([this] { return cameraHasSaid("frame at 60\n"); })) << output();
    run.signal(SIGTERM);
    EXPECT_EQ(run.waitForExit(), 0) << output();
    EXPECT_NE(output().find("event 2, process " + std::to_string(camera.pid())), std::string::npos)
        << output();
}

TEST_F(Example, InPythonSendsFrames)
{
    if (const auto why = whyNoPython(); !why.empty()) GTEST_SKIP() << why;
    expectFrames(python({PAVO_EXAMPLES "/animation.py"}), "30");
}

TEST_F(Example, OfGStreamerSendsItsPipeline)
{
    if (!isOnPath("gst-launch-1.0")) GTEST_SKIP() << "gst-launch-1.0 is not installed";
    const auto camera = startCamera();
    auto run = start(
        {PAVO_EXAMPLES "/gstreamer.sh", PAVO_PROGRAM, "videotestsrc", "num-buffers=120", "is-live=true"});
    EXPECT_TRUE(waitFor([this] { return cameraHasSaid("frame at 30\n"); }, seconds(60))) << output();
    EXPECT_EQ(run.waitForExit(seconds(60)), 0) << output();
}

// Installs the library, and builds the examples against what was installed.
class InstalledPackage : public LanguageFixture {
protected:
    void SetUp() override
    {
        prefix_ = folder_.path() + "/prefix";
        for (const std::string component : {"producer", "producer-dev", "producer-python"}) {
            auto install = start(
                {PAVO_CMAKE, "--install", PAVO_BUILD_FOLDER, "--component", component, "--prefix", prefix_});
            ASSERT_EQ(install.waitForExit(seconds(60)), 0) << output();
        }
    }
    // A shell command; what it needs of the package is in its environment.
    void expectSuccess(const std::string& command)
    {
        const std::string library = prefix_ + "/" PAVO_INSTALL_LIBDIR;
        auto run = start({"env", "PKG_CONFIG_PATH=" + library + "/pkgconfig", "LD_LIBRARY_PATH=" + library,
                          "PYTHONPATH=" + prefix_ + "/lib/python3/dist-packages", "sh", "-ec", command});
        EXPECT_EQ(run.waitForExit(seconds(120)), 0) << output();
    }

    std::string prefix_;
};

TEST_F(InstalledPackage, BuildsTheExamplesWithPkgConfig)
{
    if (*PAVO_SANITIZE) GTEST_SKIP() << "a library with a sanitizer is not for other programs";
    const std::string folder = folder_.path();
    expectSuccess("cc -std=c11 -Wall -Werror " PAVO_EXAMPLES "/colours.c -o " + folder +
                  "/colours $(pkg-config --cflags --libs pavo-producer); "
                  "c++ -std=c++17 -Wall -Werror " PAVO_EXAMPLES "/bars.cpp -o " +
                  folder + "/bars -pthread $(pkg-config --cflags --libs pavo-producer); ldd " + folder +
                  "/bars | grep 'libpavo-producer.so.0 => " + prefix_ + "'");
    EXPECT_TRUE(std::filesystem::exists(folder + "/colours"));
}

TEST_F(InstalledPackage, IsFoundByCMake)
{
    const std::string folder = folder_.path();
    expectSuccess("mkdir " + folder + "/project; cd " + folder +
                  "/project; echo 'cmake_minimum_required(VERSION 3.25)\n"
                  "project(Test C)\nfind_package(PavoProducer 0.1 REQUIRED)\n"
                  "get_target_property(folder Pavo::producer INTERFACE_INCLUDE_DIRECTORIES)\n"
                  "if(NOT EXISTS ${folder}/pavo/producer.hpp)\n  message(FATAL_ERROR ${folder})\nendif()' "
                  "> CMakeLists.txt; " PAVO_CMAKE " -DCMAKE_PREFIX_PATH=" +
                  prefix_ + " .");
}

TEST_F(InstalledPackage, BringsTheModuleWhichFindsTheLibraryByItsName)
{
    if (const auto why = whyNoPython(); !why.empty()) GTEST_SKIP() << why;
    if (*PAVO_SANITIZE) GTEST_SKIP() << "a library with a sanitizer is not for other programs";
    expectSuccess("unset PAVO_PRODUCER_LIBRARY; cd /; " PAVO_PYTHON
                  " -c 'import pavo; assert pavo.__file__.startswith(\"" +
                  prefix_ + "\"); pavo.Producer(64, 48).close()'");
}

TEST_F(InstalledPackage, ShowsNothingButItsInterface)
{
    expectSuccess("nm -D --defined-only " PAVO_PRODUCER_LIBRARY_FILE " | grep -v ' A ' > " + folder_.path() +
                  "/symbols; test $(wc -l < " + folder_.path() +
                  "/symbols) = 19; ! grep -v '@@PAVO_PRODUCER_0.1$' " + folder_.path() + "/symbols");
}

}  // namespace
}  // namespace pavo::test
