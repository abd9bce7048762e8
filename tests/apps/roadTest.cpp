// The road of a frame through the program: out of a movie, over a connection, into
// files. What comes out is compared with what ffmpeg and djpeg make of the same movie.
#include <gtest/gtest.h>
#include <png.h>

#include "tests/apps/program.h"

namespace {

struct Clip {
    const char *name, *rate, *sampling, *size;
    int frames;
};

// Every container, both rates, every sampling, an odd size.
constexpr Clip clips[] = {
    {"a.mov", "30", "yuvj420p", "175x143", 12},
    {"b.avi", "30000/1001", "yuvj422p", "176x144", 12},
    {"c.mp4", "30000/1001", "yuvj444p", "161x90", 12},
    {"d.mkv", "30", "gray", "131x97", 12},
};

std::string numbered(const char* stem, int number, const char* ending)
{
    char name[64];
    snprintf(name, sizeof name, "%s%02d%s", stem, number, ending);
    return name;
}

std::string rateInHeader(const Clip& clip)
{
    std::string rate = clip.rate;
    const size_t slash = rate.find('/');
    return slash == std::string::npos ? rate + ":1" : rate.replace(slash, 1, ":");
}

class road : public testing::TestWithParam<Clip> {
protected:
    void SetUp() override
    {
        const Clip& clip = GetParam();
        const std::string source = std::string(" -f lavfi -i testsrc=s=") + clip.size + ":r=" + clip.rate
            + " -frames:v " + std::to_string(clip.frames);
        if (std::string(clip.sampling) == "gray")
            makeGrey(source);
        else
            shell("ffmpeg -v error" + source + " -pix_fmt " + clip.sampling + " -c:v mjpeg -q:v 3 " + movie);
        shell("ffmpeg -v error -i " + movie + " -c copy -f mjpeg " + packets);
        shell("ffmpeg -v error -i " + movie + " -c copy -f image2 " + folder / "ref%02d.jpg");
    }

    void makeGrey(const std::string& source)
    {
        shell("cd " + (folder / "") + " && ffmpeg -v error" + source
              + " -pix_fmt gray g%02d.pgm && for f in g*.pgm; do "
              + "cjpeg -quality 80 $f > ${f%.pgm}.jpg; done && ffmpeg -v error -framerate " + GetParam().rate
              + " -i g%02d.jpg -c copy " + movie);
    }

    // Runs to a good end; its summary.
    nlohmann::json run(const std::string& graph)
    {
        Program kiv({"run", "--json", graph});
        EXPECT_EQ(kiv.wait(), 0) << graph << "\n" << kiv.err;
        EXPECT_EQ(kiv.err, "") << graph;
        return kiv.summary();
    }

    Folder folder;
    const std::string movie = folder / GetParam().name, packets = folder / "packets.mjpeg";
};

void expectNothingLost(const nlohmann::json& summary)
{
    ASSERT_TRUE(summary.is_object());
    EXPECT_FALSE(summary["pools"].empty());
    for (const auto& pool : summary["pools"])
        EXPECT_EQ(pool["lost"], 0) << pool;
}

TEST_P(road, EveryFrameIsThePacketOfTheFile)
{
    const nlohmann::json summary = run("movie " + movie + " every ! file " + folder / "x.mjpeg");
    EXPECT_EQ(summary["frames"], GetParam().frames);
    EXPECT_EQ(summary["dropped"], 0);
    expectNothingLost(summary);
    EXPECT_TRUE(contents(folder / "x.mjpeg") == contents(packets));
}

TEST_P(road, ALosslessConnectionBringsEveryFrameInOrder)
{
    Program receiver(
        {"run", "--json",
         std::string("recv tcp://:0 once lossless size=") + GetParam().size + " ! file " + folder / "y.mjpeg"});
    const std::string url = urlIn(receiver.waitForLine("listening on"));
    const nlohmann::json sent = run("movie " + movie + " every ! send lossless " + url);
    EXPECT_EQ(receiver.wait(), 0) << receiver.err;
    const nlohmann::json received = receiver.summary();
    EXPECT_EQ(sent["frames"], GetParam().frames);
    EXPECT_EQ(received["frames"], GetParam().frames);
    expectNothingLost(sent);
    expectNothingLost(received);
    EXPECT_TRUE(contents(folder / "y.mjpeg") == contents(packets));
}

// Played at its rate every frame has its turn, on a machine that keeps up; frames
// that are late are counted, and all that arrive are the file's, in order.
TEST_P(road, PlayedFramesAreTheFilesInOrder)
{
    const nlohmann::json summary = run("movie " + movie + " ! file " + folder / "p%02d.jpg");
    const int frames = summary["frames"];
    EXPECT_EQ(frames + int(summary["dropped"]), GetParam().frames);
    int next = 1;
    for (int i = 1; i <= frames; ++i) {
        const std::string frame = contents(folder / numbered("p", i, ".jpg"));
        while (next <= GetParam().frames && contents(folder / numbered("ref", next, ".jpg")) != frame)
            ++next;
        EXPECT_LE(next++, GetParam().frames) << "frame " << i;
    }
    EXPECT_EQ(contents(folder / numbered("p", frames, ".jpg")),
              contents(folder / numbered("ref", GetParam().frames, ".jpg")));
}

TEST_P(road, PicturesAreWhatTheReferenceDecoderMakes)
{
    run("movie " + movie + " every ! jpegdec ! file " + folder / "o%02d.ppm");
    run("movie " + movie + " every ! jpegdec ! file " + folder / "o%02d.png");
    run("movie " + movie + " every ! jpegdec ! file " + folder / "o.y4m");
    const std::string video = contents(folder / "o.y4m");
    size_t at = video.find('\n') + 1;
    EXPECT_NE(video.find(" F" + rateInHeader(GetParam()) + " "), std::string::npos) << video.substr(0, at);

    for (int i = 1; i <= GetParam().frames; ++i) {
        const std::string jpeg = folder / numbered("ref", i, ".jpg");
        const std::string colour = shell("djpeg -dct int -rgb -pnm " + jpeg);
        EXPECT_TRUE(contents(folder / numbered("o", i, ".ppm")) == colour) << "frame " << i;

        png_image png = {};
        png.version = PNG_IMAGE_VERSION;
        ASSERT_TRUE(png_image_begin_read_from_file(&png, (folder / numbered("o", i, ".png")).c_str()));
        png.format = PNG_FORMAT_RGB;
        std::string pixels(PNG_IMAGE_SIZE(png), '\0');
        ASSERT_TRUE(png_image_finish_read(&png, nullptr, pixels.data(), 0, nullptr));
        EXPECT_TRUE(colour.ends_with(pixels)) << "frame " << i;

        const std::string grey = shell("djpeg -dct int -grayscale -pnm " + jpeg);
        const size_t luma = size_t(png.width) * png.height, chroma = size_t(png.width + 1) / 2 * png.height;
        ASSERT_EQ(video.substr(at, 6), "FRAME\n") << "frame " << i;
        EXPECT_TRUE(grey.ends_with(video.substr(at + 6, luma))) << "frame " << i;
        at += 6 + luma + 2 * chroma;
    }
    EXPECT_EQ(at, video.size());
}

INSTANTIATE_TEST_SUITE_P(containers, road, testing::ValuesIn(clips),
                         [](const auto& clip) { return std::string(strrchr(clip.param.name, '.') + 1); });

TEST(roadOptions, FramesEndTheRunAndLoopsGoOn)
{
    Folder folder;
    const std::string movie = folder / "one.mov";
    shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=30 -frames:v 3 -c:v mjpeg " + movie);
    for (const char* how : {"every loop", "loop rate=10"}) {
        Program kiv({"run", "--json", "--frames", "100", "movie " + movie + " " + how + " ! jpegdec ! jpegenc ! null"});
        EXPECT_EQ(kiv.wait(), 0) << kiv.err;
        EXPECT_EQ(kiv.summary()["frames"], 100);
        expectNothingLost(kiv.summary());
    }
}

// Decoding to CbYCrY and converting that comes out as decoding to RGB at once.
TEST(roadOptions, AConvertedPictureKeepsItsLevels)
{
    Folder folder;
    const std::string movie = folder / "clip.mov";
    shell("ffmpeg -v error -f lavfi -i color=c=0xe8c010:s=64x48 -frames:v 1 -c:v mjpeg -q:v 2 " + movie);
    for (const std::string between : {"", "convert packing=RGB ! "}) {
        Program kiv({"run",
                     "movie " + movie + " every ! jpegdec ! " + between + "file "
                         + folder / (between.empty() ? "a%d.ppm" : "b%d.ppm")});
        ASSERT_EQ(kiv.wait(), 0) << kiv.err;
    }
    const std::string direct = contents(folder / "a1.ppm"), converted = contents(folder / "b1.ppm");
    ASSERT_EQ(direct.size(), converted.size());
    long long apart = 0;
    for (size_t i = 0; i < direct.size(); ++i)
        apart += std::abs(int(uint8_t(direct[i])) - int(uint8_t(converted[i])));
    EXPECT_LT(double(apart) / double(direct.size()), 2.0);
}

TEST(roadOptions, AFileThatWasCutIsPlayedAndSaid)
{
    Folder folder;
    for (const std::string ending : {"avi", "mkv"}) {
        const std::string whole = folder / "whole." + ending, cut = folder / "cut." + ending;
        shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=25 -frames:v 20 -c:v mjpeg " + whole);
        shell("head -c $(($(stat -c %s " + whole + ") / 2)) " + whole + " > " + cut);
        Program good({"run", "--json", "movie " + whole + " every ! null"});
        EXPECT_EQ(good.wait(), 0) << good.err;
        Program kiv({"run", "--json", "movie " + cut + " every ! null"});
        EXPECT_EQ(kiv.wait(), 1) << cut;
        EXPECT_EQ(kiv.err, "kiv: node 1 'movie': the file was cut; the frames that are there are played\n");
        EXPECT_GT(kiv.summary()["frames"], 5);
        EXPECT_LT(kiv.summary()["frames"], 20);
    }
}

TEST(roadOptions, ProbeDescribesAMovie)
{
    Folder folder;
    const std::string movie = folder / "p.mkv";
    shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=30000/1001 -frames:v 7 -c:v mjpeg " + movie);
    Program kiv({"probe", "--json", movie});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const nlohmann::json info = kiv.summary();
    EXPECT_EQ(info["width"], 64);
    EXPECT_EQ(info["height"], 48);
    EXPECT_EQ(info["rateNumerator"], 30000);
    EXPECT_EQ(info["rateDenominator"], 1001);
    EXPECT_EQ(info["frames"], 7);
    EXPECT_EQ(info["jpegStraight"], true);
}

}  // namespace
