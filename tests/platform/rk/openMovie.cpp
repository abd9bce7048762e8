// openMovie.cpp - see openMovie.h.
#include "tests/platform/rk/openMovie.h"

#include <gtest/gtest.h>

#include "platform/zv/zv.h"

OpenMovie::OpenMovie(const std::string& path)
{
    EXPECT_EQ(rkOpenFile(path.c_str(), 0, &movie), 0) << path << ": " << lastDetail();
    EXPECT_EQ(rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track), 0) << path << ": " << lastDetail();
    EXPECT_EQ(rkGetTrackInfo(track, &info), 0);
}

OpenMovie::~OpenMovie() { EXPECT_EQ(rkClose(movie), 0); }

std::string OpenMovie::frame(int index) const
{
    const int size = rkGetCompressedImageSize(track, index);
    if (size < 0)
        return "";
    EXPECT_LE(size, rkGetLargestCompressedImageSize(track));
    std::string bytes(size_t(size), '\0');
    return rkReadCompressedImage(track, index, size, bytes.data()) == 0 ? bytes : "";
}

int lastError()
{
    int number = 0;
    zvGetError(&number, nullptr);
    return number;
}

std::string lastDetail()
{
    char detail[ZV_ERROR_DETAIL_MAX] = "";
    zvGetError(nullptr, detail);
    return detail;
}

std::string openError(const std::string& path)
{
    RKmovie movie = reinterpret_cast<RKmovie>(&movie);
    EXPECT_EQ(rkOpenFile(path.c_str(), 0, &movie), -1) << path;
    EXPECT_EQ(movie, nullptr);
    return lastDetail();
}
