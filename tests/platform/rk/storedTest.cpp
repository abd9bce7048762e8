// storedTest.cpp - movies that hold JPEG frames: every frame is the packet in the file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/platform/rk/matroskaWriter.h"
#include "tests/platform/rk/openMovie.h"
#include "tests/support/clips.h"

namespace {

const std::string mjpeg = " -c:v mjpeg -q:v 3 -pix_fmt ";

// Every frame, forwards and then backwards, is what ffmpeg's stream copy writes.
void expectFramesAreThePackets(const std::string& path, size_t frames)
{
    SCOPED_TRACE(path);
    const std::vector<std::string> packets = copiedPackets(path);
    ASSERT_EQ(packets.size(), frames);
    OpenMovie movie(path);
    ASSERT_EQ(movie.length(), int(frames));
    size_t largest = 0;
    for (size_t i = 0; i < frames; ++i) {
        EXPECT_EQ(movie.frame(int(i)), packets[i]) << "frame " << i;
        largest = std::max(largest, packets[i].size());
    }
    for (size_t i = frames; i-- > 0;)
        EXPECT_EQ(movie.frame(int(i)), packets[i]) << "frame " << i << " going back";
    EXPECT_EQ(rkGetLargestCompressedImageSize(movie.track), int(largest));
    EXPECT_EQ(movie.info.jpeg, 1);
}

void expectDescription(const std::string& path, int width, int height, const char* layout, int numerator,
                       int denominator)
{
    SCOPED_TRACE(path);
    OpenMovie movie(path);
    EXPECT_EQ(movie.info.width, width);
    EXPECT_EQ(movie.info.height, height);
    EXPECT_EQ(rkGetImageWidth(movie.track), width);
    EXPECT_EQ(rkGetImageHeight(movie.track), height);
    EXPECT_STREQ(movie.info.codec, "mjpeg");
    EXPECT_STREQ(movie.info.pixelFormat, layout);
    EXPECT_EQ(movie.info.rateNumerator, numerator);
    EXPECT_EQ(movie.info.rateDenominator, denominator);
    EXPECT_DOUBLE_EQ(rkGetImageRate(movie.track), double(numerator) / denominator);
    EXPECT_EQ(movie.info.bytes, (long long)std::filesystem::file_size(path));
}

// Movies of pictures that some other program made, one packet each.
std::string movieOf(const std::vector<std::string>& pictures, const std::string& name)
{
    const std::string folder = scratchFolder() + "/pictures-" + name;
    std::filesystem::create_directories(folder);
    for (size_t i = 0; i < pictures.size(); ++i)
        writeFile(folder + "/" + std::to_string(i) + ".jpg", pictures[i]);
    const std::string path = folder + "/" + name;
    EXPECT_EQ(runCommand("ffmpeg -nostdin -v error -framerate 25 -i " + folder + "/%d.jpg -c copy " + path), "");
    return path;
}

std::string withAvi1Mark(const std::string& jpeg, char polarity)
{
    const std::string mark = std::string("\xFF\xE0\0\x10", 4) + "AVI1" + polarity + std::string(9, '\0');
    return jpeg.substr(0, 2) + mark + jpeg.substr(2);
}

TEST(storedFrames, AreThePacketsInEachContainer)
{
    for (const char* container : {"mov", "avi", "mp4", "mkv"}) {
        for (const char* rate : {"30000/1001", "30"}) {
            const std::string path
                = clip("bars." + std::string(container), testPattern("160x96", rate, 40) + mjpeg + "yuvj422p");
            expectFramesAreThePackets(path, 40);
            const bool drop = std::string(rate) != "30";
            expectDescription(path, 160, 96, "yuvj422p", drop ? 30000 : 30, drop ? 1001 : 1);
            EXPECT_STREQ(OpenMovie(path).info.container, std::string(container) == "mkv" ? "matroska" : container);
        }
    }
}

TEST(storedFrames, AreThePacketsForEachLayoutAndOddSizes)
{
    for (const char* layout : {"yuvj420p", "yuvj444p"}) {
        for (const char* container : {"mov", "avi", "mp4", "mkv"}) {
            const std::string path
                = clip("odd." + std::string(container),
                       testPattern("64x48", "25", 12) + " -vf format=yuv444p,crop=63:47" + mjpeg + layout);
            expectFramesAreThePackets(path, 12);
            expectDescription(path, 63, 47, layout, 25, 1);
        }
    }
}

TEST(storedFrames, GreyPicturesKeepTheirLayout)
{
    const std::string source = clip("grey.mp4", testPattern("64x48", "25", 3) + mjpeg + "yuvj420p");
    std::vector<std::string> grey;
    for (const std::string& packet : copiedPackets(source)) {
        const std::string file = scratchFolder() + "/one.jpg";
        writeFile(file, packet);
        ASSERT_EQ(runCommand("jpegtran -grayscale -outfile " + file + ".grey " + file), "");
        grey.push_back(readFile(file + ".grey"));
    }
    for (const char* name : {"grey.mov", "grey.avi", "grey.mkv"}) {
        const std::string path = movieOf(grey, name);
        expectFramesAreThePackets(path, 3);
        expectDescription(path, 64, 48, "gray", 25, 1);
    }
}

TEST(storedFrames, SoundAndFragmentsInBetweenDoNotShiftThem)
{
    const std::string both
        = "-f lavfi -i testsrc2=size=64x48:rate=25:duration=1.2 -f lavfi -i sine=duration=1.2 -map 1 -map 0 -c:a aac";
    expectFramesAreThePackets(clip("sound.mov", both + mjpeg + "yuvj420p"), 30);
    expectFramesAreThePackets(clip("sound.avi", both + mjpeg + "yuvj420p"), 30);
    expectFramesAreThePackets(clip("sound.mkv", both + mjpeg + "yuvj420p"), 30);
    for (const char* flags : {"frag_keyframe", "frag_keyframe+empty_moov", "frag_every_frame+delay_moov"}) {
        const std::string fragmented = testPattern("64x48", "25", 30) + mjpeg + "yuvj420p -movflags " + flags;
        expectFramesAreThePackets(clip("fragments.mp4", fragmented), 30);
    }
}

TEST(storedFrames, AnEditListHidesWhatItHides)
{
    const std::string whole = clip("whole.mov", testPattern("64x48", "25", 40) + mjpeg + "yuvj420p");
    const std::string cut = clip("cut.mov", "-ss 0.5 -i '" + whole + "' -c copy");
    const std::vector<std::string> packets = copiedPackets(cut);  // with the one packet that the list hides
    OpenMovie movie(cut);
    ASSERT_EQ(movie.length(), int(packets.size()) - 1);
    for (int i = 0; i < movie.length(); ++i)
        EXPECT_EQ(movie.frame(i), packets[size_t(i) + 1]) << "frame " << i;
}

TEST(storedFrames, ChunksWithoutBytesInAviAreNoFrames)
{
    // Frames 10 to 14 are missing: the writer fills the gap with empty chunks.
    const std::string gap
        = testPattern("64x48", "25", 40) + " -vf \"select='not(between(n,10,14))'\" -vsync passthrough -frames:v 20";
    const std::string path = clip("gap.avi", gap + mjpeg + "yuvj420p");
    expectFramesAreThePackets(path, 20);
    EXPECT_NEAR(OpenMovie(path).info.rateNumerator / double(OpenMovie(path).info.rateDenominator), 19 * 25 / 24.0,
                1e-6);
}

TEST(storedFrames, InterlacingComesFromTheContainerOrTheFrames)
{
    const auto coded = [](const char* order) {
        return OpenMovie(clip("fields.mov", testPattern("64x48", "25", 2) + mjpeg + "yuvj420p -field_order " + order))
            .info.interlacing;
    };
    EXPECT_EQ(coded("tt"), RK_INTERLACING_TOP_FIRST);
    EXPECT_EQ(coded("bb"), RK_INTERLACING_BOTTOM_FIRST);
    EXPECT_EQ(coded("progressive"), RK_INTERLACING_PROGRESSIVE);

    const std::string field
        = copiedPackets(clip("field.mp4", testPattern("64x24", "25", 2) + mjpeg + "yuvj420p")).at(0);
    const auto marked = [&](const std::string& picture, const char* name) {
        return OpenMovie(movieOf({picture, picture}, name)).info.interlacing;
    };
    EXPECT_EQ(marked(field, "plain.avi"), RK_INTERLACING_UNKNOWN);
    EXPECT_EQ(marked(withAvi1Mark(field, 0), "whole.avi"), RK_INTERLACING_PROGRESSIVE);
    EXPECT_EQ(marked(field + field, "two.avi"), RK_INTERLACING_TOP_FIRST);
    EXPECT_EQ(marked(withAvi1Mark(field, 2) + field, "even.avi"), RK_INTERLACING_BOTTOM_FIRST);
    expectFramesAreThePackets(scratchFolder() + "/pictures-even.avi/even.avi", 2);
}

TEST(storedFrames, PackedMatroskaHeadersArePutTogether)
{
    const std::vector<std::string> packets
        = copiedPackets(clip("packed.mp4", testPattern("64x48", "25", 12) + mjpeg + "yuvj420p"));
    const std::string path = scratchFolder() + "/packed.mkv";
    for (const size_t stripped : {0, 2, 20}) {
        writeFile(path, matroskaMovie(packets, 64, 48, stripped));
        expectFramesAreThePackets(path, packets.size());
        OpenMovie movie(path);
        for (int i : {7, 2, 11, 0, 5})
            EXPECT_EQ(movie.frame(i), packets[size_t(i)]);
    }
}

}  // namespace
