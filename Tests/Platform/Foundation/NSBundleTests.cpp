// Bundles as folders: made in a temporary folder, with a real shared library inside where its place matters.

#include "Platform/Foundation/NSBundle.h"

#include "Tests/Platform/Foundation/TestBundle.h"
#include "Tests/Support/Descriptors.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

const ns::Class testedClass("TestedClass");

void write(const fs::path& path, const std::string& content)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::string xmlPlist(const std::string& entries)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
           "</dict></plist>\n";
}

std::string identifierPlist(const std::string& identifier)
{
    return xmlPlist("<key>CFBundleIdentifier</key><string>" + identifier + "</string>");
}

std::string binaryPlist(const std::string& identifier)
{
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "CFBundleIdentifier", plist_new_string(identifier.c_str()));
    char* bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_bin(root, &bytes, &size);
    const std::string content(bytes, size);
    std::free(bytes);
    plist_free(root);
    return content;
}

// A copy of the test's shared library at `path`, loaded; the class that it defines.
class Plugin {
public:
    explicit Plugin(const fs::path& path)
    {
        fs::create_directories(path.parent_path());
        fs::copy_file(PAVO_TEST_PLUGIN, path);
        handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle_) return;
        using Getter = const ns::Class* (*)();
        class_ = reinterpret_cast<Getter>(::dlsym(handle_, "pavoTestPluginClass"))();
    }
    ~Plugin()
    {
        if (handle_) ::dlclose(handle_);
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    const ns::Class* pluginClass() const { return class_; }

private:
    void* handle_ = nullptr;
    const ns::Class* class_ = nullptr;
};

// A folder with all of it.
class FolderBundle final : public pavo::test::TestBundle {
public:
    FolderBundle(const std::optional<std::string>& identifier, const std::string& resource)
        : resource_(resource)
    {
        write(folder() / "Contents/Info.plist", identifier ? identifierPlist(*identifier) : xmlPlist(""));
        write(resourcePath(), "content");
        plugin_.emplace(folder() / "Contents/Linux/plugin");
        EXPECT_TRUE(plugin_->pluginClass());
    }

    const ns::Class& classInside() const override { return *plugin_->pluginClass(); }
    std::string path() const override { return folder().string(); }
    std::string resourcePath() const override
    {
        return (folder() / "Contents/Resources" / resource_).string();
    }

private:
    fs::path folder() const { return fs::canonical(temporary_.path()) / "Test.bundle"; }

    pavo::test::TemporaryFolder temporary_;
    const std::string resource_;
    std::optional<Plugin> plugin_;
};

class NSBundleTest : public testing::Test {
protected:
    fs::path folder() const { return fs::canonical(temporary_.path()); }

    // The bundle of a library in <folder>/Test.bundle, whose Info.plist reads `plist`.
    static std::optional<std::string> identifierWith(const fs::path& bundle, const std::string& plist)
    {
        write(bundle / "Contents/Info.plist", plist);
        const Plugin plugin(bundle / "Contents/Linux/plugin");
        if (!plugin.pluginClass()) return "the plugin did not load";
        return ns::Bundle::bundleForClass(*plugin.pluginClass()).bundleIdentifier();
    }

private:
    pavo::test::TemporaryFolder temporary_;
};

TEST_F(NSBundleTest, FindsTheBundleOfALibraryLoadedThroughASymbolicLink)
{
    const auto bundle = folder() / "Test.bundle";
    write(bundle / "Contents/Info.plist", identifierPlist("org.example.test"));
    fs::create_directory_symlink(bundle, folder() / "Link.bundle");
    const Plugin plugin(folder() / "Link.bundle/Contents/Linux/plugin");
    ASSERT_TRUE(plugin.pluginClass());
    EXPECT_EQ(ns::Bundle::bundleForClass(*plugin.pluginClass()).bundlePath(), bundle.string());
}

TEST_F(NSBundleTest, AFrameworkInsideABundleIsABundleOfItsOwn)
{
    const auto framework = folder() / "Test.bundle/Contents/Frameworks/Part.framework";
    write(folder() / "Test.bundle/Contents/Info.plist", identifierPlist("org.example.test"));
    write(framework / "Resources/Info.plist", identifierPlist("org.example.part"));
    const Plugin plugin(framework / "Part");
    ASSERT_TRUE(plugin.pluginClass());
    const auto found = ns::Bundle::bundleForClass(*plugin.pluginClass());
    EXPECT_EQ(found.bundlePath(), framework.string());
    EXPECT_EQ(found.bundleIdentifier(), "org.example.part");
}

TEST_F(NSBundleTest, AFrameworkWithoutInfoBelongsToTheBundleAround)
{
    write(folder() / "Test.bundle/Contents/Info.plist", identifierPlist("org.example.test"));
    const Plugin plugin(folder() / "Test.bundle/Contents/Frameworks/Part.framework/Part");
    ASSERT_TRUE(plugin.pluginClass());
    EXPECT_EQ(ns::Bundle::bundleForClass(*plugin.pluginClass()).bundleIdentifier(), "org.example.test");
}

TEST_F(NSBundleTest, ALibraryInNoBundleBelongsToTheMainBundle)
{
    const Plugin plugin(folder() / "plugin");
    ASSERT_TRUE(plugin.pluginClass());
    EXPECT_EQ(ns::Bundle::bundleForClass(*plugin.pluginClass()).bundlePath(),
              ns::Bundle::mainBundle().bundlePath());
}

TEST_F(NSBundleTest, ALibraryBesideContentsIsNotInTheBundle)
{
    write(folder() / "Contents/Info.plist", identifierPlist("org.example.test"));
    const Plugin plugin(folder() / "plugin");
    ASSERT_TRUE(plugin.pluginClass());
    EXPECT_EQ(ns::Bundle::bundleForClass(*plugin.pluginClass()).bundlePath(),
              ns::Bundle::mainBundle().bundlePath());
}

TEST_F(NSBundleTest, AClassOfTheProgramBelongsToTheMainBundle)
{
    EXPECT_EQ(ns::Bundle::bundleForClass(testedClass).bundlePath(), ns::Bundle::mainBundle().bundlePath());
}

TEST_F(NSBundleTest, MainBundleOfAProgramInNoBundleIsItsFolder)
{
    const auto program = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(ns::Bundle::mainBundle().bundlePath(), program.parent_path().string());
    EXPECT_EQ(ns::Bundle::mainBundle().bundleIdentifier(), std::nullopt);
}

TEST_F(NSBundleTest, ReadsABinaryPropertyList)
{
    EXPECT_EQ(identifierWith(folder() / "Test.bundle", binaryPlist("org.example.binary")),
              "org.example.binary");
}

TEST_F(NSBundleTest, ABrokenPropertyListGivesNoIdentifier)
{
    const auto whole = identifierPlist("org.example.test");
    EXPECT_EQ(identifierWith(folder() / "Broken.bundle", "<plist><dict><key>CFBundleId"), std::nullopt);
    EXPECT_EQ(identifierWith(folder() / "Cut.bundle", binaryPlist("org.example.binary").substr(0, 20)),
              std::nullopt);
    EXPECT_EQ(identifierWith(folder() / "Empty.bundle", ""), std::nullopt);
    EXPECT_EQ(identifierWith(folder() / "Text.bundle", "CFBundleIdentifier = org.example"), std::nullopt);
}

TEST_F(NSBundleTest, APropertyListThatIsNoDictionaryGivesNoIdentifier)
{
    EXPECT_EQ(identifierWith(folder() / "Test.bundle", "<plist version=\"1.0\"><array/></plist>"),
              std::nullopt);
}

TEST_F(NSBundleTest, AnIdentifierThatIsMissingOrNoTextIsNone)
{
    EXPECT_EQ(identifierWith(folder() / "Missing.bundle", xmlPlist("")), std::nullopt);
    EXPECT_EQ(identifierWith(folder() / "Number.bundle",
                             xmlPlist("<key>CFBundleIdentifier</key><integer>1</integer>")),
              std::nullopt);
}

TEST_F(NSBundleTest, AHugePropertyListIsNotRead)
{
    const auto plist = identifierPlist("org.example.test") + std::string(2U << 20U, ' ');
    EXPECT_EQ(identifierWith(folder() / "Test.bundle", plist), std::nullopt);
}

TEST_F(NSBundleTest, AFolderIsNoResource)
{
    const auto bundle = folder() / "Test.bundle";
    write(bundle / "Contents/Info.plist", identifierPlist("org.example.test"));
    fs::create_directories(bundle / "Contents/Resources/folder.png");
    const Plugin plugin(bundle / "Contents/Linux/plugin");
    ASSERT_TRUE(plugin.pluginClass());
    const auto found = ns::Bundle::bundleForClass(*plugin.pluginClass());
    EXPECT_EQ(found.pathForResource("folder", "png"), std::nullopt);
}

TEST_F(NSBundleTest, FindsResourcesOfAFramework)
{
    const auto framework = folder() / "Part.framework";
    write(framework / "Resources/Info.plist", identifierPlist("org.example.part"));
    write(framework / "Resources/picture.png", "content");
    const Plugin plugin(framework / "Part");
    ASSERT_TRUE(plugin.pluginClass());
    EXPECT_EQ(ns::Bundle::bundleForClass(*plugin.pluginClass()).pathForResource("picture", "png"),
              (framework / "Resources/picture.png").string());
}

TEST_F(NSBundleTest, ReadingBundlesLeavesNoDescriptorOpen)
{
    const auto before = pavo::test::openDescriptorCount();
    EXPECT_EQ(identifierWith(folder() / "Test.bundle", identifierPlist("org.example.test")),
              "org.example.test");
    EXPECT_EQ(identifierWith(folder() / "Broken.bundle", "broken"), std::nullopt);
    EXPECT_EQ(pavo::test::openDescriptorCount(), before);
}

}  // namespace

std::unique_ptr<pavo::test::TestBundle> pavo::test::makeBundle(const std::optional<std::string>& identifier,
                                                               const std::string& resource)
{
    return std::make_unique<FolderBundle>(identifier, resource);
}
