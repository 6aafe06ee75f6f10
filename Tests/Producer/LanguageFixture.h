#pragma once

#include "Tests/Support/ChildProcess.h"
#include "Tests/Support/Descriptors.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace pavo::test {

// Runs programs that use the library, among them the Python interpreter with our module, in a namespace of
// their own with a camera in a process.
class LanguageFixture : public testing::Test {
protected:
    // The service name that programs find the camera by unless they are told another one.
    ChildProcess startCamera();
    bool cameraHasSaid(const std::string& text) const;

    // Starts the program with its output in a file.
    ChildProcess start(const std::vector<std::string>& arguments);
    std::string output() const { return readFile(outputPath_); }
    // Debian's interpreter, which has NumPy, with what else the sanitizer of this build needs around it.
    static std::vector<std::string> python(const std::vector<std::string>& arguments);
    // Why there can be no Python here; empty where there can.
    static std::string whyNoPython();

    const TemporaryFolder folder_;

private:
    const std::string outputPath_ = folder_.path() + "/output.txt";
    const std::string cameraPath_ = folder_.path() + "/camera.txt";
};

}  // namespace pavo::test
