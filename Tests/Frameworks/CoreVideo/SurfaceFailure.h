#pragma once

namespace pavo::test {

// While it lives, no surface can be made.
class SurfaceFailure {
public:
    SurfaceFailure();
    ~SurfaceFailure();
    SurfaceFailure(const SurfaceFailure&) = delete;
    SurfaceFailure& operator=(const SurfaceFailure&) = delete;
};

}  // namespace pavo::test
