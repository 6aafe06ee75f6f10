#pragma once

#include "Platform/Foundation/NSBundle.h"

#include <memory>
#include <optional>
#include <string>

namespace pavo::test {

// A bundle of the test's own, with an image that has a class in it. Each system's tests have their own.
class TestBundle {
public:
    virtual ~TestBundle() = default;
    virtual const ns::Class& classInside() const = 0;
    virtual std::string path() const = 0;
    virtual std::string resourcePath() const = 0;
};

// With one resource of that name, as in "picture.png". No identifier: its properties have none.
std::unique_ptr<TestBundle> makeBundle(const std::optional<std::string>& identifier,
                                       const std::string& resource);

}  // namespace pavo::test
