#pragma once

#include <cstddef>
#include <string>

namespace pavo::test {

// How many file descriptors this process has open.
std::size_t openDescriptorCount();

// A folder of its own under the temporary folder, removed with its content at the end. Mode 0700, so it can
// serve as a private runtime folder.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace pavo::test
