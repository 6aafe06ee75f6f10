#pragma once

#include "Tests/CMIOExtensionSupport/CameraTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace pavo::test {

// For tests that build the tree of provider, device and stream: takes apart, at the end, every frame server
// that was made meanwhile, which lives in a circle with its client.
class CameraTreeFixture : public testing::Test {
protected:
    CameraTreeFixture();
    ~CameraTreeFixture() override;
};

}  // namespace pavo::test
