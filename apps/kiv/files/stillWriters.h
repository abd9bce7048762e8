// stillWriters.h - one numbered file a frame: JPEG as it is, PNG, PPM.
#pragma once

#include "apps/kiv/files/frameWriter.h"

class StillWriter : public FrameWriter {
public:
    explicit StillWriter(const std::string& pattern);
    std::string write(const uint8_t* data, int size) override;
    std::string path() const override { return path_; }

protected:
    // One frame to the open file.
    virtual std::string writeStill(OutputFile& file, const uint8_t* data, int size) = 0;

private:
    std::string pattern_;
    std::string path_;  // of the last file
    long long number_ = 0;
};

class JpgWriter : public StillWriter {
public:
    using StillWriter::StillWriter;

protected:
    std::string writeStill(OutputFile& file, const uint8_t* data, int size) override;
};

class PpmWriter : public StillWriter {
public:
    PpmWriter(const std::string& pattern, const PictureFormat& format);

protected:
    std::string writeStill(OutputFile& file, const uint8_t* data, int size) override;

private:
    PictureFormat format_;
};

// RGB, RGBA or LUMINANCE.
class PngWriter : public StillWriter {
public:
    PngWriter(const std::string& pattern, const PictureFormat& format);

protected:
    std::string writeStill(OutputFile& file, const uint8_t* data, int size) override;

private:
    PictureFormat format_;
    std::vector<uint8_t> out_;  // the file in memory; its space is used again
};
