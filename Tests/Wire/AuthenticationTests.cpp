// The conversation before the first message, as a producer in another language may lead it.

#include "Tests/Support/Wait.h"
#include "Tests/Wire/WireFixture.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace pavo::test {
namespace {

using testing::MatchesRegex;

struct Exchange {
    std::string line;
    std::string answer;  // a regular expression
};

const std::string kAgreed = "OK [0-9a-f]+\r\n";

std::string answerOf(RawPeer& peer)
{
    std::string answer;
    while (!answer.ends_with("\r\n")) {
        const auto byte = peer.receive(1);
        if (byte.empty()) break;
        answer += byte;
    }
    return answer;
}

class AuthenticationTest : public WireTest {
protected:
    // Leads the conversation, and shows that the camera takes messages after it.
    void expectAgreement(const std::vector<Exchange>& conversation)
    {
        auto producer = connect();
        ASSERT_TRUE(producer.send(std::string(1, '\0')));
        for (const auto& [line, answer] : conversation) {
            ASSERT_TRUE(producer.send(line + "\r\n"));
            ASSERT_THAT(answerOf(producer), MatchesRegex(answer)) << line;
        }
        ASSERT_TRUE(producer.send("BEGIN\r\n"));
        ASSERT_TRUE(producer.send(rateBytes()));
        ASSERT_TRUE(waitFor([this] { return camera->rates().size() == 1; }));
    }

    static std::string rateBytes()
    {
        RawCall call;
        call.interface = "CMIOExtensionSupport.VideoFrameConsumerService";
        call.member = "targetFPSChangedTo_";
        call.signature = "d";
        call.body = std::string(8, '\0');
        return call.bytes();
    }
};

TEST_F(AuthenticationTest, TakesTheUserNumberInHexadecimalDigits)
{
    expectAgreement({{"AUTH EXTERNAL 31303030", kAgreed}, {"NEGOTIATE_UNIX_FD", "AGREE_UNIX_FD\r\n"}});
}

TEST_F(AuthenticationTest, TakesTheUserNumberOnALineOfItsOwn)
{
    expectAgreement(
        {{"AUTH EXTERNAL", "DATA\r\n"}, {"DATA", kAgreed}, {"NEGOTIATE_UNIX_FD", "AGREE_UNIX_FD\r\n"}});
}

TEST_F(AuthenticationTest, TakesAProducerThatDoesNotSayWhoItIs)
{
    expectAgreement({{"AUTH ANONYMOUS 7061766f", kAgreed}, {"NEGOTIATE_UNIX_FD", "AGREE_UNIX_FD\r\n"}});
}

TEST_F(AuthenticationTest, NamesItsMechanismsWhenItIsAsked)
{
    expectAgreement({{"AUTH", "REJECTED EXTERNAL ANONYMOUS\r\n"}, {"AUTH EXTERNAL 30", kAgreed}});
}

TEST_F(AuthenticationTest, GoesOnAfterAMechanismThatItDoesNotKnow)
{
    expectAgreement({{"AUTH KERBEROS_V4", "REJECTED EXTERNAL ANONYMOUS\r\n"}, {"AUTH EXTERNAL 30", kAgreed}});
}

TEST_F(AuthenticationTest, GoesOnAfterALineThatItDoesNotUnderstand)
{
    expectAgreement({{"HELLO", "ERROR\r\n"}, {"AUTH EXTERNAL 30", kAgreed}});
}

TEST_F(AuthenticationTest, BeginsAgainAfterACancel)
{
    expectAgreement(
        {{"AUTH EXTERNAL", "DATA\r\n"}, {"CANCEL", "REJECTED\r\n"}, {"AUTH EXTERNAL 30", kAgreed}});
}

TEST_F(AuthenticationTest, DoesNotBeginBeforeItIsAgreed)
{
    expectAgreement(
        {{"BEGIN", "ERROR\r\n"}, {"NEGOTIATE_UNIX_FD", "ERROR\r\n"}, {"AUTH EXTERNAL 30", kAgreed}});
}

TEST_F(AuthenticationTest, AnswersAllLinesThatComeAtOnceAndTakesTheMessageBehindThem)
{
    auto producer = connect();
    ASSERT_TRUE(producer.send(std::string(1, '\0') +
                              "AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n" + rateBytes()));
    EXPECT_EQ(answerOf(producer), "DATA\r\n");
    EXPECT_THAT(answerOf(producer), MatchesRegex(kAgreed));
    EXPECT_EQ(answerOf(producer), "AGREE_UNIX_FD\r\n");
    EXPECT_TRUE(waitFor([this] { return camera->rates().size() == 1; }));
}

TEST_F(AuthenticationTest, TakesALineAsLongAsTheLimitAndNoLongerOne)
{
    const std::string beginning = std::string(1, '\0') + "AUTH ANONYMOUS ";
    const auto digits = 512 - beginning.size() - 2;
    ASSERT_EQ(digits % 2, 0U);
    auto longest = connect();
    ASSERT_TRUE(longest.send(beginning + std::string(digits, '5') + "\r\n"));
    EXPECT_THAT(answerOf(longest), MatchesRegex(kAgreed));
    auto tooLong = connect();
    ASSERT_TRUE(tooLong.send(beginning + std::string(digits + 2, '5') + "\r\n"));
    EXPECT_TRUE(tooLong.waitForEnd());
}

TEST_F(AuthenticationTest, DropsAProducerThatLeavesTheZeroByteOut)
{
    auto producer = connect();
    ASSERT_TRUE(producer.send("AUTH EXTERNAL 30\r\n"));
    EXPECT_TRUE(producer.waitForEnd());
    EXPECT_FALSE(camera->producer().has_value());
}

TEST_F(AuthenticationTest, DropsAProducerThatSendsMessagesBeforeItIsAgreed)
{
    auto producer = connect();
    ASSERT_TRUE(producer.send(std::string(1, '\0') + rateBytes()));
    EXPECT_TRUE(producer.waitForEnd());
    EXPECT_TRUE(camera->rates().empty());
    EXPECT_FALSE(camera->producer().has_value());
}

TEST_F(AuthenticationTest, GivesEachConnectionAnotherNumber)
{
    std::string before;
    for (int i = 0; i < 2; ++i) {
        auto producer = connect();
        ASSERT_TRUE(producer.send(std::string(1, '\0') + "AUTH EXTERNAL 30\r\n"));
        const auto answer = answerOf(producer);
        ASSERT_EQ(answer.size(), 3U + 32 + 2);
        EXPECT_NE(answer, before);
        before = answer;
    }
}

}  // namespace
}  // namespace pavo::test
