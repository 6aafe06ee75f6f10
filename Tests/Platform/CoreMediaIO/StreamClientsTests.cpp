#include "Platform/CoreMediaIO/linux/StreamClients.h"
#include "Tests/Platform/CoreMediaIO/Sources.h"
#include "Tests/Support/CapturedLog.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace cmio {
namespace {

using testing::_;
using testing::DoAll;
using testing::Field;
using testing::InSequence;
using testing::InvokeWithoutArgs;
using testing::NiceMock;
using testing::Return;
using testing::SaveArg;

constexpr std::int32_t kFirst = 100;
constexpr std::int32_t kSecond = 200;

auto process(std::int32_t pid)
{
    return Field(&ExtensionClient::pid, pid);
}

class StreamClientsTest : public testing::Test {
protected:
    StreamClientsTest()
    {
        ON_CALL(*provider_, connectClient).WillByDefault(Return(true));
        ON_CALL(*source_, authorizedToStartStream).WillByDefault(Return(true));
        ON_CALL(*source_, startStream).WillByDefault(Return(true));
        ON_CALL(*source_, stopStream).WillByDefault(Return(true));
    }

    // Without a line to expect there is none.
    ~StreamClientsTest() override
    {
        if (expectedLog_.empty())
            EXPECT_EQ(log_.end(), "");
        else
            EXPECT_THAT(log_.end(), testing::HasSubstr(expectedLog_));
    }

    std::vector<std::int32_t> streaming() const
    {
        std::vector<std::int32_t> processes;
        for (const ExtensionClient& client : stream_->streamingClients())
            processes.push_back(client.pid);
        return processes;
    }

    std::shared_ptr<NiceMock<test::MockProviderSource>> provider_ =
        std::make_shared<NiceMock<test::MockProviderSource>>();
    std::shared_ptr<NiceMock<test::MockStreamSource>> source_ =
        std::make_shared<NiceMock<test::MockStreamSource>>();
    std::shared_ptr<ExtensionStream> stream_ =
        ExtensionStream::create("Stream", ns::UUID::random(), ExtensionStreamDirection::source,
                                ExtensionStreamClockType::hostTime, source_);
    testing::MockFunction<void(std::int32_t)> refuse_;
    testing::MockFunction<void(const ExtensionStream::ClientsChange&)> observer_;
    std::string expectedLog_;
    pavo::test::CapturedLog log_;
    StreamClients clients_{provider_, stream_, refuse_.AsStdFunction()};
};

using Processes = std::vector<std::int32_t>;

TEST_F(StreamClientsTest, ConnectsAuthorisesStartsAndOnlyThenCountsTheFirstClient)
{
    const auto observation = stream_->observeStreamingClients(observer_.AsStdFunction());
    const InSequence order;
    EXPECT_CALL(*provider_, connectClient(process(kFirst), _));
    EXPECT_CALL(*source_, authorizedToStartStream(process(kFirst)));
    EXPECT_CALL(*source_, startStream).WillOnce(InvokeWithoutArgs([this] {
        EXPECT_TRUE(streaming().empty());
        return true;
    }));
    EXPECT_CALL(observer_, Call).WillOnce(InvokeWithoutArgs([this] {
        EXPECT_EQ(streaming(), Processes{kFirst});
    }));
    clients_.setProcesses({kFirst});
}

TEST_F(StreamClientsTest, StopsBeforeTheLastClientIsRemovedAndDisconnectsItLast)
{
    clients_.setProcesses({kFirst});
    const auto observation = stream_->observeStreamingClients(observer_.AsStdFunction());
    const InSequence order;
    EXPECT_CALL(*source_, stopStream).WillOnce(InvokeWithoutArgs([this] {
        EXPECT_EQ(streaming(), Processes{kFirst});
        return true;
    }));
    EXPECT_CALL(observer_, Call).WillOnce(InvokeWithoutArgs([this] { EXPECT_TRUE(streaming().empty()); }));
    EXPECT_CALL(*provider_, disconnectClient(process(kFirst)));
    clients_.setProcesses({});
}

TEST_F(StreamClientsTest, StartsOnceAndStopsOnceForSeveralClients)
{
    EXPECT_CALL(*source_, startStream).Times(1);
    EXPECT_CALL(*source_, stopStream).Times(0);
    clients_.setProcesses({kFirst});
    clients_.setProcesses({kFirst, kSecond});
    EXPECT_EQ(streaming(), (Processes{kFirst, kSecond}));
    clients_.setProcesses({kSecond});
    EXPECT_EQ(streaming(), Processes{kSecond});
    testing::Mock::VerifyAndClearExpectations(source_.get());
    EXPECT_CALL(*source_, stopStream).Times(1);
    clients_.setProcesses({});
}

TEST_F(StreamClientsTest, KeepsTheIdentityOfAClientWhileItIsThereAndGivesANewOneWhenItComesAgain)
{
    clients_.setProcesses({kFirst});
    const auto first = stream_->streamingClients().front().clientID;
    clients_.setProcesses({kFirst, kSecond});
    EXPECT_EQ(stream_->streamingClients().front().clientID, first);
    clients_.setProcesses({});
    clients_.setProcesses({kFirst});
    EXPECT_NE(stream_->streamingClients().front().clientID, first);
}

TEST_F(StreamClientsTest, RefusesAClientThatTheProviderDoesNotConnect)
{
    expectedLog_ = "Refused process 100: the provider does not connect it";
    EXPECT_CALL(*provider_, connectClient).WillOnce(Return(false));
    EXPECT_CALL(*source_, authorizedToStartStream).Times(0);
    EXPECT_CALL(*source_, startStream).Times(0);
    EXPECT_CALL(*provider_, disconnectClient).Times(0);
    EXPECT_CALL(refuse_, Call(kFirst));
    clients_.setProcesses({kFirst});
    EXPECT_TRUE(streaming().empty());
    clients_.setProcesses({});
}

TEST_F(StreamClientsTest, RefusesAClientThatIsNotAuthorisedAndAsksOnce)
{
    expectedLog_ = "Refused process 100: it may not start the stream";
    EXPECT_CALL(*source_, authorizedToStartStream(process(kFirst))).WillOnce(Return(false));
    EXPECT_CALL(*source_, startStream).Times(0);
    EXPECT_CALL(*source_, stopStream).Times(0);
    EXPECT_CALL(refuse_, Call(kFirst)).Times(1);
    EXPECT_CALL(*provider_, disconnectClient(process(kFirst)));
    clients_.setProcesses({kFirst});
    clients_.setProcesses({kFirst});
    EXPECT_TRUE(streaming().empty());
    clients_.setProcesses({});
}

TEST_F(StreamClientsTest, LetsOthersStreamBesideARefusedClient)
{
    expectedLog_ = "Refused process 100: it may not start the stream";
    EXPECT_CALL(*source_, authorizedToStartStream(process(kFirst))).WillOnce(Return(false));
    EXPECT_CALL(*source_, authorizedToStartStream(process(kSecond))).WillOnce(Return(true));
    EXPECT_CALL(refuse_, Call(kFirst));
    EXPECT_CALL(*source_, startStream).Times(1);
    clients_.setProcesses({kFirst, kSecond});
    EXPECT_EQ(streaming(), Processes{kSecond});
}

TEST_F(StreamClientsTest, RefusesAClientWhenTheStreamDoesNotStartAndTriesAgainForTheNext)
{
    expectedLog_ = "Refused process 100: the stream does not start";
    EXPECT_CALL(*source_, startStream).WillOnce(Return(false)).WillOnce(Return(true));
    EXPECT_CALL(refuse_, Call(kFirst));
    clients_.setProcesses({kFirst});
    EXPECT_TRUE(streaming().empty());
    clients_.setProcesses({kFirst, kSecond});
    EXPECT_EQ(streaming(), Processes{kSecond});
}

TEST_F(StreamClientsTest, RemovesTheLastClientThoughTheStreamDoesNotStop)
{
    expectedLog_ = "The stream does not stop: SomeDomain -7";
    clients_.setProcesses({kFirst});
    EXPECT_CALL(*source_, stopStream)
        .WillOnce(DoAll(testing::SetArgPointee<0>(ns::Error{"SomeDomain", -7}), Return(false)));
    EXPECT_CALL(*provider_, disconnectClient(process(kFirst)));
    clients_.setProcesses({});
    EXPECT_TRUE(streaming().empty());
}

TEST_F(StreamClientsTest, RefusesClientsWhenTheSourcesHaveGone)
{
    expectedLog_ = "Refused process 100: the camera has gone";
    source_.reset();
    EXPECT_CALL(refuse_, Call(kFirst));
    clients_.setProcesses({kFirst});
    EXPECT_TRUE(streaming().empty());
}

TEST_F(StreamClientsTest, RemovesClientsWithoutTheSourcesThatHaveGone)
{
    clients_.setProcesses({kFirst});
    source_.reset();
    provider_.reset();
    clients_.setProcesses({});
    EXPECT_TRUE(streaming().empty());
}

}  // namespace
}  // namespace cmio
