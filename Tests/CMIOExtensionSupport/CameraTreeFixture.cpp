#include "Tests/CMIOExtensionSupport/CameraTreeFixture.h"

namespace pavo::test {

CameraTreeFixture::CameraTreeFixture()
{
    resetDoubles();
    // A death test's child must not fork a process that has threads: it starts anew instead.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
}

CameraTreeFixture::~CameraTreeFixture()
{
    breakServerCycles();
    resetDoubles();
}

}  // namespace pavo::test
