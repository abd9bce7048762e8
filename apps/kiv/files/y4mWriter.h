// y4mWriter.h - uncompressed video with a one-line header, as most tools read it.
#pragma once

#include "apps/kiv/files/frameWriter.h"

// Takes CbYCrY (written as planes, 4:2:2) and LUMINANCE. Full-range samples, as JPEG has them.
class Y4mWriter : public FrameWriter {
public:
    Y4mWriter(const std::string& path, const PictureFormat& format);
    std::string open() override;
    std::string write(const uint8_t* data, int size) override;
    std::string close() override { return file_.close(); }
    std::string path() const override { return path_; }

private:
    std::string path_;
    PictureFormat format_;
    OutputFile file_;
    std::vector<uint8_t> out_;  // "FRAME\n" and the planes
};

// "YUV4MPEG2 W1280 H720 F30000:1001 Ip A1:1 C422 XCOLORRANGE=FULL\n"
std::string y4mHeader(const PictureFormat& format);
