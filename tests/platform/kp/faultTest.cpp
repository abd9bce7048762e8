// faultTest.cpp - what a fault script makes of a stream, and that it comes back.
#include <gmock/gmock.h>

#include <random>
#include <set>

#include "tests/platform/kp/videoRig.h"

using testing::HasSubstr;

namespace {

constexpr int width = 160, height = 96, frameBytes = width * height * 2;

TEST(kpFaults, ReadsItsScripts)
{
    Rig rig("pattern");
    for (const char* good : {"", " ; ;", "drop 3", "drop 3 10", "lose 0 5", "stall 4 100", "unplug 7;return 20",
                             "fail 0x4D56000C", "fail 44 2", "drop 1;lose 2 ; stall 3 4\n;unplug 5"})
        EXPECT_EQ(rig.faults(good), 0) << good;
    for (const char* bad :
         {"drop", "drop x", "drop -1", "drop 1 -2", "stall 4", "unplug 3 4", "return", "return 1 2", "explode 3",
          "drop 1 2 3", "drop 1;lose", "fail", "fail 99999999999", "drop 99999999999999", "dropping 4", "drop 1,2"}) {
        EXPECT_EQ(rig.faults(bad), -1) << bad;
        char detail[ZV_ERROR_DETAIL_MAX] = "";
        zvGetError(nullptr, detail);
        EXPECT_THAT(detail, HasSubstr("is no statement")) << bad;
    }
    EXPECT_EQ(rig.text("no such key", "x"), -1);
}

class kpFaultyCamera : public testing::Test {
protected:
    void begin(const std::string& script)
    {
        ASSERT_EQ(rig.faults(script), 0);
        ASSERT_EQ(rig.registerPool(pool), 0);
        ASSERT_EQ(rig.begin(), 0);
    }
    // Number and counter of each picture agree with what was told as lost before it.
    long long nextNumber()
    {
        for (;;) {
            const KPEvent event = rig.next();
            if (event.reason == 0) {
                ADD_FAILURE() << "no event comes any more";
                return -1;
            }
            lost += event.reason == KPSequenceLost ? event.count : 0;
            if (event.reason != KPTransferComplete)
                continue;
            EXPECT_EQ(event.stamp.msc, lost + taken++);
            EXPECT_EQ(Picture(event).number(width, height), event.stamp.msc);
            return event.stamp.msc;
        }
    }

    PoolFixture pool{4, frameBytes};
    Rig rig{"pattern", width, height, 0};
    long long lost = 0;
    long long taken = 0;
};

TEST_F(kpFaultyCamera, DropsAndLosesAndSaysSo)
{
    begin("drop 2; drop 5 3; lose 10 100");
    for (const int expected : {0, 1, 3, 4, 8, 9, 110, 111})
        EXPECT_EQ(nextNumber(), expected);
    EXPECT_EQ(lost, 104);
}

TEST_F(kpFaultyCamera, TellsAStallOnceAndGoesOn)
{
    begin("stall 2 300; stall 4 1");
    EXPECT_EQ(rig.next().stamp.msc, 0);
    const KPEvent before = rig.next();
    EXPECT_EQ(before.stamp.msc, 1);
    EXPECT_EQ(rig.next().reason, KPSyncLost);
    KPEvent event = {};
    EXPECT_EQ(kpEventRecv(rig.server, rig.path, &event), -1);
    EXPECT_EQ(kpGetErrno(), KP_ERRNO_NO_EVENT) << "the device lives";
    event = rig.next();
    EXPECT_EQ(event.stamp.msc, 2);
    EXPECT_GE(event.stamp.ust - before.stamp.ust, 300000000);
    EXPECT_EQ(rig.next().stamp.msc, 3);
    EXPECT_EQ(rig.next().stamp.msc, 4) << "shorter than three periods";
}

TEST_F(kpFaultyCamera, IsGoneOnceAndComesBackWhenItIsOpenedAgain)
{
    begin("unplug 2; return 50");
    EXPECT_EQ(nextNumber(), 0);
    EXPECT_EQ(nextNumber(), 1);
    EXPECT_EQ(rig.next().reason, KPDeviceEvent);
    KPEvent event = {};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(kpEventRecv(rig.server, rig.path, &event), -1);
        EXPECT_EQ(kpGetErrno(), ENODEV) << "no loop waits for it";
    }
    EXPECT_FALSE(readableNow(rig.fd()));
    ASSERT_EQ(rig.giveUp(), 0);
    if (rig.take() != 0) {
        EXPECT_EQ(kpGetErrno(), ENODEV);
        while (rig.take() != 0)  // it has said when it is back
            poll(nullptr, 0, 1);
    }
    rig.set(KP_CONTROL_SIZE, width, height);
    rig.set(KP_CONTROL_RATE, 0, 1);
    lost = taken = 0;
    begin("");
    EXPECT_EQ(nextNumber(), 0);
}

TEST_F(kpFaultyCamera, BeginsAgainOnTheSamePathOnceItIsBack)
{
    begin("unplug 0; return 20");
    EXPECT_EQ(rig.next().reason, KPDeviceEvent);
    EXPECT_EQ(rig.end(), 0);
    EXPECT_EQ(rig.faults(""), 0);
    while (rig.begin() != 0)
        poll(nullptr, 0, 1);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(nextNumber(), i);
}

TEST_F(kpFaultyCamera, StaysAwayWithoutAWordOfReturning)
{
    begin("unplug 0");
    EXPECT_EQ(rig.next().reason, KPDeviceEvent);
    EXPECT_EQ(rig.end(), 0);
    EXPECT_EQ(rig.begin(), -1);
    EXPECT_EQ(rig.giveUp(), 0);
    EXPECT_EQ(rig.take(), -1);
    Rig elsewhere("pattern", width, height, 0);  // a server of its own finds it again
    EXPECT_EQ(elsewhere.registerPool(pool), 0);
    EXPECT_EQ(elsewhere.begin(), 0);
    EXPECT_EQ(elsewhere.next().stamp.msc, 0);
}

TEST(kpFaults, FailsAControlAsOftenAsToldTo)
{
    Rig rig("monitor");
    ASSERT_EQ(rig.faults("fail 44; fail 1 2"), 0);
    EXPECT_EQ(rig.set(KP_CONTROL_TIMING, 5), -1);
    EXPECT_EQ(rig.set(KP_CONTROL_TIMING, 5), -1);
    EXPECT_EQ(rig.get(KP_CONTROL_TIMING).intVal, 0);
    EXPECT_EQ(rig.set(KP_CONTROL_TIMING, 5), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(rig.set(KP_CONTROL_ZOOM, 1, 1), -1);
    EXPECT_EQ(rig.set(KP_CONTROL_FORMAT, 2), 0);
}

TEST(kpFaults, MeetTheMonitorToo)
{
    PoolFixture pool(2, frameBytes);
    Rig rig("monitor", width, height, 500);
    ASSERT_EQ(rig.faults("drop 1 50; stall 60 20; unplug 120"), 0);  // ranges that a busy machine does not jump over
    ASSERT_EQ(kpZVBufferSend(rig.server, rig.path, pool.take()), 0);
    ASSERT_EQ(rig.begin(), 0);
    std::set<int> reasons;
    while (reasons.insert(rig.next().reason), !reasons.contains(KPDeviceEvent) && !reasons.contains(0)) { }
    EXPECT_THAT(reasons, testing::IsSupersetOf({KPSequenceLost, KPSyncLost, KPDeviceEvent}));
    EXPECT_EQ(kpZVBufferSend(rig.server, rig.path, pool.take()), -1);
    EXPECT_EQ(kpGetErrno(), ENODEV);
    KPEvent event = {};
    EXPECT_EQ(kpEventRecv(rig.server, rig.path, &event), -1);
    EXPECT_EQ(kpGetErrno(), ENODEV);
}

// A path from nothing to running, as far as its faults let it; how far it came.
enum State { Closed, Taken, Set, Registered, Running };
constexpr int maxTries = 10;  // for each step

State open(Rig& rig, const std::string& script, const PoolFixture& pool)
{
    int tries = 0;
    while (rig.take() != 0)
        if (++tries == maxTries || poll(nullptr, 0, 2) != 0)
            return Closed;
    if (rig.faults(script) != 0)
        return Taken;
    tries = 0;
    while (rig.set(KP_CONTROL_SIZE, width, height) != 0)
        if (++tries == maxTries)
            return Taken;
    rig.set(KP_CONTROL_RATE, rig.output ? 1000 : 0, 1);
    if (rig.registerPool(pool) != 0)
        return Set;
    return rig.begin() == 0 ? Running : Registered;
}

// Two hundred lives with a fault each, met and left in every state.
TEST(kpFaults, LeaveNothingBehindInTwoHundredLives)
{
    std::mt19937 random(20);
    const auto upTo = [&](unsigned n) { return std::to_string(random() % n); };
    PoolFixture pool(6, frameBytes);
    {
        Rig first("monitor");
    }
    const int descriptors = openDescriptors();
    const int threads = runningThreads();
    {
        Rig camera("pattern", width, height, 0);
        Rig monitor("monitor", width, height, 1000);
        camera.giveUp();
        monitor.giveUp();
        int ran = 0;
        int gone = 0;
        for (int life = 0; life < 200; ++life) {
            const std::string scripts[]
                = {"drop " + upTo(3) + " 2", "lose " + upTo(3) + " 9", "stall " + upTo(3) + " " + upTo(8),
                   "unplug " + upTo(4) + "; return " + upTo(6), "fail 4 " + upTo(14)};
            const std::string& script = scripts[life % 5];
            SCOPED_TRACE("life " + std::to_string(life) + ": " + script);
            Rig& rig = life / 5 % 2 == 0 ? camera : monitor;
            const State state = open(rig, script, pool);
            ASSERT_NE(state, Closed) << "not back after " << maxTries << " tries";
            if (state == Running) {
                ++ran;
                ZVbuffer picture = rig.output ? pool.takeOwned() : nullptr;
                if (picture != nullptr) {
                    kpZVBufferSend(rig.server, rig.path, picture);
                    zvBufferFree(picture);
                }
                for (unsigned events = random() % 6; events > 0; --events) {
                    KPEvent event = rig.next();
                    ZVbuffer shot = nullptr;
                    gone += event.reason == KPDeviceEvent;
                    if (event.reason == 0 || event.reason == KPDeviceEvent)
                        break;
                    if (event.reason == KPTransferComplete && kpEventToZVBuffer(&event, &shot) == 0)
                        zvBufferFree(shot);
                }
            }
            if (life % 3 == 0)
                rig.end();
            EXPECT_EQ(rig.giveUp(), 0);
            EXPECT_EQ(poolReferences(pool.pool), 0);
            EXPECT_EQ(runningThreads(), threads);
        }
        EXPECT_GT(ran, 150);
        EXPECT_GT(gone, 10);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(runningThreads(), threads);
}

}  // namespace
