// Peers that go, sleep or never come, and a run that is interrupted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "tests/apps/program.h"

using testing::HasSubstr;

namespace {

constexpr int noticeMs = 2000;  // within which a peer's death is seen

class peers : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder_ = new Folder;
        shell("ffmpeg -v error -f lavfi -i testsrc2=s=640x360:r=30 -frames:v 60 -c:v mjpeg -q:v 3 " + movie());
    }
    static void TearDownTestSuite() { delete folder_; }
    static std::string movie() { return *folder_ / "clip.mov"; }

    static std::string receive(const std::string& options) { return "recv tcp://:0 size=640x360 " + options; }

private:
    static Folder* folder_;
};
Folder* peers::folder_;

void expectNothingLost(const Program& kiv)
{
    const nlohmann::json summary = kiv.summary();
    ASSERT_TRUE(summary.is_object()) << kiv.out << kiv.err;
    for (const auto& pool : summary["pools"])
        EXPECT_EQ(pool["lost"], 0) << pool;
}

// Somewhere within the first half second, as the seed has it.
void someTime(std::mt19937& random) { usleep(useconds_t(random() % 500000)); }

TEST_F(peers, AReceiverWaitsForTheNextWhenASenderWasKilled)
{
    std::mt19937 random(7);
    Program receiver({"run", "--json", receive("") + " ! jpegdec ! null"});
    const std::string url = urlIn(receiver.waitForLine("listening on"));
    int descriptors = 0;
    for (int i = 0; i < 4; ++i) {
        Program sender({"run", "movie " + movie() + " every loop ! send " + url});
        ASSERT_NE(receiver.waitForLine("has come"), "") << receiver.err;
        someTime(random);
        sender.signal(SIGKILL);
        sender.wait();
        ASSERT_NE(receiver.waitForLine("waiting for the next peer", noticeMs), "") << receiver.err;
        EXPECT_THAT(receiver.err, HasSubstr("node 1 'recv': "));
        receiver.err.clear();
        // A pool that runs empty for the first time takes a pair for good.
        const int now = std::stoi(shell("ls /proc/" + std::to_string(receiver.pid()) + "/fd | wc -l"));
        descriptors = descriptors == 0 ? now : descriptors;
        EXPECT_LE(now, descriptors + 2);
    }
    Program last({"run", "--frames", "20", "movie " + movie() + " every ! send lossless " + url});
    EXPECT_EQ(last.wait(), 0) << last.err;
    ASSERT_NE(receiver.waitForLine("waiting for the next peer", noticeMs), "") << receiver.err;
    receiver.signal(SIGINT);
    EXPECT_EQ(receiver.wait(), 0) << receiver.err;
    expectNothingLost(receiver);
    EXPECT_GE(receiver.summary()["frames"], 1);
}

TEST_F(peers, AReceiverThatIsAskedToEndsWithItsSender)
{
    Program receiver({"run", "--json", receive("once") + " ! jpegdec ! null"});
    Program sender({"run", "movie " + movie() + " every loop ! send " + urlIn(receiver.waitForLine("listening on"))});
    ASSERT_NE(receiver.waitForLine("has come"), "") << receiver.err;
    sender.signal(SIGKILL);
    sender.wait();
    const long long killed = milliseconds();
    EXPECT_GE(receiver.wait(), 0);
    EXPECT_LE(milliseconds() - killed, noticeMs);
    EXPECT_THAT(receiver.err, HasSubstr("frames"));
    expectNothingLost(receiver);
}

TEST_F(peers, ASenderSaysThatItsReceiverHasGone)
{
    std::mt19937 random(11);
    for (const char* how : {"every loop", "loop"}) {
        Program receiver({"run", receive("") + " ! null"});
        const std::string url = urlIn(receiver.waitForLine("listening on"));
        Program sender(
            {"run", "--json", std::string("movie ") + movie() + " " + how + " ! jpegdec ! jpegenc ! send " + url});
        ASSERT_NE(receiver.waitForLine("has come"), "") << receiver.err;
        someTime(random);
        receiver.signal(SIGKILL);
        receiver.wait();
        const long long killed = milliseconds();
        EXPECT_EQ(sender.wait(), 1);
        EXPECT_LE(milliseconds() - killed, noticeMs);
        EXPECT_THAT(sender.err, HasSubstr("'send': "));
        EXPECT_EQ(std::ranges::count(sender.err, '\n'), 1) << sender.err;
        expectNothingLost(sender);
    }
}

// The graph stands still while there is no receiver.
TEST_F(peers, AListeningSenderServesOneReceiverAfterTheOther)
{
    Program sender({"run", "--json", "movie " + movie() + " every loop ! send listen lossless tcp://:0"});
    const std::string url = urlIn(sender.waitForLine("listening on"));
    for (int i = 0; i < 2; ++i) {
        Program receiver({"run", "--frames", "10", "recv connect lossless size=640x360 " + url + " ! null"});
        EXPECT_EQ(receiver.wait(), 0) << receiver.err;
        ASSERT_NE(sender.waitForLine("waiting for the next peer", noticeMs), "") << sender.err;
        sender.err.clear();
    }
    sender.signal(SIGTERM);
    EXPECT_EQ(sender.wait(), 0) << sender.err;
    expectNothingLost(sender);
    const nlohmann::json summary = sender.summary(), counts = summary["nodes"][1];
    EXPECT_GE(counts["sent"], 20);  // to both
    EXPECT_GE(summary["frames"], counts["sent"].get<int>() + counts["dropped"].get<int>());
}

TEST_F(peers, TheTimeEndsAlsoARunThatNobodyCalls)
{
    Program receiver({"run", "--json", "--seconds", "0.2", receive("") + " ! jpegdec ! null"});
    EXPECT_EQ(receiver.wait(20000), 0) << receiver.err;
    EXPECT_EQ(receiver.summary()["frames"], 0);
}

// The receiver takes nothing at all: the sender goes on at its own speed, in the
// memory that it had, and counts what it could not send.
TEST_F(peers, ASleepingReceiverHoldsNobodyUp)
{
    Program receiver({"run", receive("") + " ! null"});
    const std::string url = urlIn(receiver.waitForLine("listening on"));
    receiver.signal(SIGSTOP);
    auto send = [&](const char* frames) {
        Program sender({"run", "--json", "--frames", frames, "movie " + movie() + " every loop ! send " + url});
        EXPECT_EQ(sender.wait(), 1);  // what waited at the end could not go out
        EXPECT_THAT(sender.err, HasSubstr("'send': the last frames did not go out"));
        expectNothingLost(sender);
        return sender.summary();
    };
    const nlohmann::json little = send("300"), much = send("3000");
    EXPECT_EQ(much["frames"], 3000);
    EXPECT_GT(much["dropped"], 2500);
    EXPECT_LT(double(much["maxRssKb"]), double(little["maxRssKb"]) + 4096);
    EXPECT_GT(double(much["framesPerSecond"]), 300);  // ten times the movie's rate
}

TEST_F(peers, ADemoThatWasKilledLeavesNoSenderBehind)
{
    Folder out;
    Program demo({"demo", "--seconds", "60", "--out", out / "."});
    const std::string pid = std::to_string(demo.pid());
    for (int tries = 0; contents(out / "demo-1.png").empty() && tries < 2000; ++tries)
        usleep(10000);
    pollfd sender = {};
    sender.fd = int(syscall(SYS_pidfd_open, std::stoi(contents("/proc/" + pid + "/task/" + pid + "/children")), 0));
    sender.events = POLLIN;
    ASSERT_GE(sender.fd, 0);
    demo.signal(SIGKILL);
    EXPECT_EQ(poll(&sender, 1, noticeMs), 1);
    ::close(sender.fd);
}

TEST_F(peers, AnInterruptedRunEndsInOrderWithItsSummary)
{
    Program kiv({"run", "--json", "--status", "movie " + movie() + " loop ! jpegdec ! null"});
    ASSERT_NE(kiv.waitForLine("frames"), "");
    kiv.signal(SIGINT);
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    EXPECT_GE(kiv.summary()["frames"], 1);
    expectNothingLost(kiv);
}

TEST_F(peers, ASecondSignalEndsTheProcess)
{
    Program kiv({"run", receive("") + " ! null"});
    ASSERT_NE(kiv.waitForLine("listening on"), "");
    kiv.signal(SIGSTOP);  // so that both are there when it goes on
    kiv.signal(SIGINT);
    kiv.signal(SIGTERM);
    kiv.signal(SIGCONT);
    EXPECT_EQ(kiv.wait(), 128 + SIGTERM) << kiv.err;
}

}  // namespace
