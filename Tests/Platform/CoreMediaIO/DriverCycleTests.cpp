#include "Platform/CoreMediaIO/linux/DriverCycle.h"

#include <gtest/gtest.h>

namespace cmio {
namespace {

// A stream and its graph, in the order in which PipeWire 1.4 calls.
class Graph {
public:
    // Whether clients find the frame in the cycle that this begins.
    bool trigger(bool hasFrame)
    {
        bool isQueued = handOver(cycle_.process(), hasFrame);
        const bool isThereFromTheBeginning = isQueued;
        if (!isQueued) isQueued = handOver(cycle_.triggerDone(), hasFrame);
        bool isPassedOn = isThereFromTheBeginning;
        if (!isFinished_) {
            isPassedOn = isQueued && !isThereFromTheBeginning;
            if (!isQueued) handOver(cycle_.triggerDone(), hasFrame);
        }
        isFinished_ = false;
        return isPassedOn;
    }
    void finish()
    {
        cycle_.triggerDone();
        isFinished_ = true;
    }
    void leave()
    {
        cycle_.reset();
        isFinished_ = true;
    }

private:
    bool handOver(bool isWanted, bool hasFrame)
    {
        if (!isWanted || !hasFrame) return false;
        cycle_.handedOver();
        return true;
    }

    DriverCycle cycle_{true};
    bool isFinished_ = true;
};

TEST(DriverCycle, HandsAFrameOverAtOnceWhereClientsHaveFinished)
{
    DriverCycle cycle(true);
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(cycle.process());
        cycle.handedOver();
        EXPECT_FALSE(cycle.triggerDone());
    }
}

TEST(DriverCycle, HandsAFrameOverLateWhereAClientHasNotFinished)
{
    DriverCycle cycle(true);
    ASSERT_TRUE(cycle.process());
    cycle.handedOver();
    for (int round = 0; round < 3; ++round) {
        EXPECT_FALSE(cycle.process());
        EXPECT_TRUE(cycle.triggerDone());
        cycle.handedOver();
    }
}

TEST(DriverCycle, HandsEachFrameOverAtOnceWherePipeWireFinishesNothing)
{
    DriverCycle cycle(false);
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(cycle.process());
        cycle.handedOver();
    }
}

TEST(DriverCycle, PassesEachFrameOnWhetherClientsFinishOrNot)
{
    Graph graph;
    for (const bool finishes : {true, true, false, false, true, false, true}) {
        EXPECT_TRUE(graph.trigger(true));
        if (finishes) graph.finish();
    }
}

TEST(DriverCycle, IsNotMisledByTriggersWithoutAFrame)
{
    Graph graph;
    for (const bool finishes : {true, false, false, true, false, true}) {
        EXPECT_FALSE(graph.trigger(false));
        if (finishes) graph.finish();
        EXPECT_TRUE(graph.trigger(true));
        EXPECT_FALSE(graph.trigger(false));
        EXPECT_TRUE(graph.trigger(true));
        if (finishes) graph.finish();
    }
}

TEST(DriverCycle, BeginsAnewWhenTheNodeHasLeftTheGraph)
{
    Graph graph;
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(graph.trigger(true));
        EXPECT_TRUE(graph.trigger(true));
        graph.leave();
    }
}

}  // namespace
}  // namespace cmio
