// Names, headers and rows of the files that are written, and the ages that are counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "apps/kiv/files/frameWriter.h"
#include "apps/kiv/graph/tally.h"
#include "platform/rk/rk.h"
#include "platform/zv/zv.h"

TEST(frameFiles, NumbersPaths)
{
    EXPECT_EQ(numberedPath("a-%03d.png", 7), "a-007.png");
    EXPECT_EQ(numberedPath("%d/a.png", 1234), "1234/a.png");
    EXPECT_EQ(numberedPath("out.d/a.png", 7), "out.d/a-0007.png");
    EXPECT_EQ(numberedPath("a.jpg", 12345), "a-12345.jpg");
    EXPECT_EQ(checkNumbering("a-%04d.png"), "");
    for (const char* wrong :
         {"%s.png", "%d%d.png", "%.png", "%4d.png", "%099999999999d.png", "%99999999999999999999d.png", "a%%.png"})
        EXPECT_NE(checkNumbering(wrong), "") << wrong;
}

TEST(frameFiles, KnowsKindsByTheirEnding)
{
    EXPECT_EQ(fileKindOf("a.y4m"), FileKind::y4m);
    EXPECT_EQ(fileKindOf("x.png/a"), FileKind::unknown);
    EXPECT_EQ(fileKindOf("png"), FileKind::unknown);
}

static std::string contents(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Two rows of three pixels: the last pixel of a row has no Cr of its own.
TEST(frameFiles, WritesY4mPlanesOfAnOddWidth)
{
    char path[] = "/tmp/kivFilesXXXXXX.y4m";
    ::close(mkstemps(path, 4));
    PictureFormat format;
    format.packing = ZV_IMAGE_PACKING_CbYCrY;
    format.width = 3;
    format.height = 2;
    format.rateNumerator = 30000;
    format.rateDenominator = 1001;
    format.interlacing = RK_INTERLACING_TOP_FIRST;
    format.fullRange = true;
    const uint8_t rows[] = {10, 1, 20, 2, 11, 3, 30, 4, 40, 5, 31, 6};
    auto writer = makeFrameWriter(path, format);
    EXPECT_EQ(writer->open(), "");
    EXPECT_EQ(writer->write(rows, sizeof rows), "");
    EXPECT_EQ(writer->close(), "");
    EXPECT_EQ(contents(path),
              std::string("YUV4MPEG2 W3 H2 F30000:1001 It A1:1 C422 XCOLORRANGE=FULL\nFRAME\n") + "\1\2\3\4\5\6"
                  + "\12\13\36\37" + "\24\24\50\50");
    unlink(path);
}

TEST(ages, PercentilesAreRightToASixteenth)
{
    AgeHistogram ages;
    EXPECT_EQ(ages.percentileMs(50), -1);
    for (int ms = 1; ms <= 1000; ++ms)
        ages.add(ms * 1000000LL);
    EXPECT_NEAR(ages.percentileMs(50), 500, 500 / 16.0);
    EXPECT_NEAR(ages.percentileMs(99), 990, 990 / 16.0);
    EXPECT_NEAR(ages.percentileMs(100), 1000, 1000 / 16.0);
    ages.add(-5);  // a clock that is ahead of ours
    ages.add(1000 * 1000000000LL);  // and one that is far behind
    EXPECT_EQ(ages.count(), 1000);
}
