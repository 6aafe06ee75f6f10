#include "Tests/Doubles/Foundation/FoundationDouble.h"

#include "Platform/Foundation/NSBundle.h"

#include <map>
#include <mutex>
#include <utility>

namespace {

const std::string kMainBundlePath = "/bundles/main";

struct State {
    std::map<std::string, std::string> identifiers;  // by bundle path
    ns::OperatingSystemVersion version;
    std::uint32_t userIdentifier = 1000;
    std::optional<std::string> resourcePath;
    std::vector<pavo::test::ResourceRequest> requests;
};

std::mutex mutex;

State& state()
{
    static State& instance = *new State;
    return instance;
}

std::string bundlePathForClass(std::string_view className)
{
    return "/bundles/" + std::string(className);
}

void setIdentifier(const std::string& bundlePath, std::optional<std::string> identifier)
{
    const std::lock_guard lock(mutex);
    if (identifier)
        state().identifiers[bundlePath] = *std::move(identifier);
    else
        state().identifiers.erase(bundlePath);
}

}  // namespace

namespace pavo::test {

void resetFoundationDouble()
{
    const std::lock_guard lock(mutex);
    state() = {};
}

void setMainBundleIdentifier(std::optional<std::string> identifier)
{
    setIdentifier(kMainBundlePath, std::move(identifier));
}

void setBundleIdentifierForClass(std::string_view className, std::optional<std::string> identifier)
{
    setIdentifier(bundlePathForClass(className), std::move(identifier));
}

void setOperatingSystemVersion(ns::OperatingSystemVersion version)
{
    const std::lock_guard lock(mutex);
    state().version = version;
}

void setUserIdentifier(std::uint32_t identifier)
{
    const std::lock_guard lock(mutex);
    state().userIdentifier = identifier;
}

void setResourcePath(std::optional<std::string> path)
{
    const std::lock_guard lock(mutex);
    state().resourcePath = std::move(path);
}

std::vector<ResourceRequest> resourceRequests()
{
    const std::lock_guard lock(mutex);
    return state().requests;
}

}  // namespace pavo::test

namespace ns {

Bundle Bundle::mainBundle()
{
    return Bundle(kMainBundlePath);
}

Bundle Bundle::bundleForClass(const Class& type)
{
    return Bundle(bundlePathForClass(type.name()));
}

std::optional<std::string> Bundle::bundleIdentifier() const
{
    const std::lock_guard lock(mutex);
    const auto found = state().identifiers.find(path_);
    return found == state().identifiers.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> Bundle::pathForResource(std::string_view name, std::string_view extension) const
{
    const std::lock_guard lock(mutex);
    state().requests.push_back({path_, std::string(name), std::string(extension)});
    return state().resourcePath;
}

OperatingSystemVersion ProcessInfo::operatingSystemVersion()
{
    const std::lock_guard lock(mutex);
    return state().version;
}

std::uint32_t ProcessInfo::userIdentifier()
{
    const std::lock_guard lock(mutex);
    return state().userIdentifier;
}

}  // namespace ns
