#include "Tests/Producer/LanguageFixture.h"

#include "CMIOExtensionSupport/VideoFrameService.h"
#include "Tests/Support/Wait.h"

#include <cstdlib>
#include <fstream>

namespace pavo::test {

namespace {

class PrivateNamespace final : public testing::Environment {
public:
    void SetUp() override
    {
        ::setenv("PAVO_BOOTSTRAP_DIR", folder_.path().c_str(), 1);
        ::setenv("PYTHONPATH", PAVO_PYTHON_MODULES, 1);
        ::setenv("PYTHONDONTWRITEBYTECODE", "1", 1);
        ::setenv("PAVO_PRODUCER_LIBRARY", PAVO_PRODUCER_LIBRARY_FILE, 1);
    }

private:
    TemporaryFolder folder_;
};

[[maybe_unused]] const auto* const privateNamespace = testing::AddGlobalTestEnvironment(new PrivateNamespace);

}  // namespace

ChildProcess LanguageFixture::startCamera()
{
    std::ofstream(cameraPath_, std::ios::trunc).close();
    ChildProcess camera({PAVO_TEST_CAMERA, std::string(kVideoFrameServiceName)}, cameraPath_);
    EXPECT_TRUE(waitFor([this] { return cameraHasSaid("ready\n"); }));
    return camera;
}

bool LanguageFixture::cameraHasSaid(const std::string& text) const
{
    return readFile(cameraPath_).find(text) != std::string::npos;
}

ChildProcess LanguageFixture::start(const std::vector<std::string>& arguments)
{
    std::ofstream(outputPath_, std::ios::trunc).close();
    return ChildProcess(arguments, outputPath_);
}

std::vector<std::string> LanguageFixture::python(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = {"env"};
    // The interpreter was built without the sanitizer, which has to be there before our library is.
    // What the interpreter itself leaves to the system at its end is no leak of ours.
    if (*PAVO_SANITIZER_RUNTIME) {
        words.emplace_back("LD_PRELOAD=" PAVO_SANITIZER_RUNTIME);
        words.emplace_back("ASAN_OPTIONS=detect_leaks=0");
    }
    words.emplace_back(PAVO_PYTHON);
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

std::string LanguageFixture::whyNoPython()
{
    const std::string sanitizer = PAVO_SANITIZE;
    if (sanitizer == "thread") return "the interpreter has to be built with the thread sanitizer, too";
    auto run = ChildProcess({PAVO_PYTHON, "-c", "import numpy"});
    return run.waitForExit() == 0 ? "" : "Debian's python3-numpy is not installed";
}

}  // namespace pavo::test
