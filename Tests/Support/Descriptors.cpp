#include "Tests/Support/Descriptors.h"

#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace pavo::test {

std::size_t openDescriptorCount()
{
    // The iterator holds one descriptor itself.
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {})) -
           1;
}

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "pavo-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace pavo::test
