#pragma once

#include "Platform/Foundation/NSProcessInfo.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Stands in for Foundation: bundles and the system's version are what a test says. Everything is safe from
// any thread. resetFoundationDouble() restores the beginning: no identifiers, no resources, version zero,
// user 1000.
namespace pavo::test {

void resetFoundationDouble();

void setMainBundleIdentifier(std::optional<std::string> identifier);
// For the bundle of the class with that name. The bundle path of such a class is "/bundles/<name>".
void setBundleIdentifierForClass(std::string_view className, std::optional<std::string> identifier);
void setOperatingSystemVersion(ns::OperatingSystemVersion version);
void setUserIdentifier(std::uint32_t identifier);
// What every bundle answers when it is asked for a resource.
void setResourcePath(std::optional<std::string> path);

struct ResourceRequest {
    std::string bundlePath;
    std::string name;
    std::string extension;

    bool operator==(const ResourceRequest&) const = default;
};
std::vector<ResourceRequest> resourceRequests();

}  // namespace pavo::test
