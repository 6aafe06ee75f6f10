#include "CMIOExtensionSupport/BosunServiceProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace pavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using xpc::ArgumentType;

// How a type stands in the platform's extended type encoding.
std::string encodingOf(ArgumentType type)
{
    static const std::map<ArgumentType, std::string> encodings = {
        {ArgumentType::uint64, "Q"},
        {ArgumentType::boolean, "c"},
        {ArgumentType::string, "@\"NSString\""},
        {ArgumentType::data, "@\"NSData\""},
        {ArgumentType::optionalData, "@\"NSData\""},
        {ArgumentType::optionalError, "@\"NSError\""},
    };
    return encodings.at(type);
}

// The extended encoding of a method of which every argument takes eight bytes.
std::string methodEncoding(const xpc::MethodDescription& method)
{
    std::size_t offset = 0;
    const auto place = [&offset](const std::string& type) {
        offset += 8;
        return type + std::to_string(offset - 8);
    };
    auto text = place("@");
    text += place(":");
    for (const auto type : method.arguments)
        text += place(encodingOf(type));
    if (method.reply) {
        std::string block = "@?<v@?";
        for (const auto type : *method.reply)
            block += encodingOf(type);
        text += place(block + ">");
    }
    return "v" + std::to_string(offset) + text;
}

TEST(BosunServiceProtocol, HasTheNamesAndTheVersionOfTheHelper)
{
    EXPECT_EQ(xpc::describe<BosunServiceProtocol>().name, "CMIOExtensionSupport.BosunServiceProtocol");
    EXPECT_THAT(xpc::describe<BosunServiceProtocol>().adopted, IsEmpty());
    EXPECT_EQ(kHelperLabel, "com.tarnwell.macos.cam.PrivilegedHelper");
    EXPECT_EQ(kHelperCommunicationVersion, 5U);
}

TEST(BosunServiceProtocol, HasSevenSelectorsWithTheirEncodings)
{
    std::vector<std::pair<std::string, std::string>> told;
    for (const auto& method : xpc::describe<BosunServiceProtocol>().methods)
        told.emplace_back(method.selector, methodEncoding(method));
    using Entry = std::pair<std::string, std::string>;
    EXPECT_THAT(
        told,
        ElementsAre(Entry("getCommunicationVersionWithReply:", "v24@0:8@?<v@?Q>16"), Entry("ping", "v16@0:8"),
                    Entry("launchStudioIfNeeded", "v16@0:8"),
                    Entry("doInstallWithStepIdentifier:encodedContext:encodedFrozenInstallationState:reply:",
                          "v48@0:8@\"NSString\"16@\"NSData\"24@\"NSData\"32@?<v@?@\"NSData\"@\"NSError\">40"),
                    Entry("doComponentUninstallWithReply:", "v24@0:8@?<v@?@\"NSError\">16"),
                    Entry("coreadiosdWithReply:", "v24@0:8@?<v@?@\"NSError\">16"),
                    Entry("checkCMIOExtensionRegisteredWithReply:", "v24@0:8@?<v@?c>16")));
}

TEST(BosunServiceProtocol, OnlyWhatTheReplyMayLackMayBeMissing)
{
    const auto* install = xpc::describe<BosunServiceProtocol>().method(
        "doInstallWithStepIdentifier:encodedContext:encodedFrozenInstallationState:reply:");
    ASSERT_NE(install, nullptr);
    EXPECT_THAT(install->arguments,
                ElementsAre(ArgumentType::string, ArgumentType::data, ArgumentType::data));
    ASSERT_TRUE(install->reply);
    EXPECT_THAT(*install->reply, ElementsAre(ArgumentType::optionalData, ArgumentType::optionalError));
}

}  // namespace
}  // namespace pavo
