// Windows and OpenGL in a graph: what stands on the screen is what was sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>  // before X, whose macros it cannot stand

#include <cstdlib>

#include "tests/apps/pngFile.h"
#include "tests/apps/program.h"
#include "tests/x11/xPeer.h"

using testing::HasSubstr;

namespace {

class display : public testing::Test {
protected:
    // Two pictures, one the other's negative.
    void SetUp() override
    {
        shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=25 -vf negate=enable=\"eq(n\\,1)\" -frames:v 2 "
              "-pix_fmt yuvj422p -c:v mjpeg -q:v 2 "
              + clip);
    }

    // Both pictures as they come to a sink behind those nodes.
    std::vector<PngPicture> pictures(const std::string& nodes)
    {
        Program kiv({"run", "movie " + clip + " every ! " + nodes + " ! snapshot " + folder / "p-%d.png"});
        EXPECT_EQ(kiv.wait(), 0) << kiv.err;
        return {readPng(folder / "p-1.png"), readPng(folder / "p-2.png")};
    }

    Folder folder;
    const std::string clip = folder / "clip.mov";
};

// Pixels of a window that are not as far as that from what they should be.
template <class Expected>
int wrongPixels(const WindowPicture& seen, int width, int height, int allowed, Expected expected)
{
    if (seen.width != width || seen.height != height)
        return -1;
    int wrong = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            wrong += apart(seen.at(x, y), expected(x, y)) > allowed;
    return wrong;
}

struct Shown {
    const char* nodes;
    int zoom, allowed;
};

class displayOf : public display, public testing::WithParamInterface<Shown> { };

TEST_P(displayOf, ShowsEachPixelAsLargeAsAskedFor)
{
    const auto [nodes, zoom, allowed] = GetParam();
    const PngPicture first = pictures(nodes).front();
    shell("ffmpeg -v error -y -i " + clip + " -frames:v 1 -c copy " + folder / "still.mov");

    XPeer peer;
    Program kiv({"run", "--json",
                 "movie " + folder / "still.mov" + " loop ! " + nodes + " ! display zoom=" + std::to_string(zoom)});
    const Window area = peer.drawingArea();
    auto wrong = [&](const WindowPicture& seen) {
        return wrongPixels(seen, 64 * zoom, 48 * zoom, allowed,
                           [&](int x, int y) { return first.at(x / zoom, y / zoom); });
    };
    EXPECT_EQ(wrong(peer.pictureWhen(area, [&](const WindowPicture& seen) { return wrong(seen) == 0; })), 0);

    peer.askToClose(peer.shellOf(area));
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const auto summary = kiv.summary();
    EXPECT_GT(summary["frames"], 0);
    EXPECT_EQ(summary["nodes"].back()["shown"], summary["frames"]);
    for (const auto& pool : summary["pools"])
        EXPECT_EQ(pool["lost"], 0) << pool;
}

INSTANTIATE_TEST_SUITE_P(all, displayOf,
                         testing::Values(Shown{"jpegdec", 1, 1}, Shown{"jpegdec", 3, 1},
                                         Shown{"jpegdec ! convert packing=RGBA", 2, 0},
                                         Shown{"jpegdec ! convert packing=RGB", 1, 0},
                                         Shown{"jpegdec ! pixeltrans", 2, 0}));

TEST_F(display, InterlacedPutsTwoFieldsIntoOnePicture)
{
    const std::vector<PngPicture> fields = pictures("jpegdec ! convert packing=RGBA");
    for (int zoom : {1, 2}) {
        XPeer peer;
        Program kiv({"run",
                     "movie " + clip + " loop every ! jpegdec ! convert packing=RGBA ! display interlaced zoom="
                         + std::to_string(zoom)});
        const Window area = peer.drawingArea();
        auto wrong = [&](const WindowPicture& seen) {
            return wrongPixels(seen, 64 * zoom, 96 * zoom, 0,
                               [&](int x, int y) { return fields[size_t(y % 2)].at(x / zoom, y / 2 / zoom); });
        };
        EXPECT_EQ(wrong(peer.pictureWhen(area, [&](const WindowPicture& seen) { return wrong(seen) == 0; })), 0);
        peer.askToClose(peer.shellOf(area));
        EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    }
}

// A window that another program destroys: no words of the X library, and the summary all the same.
TEST_F(display, DestroyedWindowEndsTheRunWithItsSummary)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "so slow that the rasteriser still draws into the window that is gone, and faults";
#endif
    XPeer peer;
    Program kiv({"run", "--status", "video:pattern size=64x48 ! display"});
    EXPECT_NE(kiv.waitForLine(" frames "), "");
    const Window area = peer.drawingArea();
    ASSERT_NE(area, Window(None));
    XDestroyWindow(peer.display(), peer.shellOf(area));
    XFlush(peer.display());
    EXPECT_EQ(kiv.wait(), 1);
    EXPECT_THAT(kiv.err, HasSubstr("node 2 'display': the X server refuses a request"));
    EXPECT_THAT(kiv.out, HasSubstr("2  display"));
}

TEST_F(display, PixelTransferIsWithinOneOfTheClosedForm)
{
    const std::vector<PngPicture> plain = pictures("jpegdec"), transferred = pictures("jpegdec ! pixeltrans");
    for (size_t i = 0; i < 2; ++i)
        for (size_t p = 0; p < plain[i].pixels.size(); ++p)
            ASSERT_LE(apart(plain[i].pixels[p], transferred[i].pixels[p]), 1) << "picture " << i << ", pixel " << p;
}

// Decoded by ffmpeg, which draws nothing. The node opens ":0" by that name.
TEST_F(display, RenderedMovieShowsEachFrameWhereItIsAskedFor)
{
    if (getenv("KIV_NO_DISPLAY_0") != nullptr)
        GTEST_SKIP() << "the server is not :0";
    for (int n = 0; n < 2; ++n)
        shell("ffmpeg -v error -y -i " + clip + " -vf select='eq(n\\," + std::to_string(n)
              + ")' -frames:v 1 -sws_flags "
                "accurate_rnd+full_chroma_int+neighbor -pix_fmt rgb24 "
              + folder / "ref" + std::to_string(n + 1) + ".png");
    Program kiv(
        {"run", "--json", "moviegl " + clip + " every offset=8,4 ! ( snapshot " + folder / "gl%d.png" + ", display )"});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    EXPECT_EQ(kiv.summary()["frames"], 4);
    for (const char* n : {"1", "2"}) {
        const PngPicture reference = readPng(folder / "ref" + n + ".png"), drawn = readPng(folder / "gl" + n + ".png");
        int wrong = 0;
        for (int y = 0; y < 48; ++y)
            for (int x = 0; x < 64; ++x)
                wrong += apart(drawn.at(x, y), x < 8 || y < 4 ? 0 : reference.at(x - 8, y - 4)) > 2;
        EXPECT_EQ(wrong, 0) << "frame " << n;
    }
    Program looped({"run", "moviegl " + clip + " loop zoom=0.5,2 ! null", "--frames", "10"});
    EXPECT_EQ(looped.wait(), 0) << looped.err;
    Program misplaced({"run", "moviegl " + clip + " offset=3 ! null"});
    EXPECT_EQ(misplaced.wait(), 2);
    EXPECT_THAT(misplaced.err, HasSubstr("node 1 'moviegl': offset '3' must be X,Y"));
}

TEST_F(display, ShowsTwoWindowsAndSnapshotsAtOnce)
{
    XPeer peer;
    Program kiv({"run", "--json", "--frames", "25",
                 "movie " + clip + " loop every ! jpegdec ! ( display, display zoom=2, pixeltrans ! snapshot "
                     + folder / "s-%d.png" + " every=10 )"});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const auto summary = kiv.summary();
    EXPECT_EQ(summary["frames"], 75);
    EXPECT_EQ(summary["nodes"].back()["written"], 3);
    EXPECT_EQ(readPng(folder / "s-3.png").width, 64);
}

TEST_F(display, ALostServerEndsTheRunWithALine)
{
    for (const char* nodes : {"display", "pixeltrans ! null"}) {
        SCOPED_TRACE(nodes);
        XServer server;
        ASSERT_FALSE(server.name().empty());
        OtherDisplay there(server.name().c_str());
        Program kiv({"run", "--status", std::string("video:pattern size=64x48 ! ") + nodes});
        EXPECT_NE(kiv.waitForLine(" frames "), "");
        server.end();
        EXPECT_EQ(kiv.wait(), 1) << kiv.err;
        EXPECT_THAT(kiv.err, HasSubstr("': the X server is gone"));
    }
}

TEST_F(display, WithoutADisplaySaysSo)
{
    OtherDisplay none(":77");
    Program shown({"run", "video:pattern ! display"});
    EXPECT_EQ(shown.wait(), 1);
    EXPECT_EQ(shown.err, "kiv: node 2 'display': there is no display ':77'\n");
    Program drawn({"run", "video:pattern ! pixeltrans ! null"});
    EXPECT_EQ(drawn.wait(), 2);
    EXPECT_THAT(drawn.err, HasSubstr("node 2 'pixeltrans': there is no display ':77'\n"));
    Program other({"run", "video:pattern ! null", "--frames", "3"});
    EXPECT_EQ(other.wait(), 0) << other.err;
}

}  // namespace
