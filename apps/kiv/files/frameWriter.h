// frameWriter.h - files of frames: one interface, one class per kind of file.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "apps/kiv/graph/packing.h"
#include "apps/kiv/graph/picture.h"

// An open file that is written whole or reports why not. Owns the descriptor.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // All return "" or the system's words for what went wrong.
    std::string open(const std::string& path);
    std::string write(const void* data, size_t size);
    std::string close();

private:
    int fd_ = -1;
};

// Loop-bound. A write blocks as long as the disk takes.
class FrameWriter {
public:
    virtual ~FrameWriter() = default;
    // Before the first frame. "" or what went wrong.
    virtual std::string open() { return ""; }
    // One frame: a JPEG of `size` bytes, or a picture of the writer's format.
    virtual std::string write(const uint8_t* data, int size) = 0;
    virtual std::string close() { return ""; }
    // The file written last, or the only one.
    virtual std::string path() const = 0;
};

enum class FileKind { unknown, y4m, mjpeg, jpg, png, ppm };

FileKind fileKindOf(const std::string& path);  // by its ending
FormatSet formatsOf(FileKind kind);  // what such a file takes

// What is wrong with a numbering in the path ("%s"), or "".
std::string checkNumbering(const std::string& path);
// "a-%03d.png" or "a.png" (which becomes a-0001.png) with a number put in.
std::string numberedPath(const std::string& path, long long number);

// A writer for frames of that format; the format must suit the path's ending.
std::unique_ptr<FrameWriter> makeFrameWriter(const std::string& path, const PictureFormat& format);
