// kivStatsTest.cpp - what an observer sees of a graph, and what is counted of it.
#include "core/kivStats.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"

using testing::ElementsAre;

namespace {

// Writes down each hop, and hands on.
class Recorder : public kivObserver {
public:
    int deliver(kivObj* from, kivObj* to, ZVbuffer buffer) override
    {
        hops.push_back(std::string(from->getName()) + ">" + to->getName());
        return to->receive(buffer);
    }
    std::vector<std::string> hops;
};

class kivStatsTest : public testing::Test {
protected:
    kivStatsTest()
    {
        root.addObject(&right);
        root.addObject(&left);
        left.addObject(&leaf);
        EXPECT_EQ(statsCreate("test", 4, &page), 0);
    }
    ~kivStatsTest() override
    {
        kivSetObserver(nullptr);
        statsClose(page);
    }
    STATSnode record(int index)
    {
        STATSnode node = {};
        EXPECT_EQ(statsGetNode(page, index, &node), 0);
        return node;
    }

    PoolFixture pool{2};
    CallLog log;
    FakeNode root{log, "root"}, left{log, "left"}, right{log, "right"}, leaf{log, "leaf"};
    STATSpage page = nullptr;
};

TEST_F(kivStatsTest, AnObserverStandsInEveryHopAndNobodyMissesIt)
{
    Recorder recorder;
    const ZVbuffer buffer = pool.take();
    log.clear();
    kivSetObserver(&recorder);
    root.propagate(buffer);
    EXPECT_THAT(recorder.hops, ElementsAre("root>left", "left>leaf", "root>right"));
    const CallLog observed = log;
    kivSetObserver(nullptr);
    log.clear();
    root.propagate(buffer);
    EXPECT_EQ(log, observed);
    EXPECT_EQ(recorder.hops.size(), 3u);
}

TEST_F(kivStatsTest, CountsWhatComesAndWhatIsHandedOn)
{
    kivStats stats(page);
    stats.addNode(&root, "source", "JPEG", 1);
    stats.addNode(&left, "filter", "", 2);
    stats.addNode(&leaf, "sink", "", 3);  // `right` is not known, and passes uncounted
    kivSetObserver(&stats);
    const ZVbuffer buffer = pool.take();
    unsigned long long now = 0;
    zvGetUST(&now);
    zvBufferSetUSTMSCpair(buffer, {(long long)(now)-20'000'000, 0});
    for (int i = 0; i < 1000; ++i)
        root.propagate(buffer);

    EXPECT_EQ(record(0).in, 0);
    EXPECT_EQ(record(0).out, 1000);
    EXPECT_EQ(record(1).in, 1000);
    EXPECT_EQ(record(1).out, 1000);
    EXPECT_EQ(record(2).in, 1000);
    EXPECT_EQ(record(2).parent, 1);
    EXPECT_STREQ(record(1).name, "left");
    EXPECT_EQ(stats.recordOf(&right), nullptr);
    EXPECT_EQ(std::count(log.begin(), log.end(), "right.receive"), 1000);

    // A fast node is timed now and then; every timed frame has its age.
    EXPECT_GT(record(2).timed, 0);
    EXPECT_LT(record(2).timed, 500);
    EXPECT_GT(record(1).timedNs, 0);
    long long ages = 0;
    for (int i = 0; i < STATS_AGES; ++i)
        ages += i >= statsAgeClass(20'000'000) ? record(2).ages[i] : 0;
    EXPECT_EQ(ages, record(2).timed);
}

// What a node calls in turn is not its own time.
TEST_F(kivStatsTest, TakesTheTimeOfOneNodeOffTheOther)
{
    class Busy : public FakeNode {
    public:
        using FakeNode::FakeNode;
        int receive(ZVbuffer) override
        {
            unsigned long long begin = 0, now = 0;
            for (zvGetUST(&begin), now = begin; now < begin + 5'000'000; zvGetUST(&now)) { }
            return kivErrNone;
        }
    } busy(log, "busy");
    leaf.addObject(&busy);
    kivStats stats(page);
    stats.addNode(&root, "source", "", 1);
    stats.addNode(&left, "filter", "", 2);
    stats.addNode(&leaf, "filter", "", 3);
    stats.addNode(&busy, "sink", "", 4);
    kivSetObserver(&stats);
    const ZVbuffer buffer = pool.take();
    root.propagate(buffer);
    EXPECT_GE(record(3).timedNs, 5'000'000);
    EXPECT_LT(record(2).timedNs, record(3).timedNs / 2);
    EXPECT_LT(record(1).timedNs, record(3).timedNs / 2);
}

}  // namespace
