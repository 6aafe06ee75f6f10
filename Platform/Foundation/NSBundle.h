#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ns {

// Stands for a class of the product where the platform wants a class object. Its address, inside the image
// that defines the class, is how the platform finds the bundle of that class; so it is a static object of the
// class's own source file and never copied.
class Class final {
public:
    // `name` is the unqualified name of the class; a literal.
    explicit constexpr Class(std::string_view name) : name_(name) {}
    Class(const Class&) = delete;
    Class& operator=(const Class&) = delete;

    constexpr std::string_view name() const { return name_; }

private:
    std::string_view name_;
};

// A loadable bundle folder, or the program that runs. A cheap value: it holds the folder's path.
class Bundle final {
public:
    // The bundle of the running program.
    static Bundle mainBundle();
    // The bundle whose image defines `type`; the main bundle where that image lies in no bundle.
    static Bundle bundleForClass(const Class& type);

    // CFBundleIdentifier of the bundle's Info.plist; none where there is no such file or key.
    std::optional<std::string> bundleIdentifier() const;
    // Path of Resources/<name>.<extension>; none where the file does not exist.
    std::optional<std::string> pathForResource(std::string_view name, std::string_view extension) const;
    // The bundle's folder.
    const std::string& bundlePath() const { return path_; }

private:
    explicit Bundle(std::string path) : path_(std::move(path)) {}

    std::string path_;
};

}  // namespace ns
