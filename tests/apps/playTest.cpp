// kiv play: a window that is told what to do by keys.
#include <gmock/gmock.h>
#include <gtest/gtest.h>  // before X, whose macros it cannot stand

#include <X11/keysym.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "tests/apps/program.h"
#include "tests/x11/xPeer.h"

using testing::HasSubstr;

namespace {

constexpr int frames = 8;

class play : public testing::Test {
protected:
    // Frame n is grey, 5 + 29 n; one frame in two seconds, so that the test is in time.
    void SetUp() override
    {
        shell("ffmpeg -v error -f lavfi -i color=black:s=64x48:r=1/2 -frames:v 8 -vf "
              "format=yuvj422p,geq=lum='20+25*N':cb=128:cr=128 -c:v mjpeg -q:v 2 "
              + clip);
    }

    // Waits until frame `n` fills the window.
    void expectFrame(XPeer& peer, Window area, int n)
    {
        auto is = [n](const WindowPicture& seen) { return frameIn(seen) == n; };
        EXPECT_EQ(frameIn(peer.pictureWhen(area, is)), n);
    }

    // Which frame fills the window; -1: none does.
    static int frameIn(const WindowPicture& seen)
    {
        const int level = int(seen.at(0, 0) & 255);
        const int n = (level + 9) / 29;
        const bool grey
            = std::ranges::all_of(seen.pixels, [level](uint32_t pixel) { return pixel == uint32_t(level) * 0x10101U; });
        return grey && abs(level - 5 - 29 * n) <= 2 ? n : -1;
    }

    Folder folder;
    const std::string clip = folder / "clip.mov";
};

TEST_F(play, SpacePausesAndArrowsStepFrameByFrame)
{
    XPeer peer;
    Program kiv({"play", "--json", clip, "--zoom", "2"});
    const Window area = peer.drawingArea();
    expectFrame(peer, area, 0);
    peer.key(area, XK_space);
    for (int n = 1; n < frames; ++n) {
        peer.key(area, XK_Right);
        expectFrame(peer, area, n);
    }
    for (int n = frames - 2; n >= 0; --n) {
        peer.key(area, XK_Left);
        expectFrame(peer, area, n);
    }
    peer.key(area, XK_Left);  // there is none before the first
    for (int n = 1; n < frames - 1; ++n)
        peer.key(area, XK_Right);
    expectFrame(peer, area, frames - 2);
    peer.key(area, XK_space);  // goes on from there, to the end
    expectFrame(peer, area, frames - 1);
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const auto summary = kiv.summary();
    EXPECT_EQ(summary["nodes"].back()["shown"], summary["frames"]);
    for (const auto& pool : summary["pools"])
        EXPECT_EQ(pool["lost"], 0) << pool;
}

TEST_F(play, APausedPictureStaysThroughCoveringAndResizing)
{
    XPeer peer;
    Program kiv({"play", clip});
    const Window area = peer.drawingArea();
    expectFrame(peer, area, 0);
    peer.key(area, XK_Right);
    expectFrame(peer, area, 1);

    const GC gc = XCreateGC(peer.display(), area, 0, nullptr);
    XSetForeground(peer.display(), gc, 0xff0000);
    XFillRectangle(peer.display(), area, gc, 10, 10, 20, 20);
    XFreeGC(peer.display(), gc);
    peer.expose(area, 10, 10, 20, 20);
    expectFrame(peer, area, 1);

    peer.resize(peer.shellOf(area), 102, 82);
    const WindowPicture larger = peer.pictureWhen(area, [](const WindowPicture& seen) {
        return seen.width == 100 && seen.at(0, 0) != 0 && seen.at(63, 47) == seen.at(0, 0);
    });
    ASSERT_EQ(larger.width, 100);
    EXPECT_NEAR(int(larger.at(0, 0) & 255), 5 + 29, 2);
    EXPECT_EQ(larger.at(63, 47), larger.at(0, 0)) << "at the upper left";

    peer.key(area, XK_q);
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    EXPECT_THAT(kiv.out, HasSubstr("display"));
}

TEST_F(play, ACamerasPictureStandsStillWhilePaused)
{
    XPeer peer;
    Program kiv({"play", "--json", "video:pattern", "--size", "160x120"});
    const Window area = peer.drawingArea();
    peer.pictureWhen(area, [](const WindowPicture& seen) { return seen.at(0, 60) != 0; });
    peer.key(area, XK_space);
    WindowPicture last;
    int same = 0;
    const WindowPicture still = peer.pictureWhen(area, [&](const WindowPicture& seen) {
        same = seen.pixels == last.pixels ? same + 1 : 0;
        last = seen;
        return same == 30;  // a third of a second, ten pictures of the camera
    });
    EXPECT_EQ(same, 30);
    peer.key(area, XK_space);
    EXPECT_NE(peer.pictureWhen(area, [&](const WindowPicture& seen) { return seen.pixels != still.pixels; }).pixels,
              still.pixels);

    peer.askToClose(peer.shellOf(area));
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const auto summary = kiv.summary();
    EXPECT_GT(summary["nodes"].back()["shown"], 0);
    EXPECT_LT(summary["nodes"].back()["shown"], summary["frames"]);
}

TEST_F(play, ShowsWhatAPeerSendsUntilItLeaves)
{
    XPeer peer;
    const std::string url = "unix:" + (folder / "socket");
    Program kiv({"play", url, "--size", "64x48"});
    const Window area = peer.drawingArea();
    ASSERT_NE(kiv.waitForLine("listening"), "");
    Program sender({"run", "movie " + clip + " every loop ! send " + url + " lossless"});
    for (int n : {0, 3, 7})
        expectFrame(peer, area, n);
    sender.signal(SIGINT);
    EXPECT_EQ(sender.wait(), 0) << sender.err;
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
}

TEST_F(play, ASignalEndsItInOrder)
{
    XPeer peer;
    Program kiv({"play", "--json", clip, "--loop"});
    expectFrame(peer, peer.drawingArea(), 0);
    kiv.signal(SIGTERM);
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    EXPECT_GT(kiv.summary()["frames"], 0);
}

TEST_F(play, ALostServerEndsItWithALine)
{
    XServer server;
    ASSERT_FALSE(server.name().empty());
    OtherDisplay there(server.name().c_str());
    Program kiv({"play", clip});
    {
        XPeer peer;  // gone before the server is
        expectFrame(peer, peer.drawingArea(), 0);
    }
    server.end();
    EXPECT_EQ(kiv.wait(), 1);
    EXPECT_THAT(kiv.err, HasSubstr("node 3 'display': the X server is gone"));
}

TEST_F(play, WrongLinesAreNamed)
{
    Program missing({"play", clip + "x"});
    EXPECT_EQ(missing.wait(), 2);
    EXPECT_THAT(missing.err, HasSubstr("FILE '" + clip + "x' cannot be read"));
    Program sizeless({"play", "tcp://:5000"});
    EXPECT_EQ(sizeless.wait(), 2);
    EXPECT_THAT(sizeless.err, HasSubstr("write --size"));
    OtherDisplay none(":77");
    Program blind({"play", clip});
    EXPECT_EQ(blind.wait(), 1);
    EXPECT_THAT(blind.err, HasSubstr("there is no display ':77'\n"));
}

}  // namespace
