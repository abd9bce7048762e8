// frameWriter.cpp - see frameWriter.h.
#include "apps/kiv/files/frameWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "apps/kiv/files/stillWriters.h"
#include "apps/kiv/files/y4mWriter.h"
#include "apps/kiv/support/text.h"
#include "platform/zv/zv.h"

OutputFile::~OutputFile() { close(); }

std::string OutputFile::open(const std::string& path)
{
    close();
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return fd_ >= 0 ? "" : strerror(errno);
}

std::string OutputFile::write(const void* data, size_t size)
{
    const char* from = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t n = ::write(fd_, from, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? strerror(errno) : "nothing could be written";
        from += n;
        size -= size_t(n);
    }
    return "";
}

std::string OutputFile::close()
{
    int fd = fd_;
    fd_ = -1;
    return fd < 0 || ::close(fd) == 0 ? "" : strerror(errno);
}

namespace {

// JPEG frames one after the other.
class MjpegWriter : public FrameWriter {
public:
    explicit MjpegWriter(const std::string& path) : path_(path) { }
    std::string open() override { return file_.open(path_); }
    std::string write(const uint8_t* data, int size) override { return file_.write(data, size_t(size)); }
    std::string close() override { return file_.close(); }
    std::string path() const override { return path_; }

private:
    std::string path_;
    OutputFile file_;
};

// Where a number stands in a path: "%d" or "%04d"; length 0: nowhere.
struct Numbering {
    size_t at = 0, length = 0;
    int digits = 1;
};

// False when there is a '%' that is no such number, or a second one.
bool findNumbering(const std::string& path, Numbering* found)
{
    found->at = path.find('%');
    if (found->at == std::string::npos)
        return true;
    size_t i = found->at + 1;
    bool zero = i < path.size() && path[i] == '0';
    int digits = 0;
    for (; i < path.size() && path[i] >= '0' && path[i] <= '9' && digits <= 18; ++i)
        digits = digits * 10 + (path[i] - '0');
    if (i >= path.size() || path[i] != 'd' || digits > 18 || (digits > 0 && !zero))
        return false;
    found->length = i + 1 - found->at;
    found->digits = digits > 0 ? digits : 1;
    return path.find('%', i) == std::string::npos;
}

std::string endingOf(const std::string& path)
{
    size_t dot = path.rfind('.'), slash = path.rfind('/');
    bool none = dot == std::string::npos || (slash != std::string::npos && dot < slash);
    return none ? "" : path.substr(dot);
}

}  // namespace

FileKind fileKindOf(const std::string& path)
{
    std::string ending = endingOf(path);
    if (ending == ".y4m")
        return FileKind::y4m;
    if (ending == ".mjpeg" || ending == ".mjpg")
        return FileKind::mjpeg;
    if (ending == ".jpg" || ending == ".jpeg")
        return FileKind::jpg;
    if (ending == ".png")
        return FileKind::png;
    return ending == ".ppm" ? FileKind::ppm : FileKind::unknown;
}

FormatSet formatsOf(FileKind kind)
{
    static constexpr int y4m[] = {ZV_IMAGE_PACKING_CbYCrY, ZV_IMAGE_PACKING_LUMINANCE};
    static constexpr int png[] = {ZV_IMAGE_PACKING_RGB, ZV_IMAGE_PACKING_RGBA, ZV_IMAGE_PACKING_LUMINANCE};
    static constexpr int ppm[] = {ZV_IMAGE_PACKING_RGB};
    switch (kind) {
    case FileKind::y4m:
        return {false, y4m};
    case FileKind::png:
        return {false, png};
    case FileKind::ppm:
        return {false, ppm};
    case FileKind::mjpeg:
    case FileKind::jpg:
        return jpegOnly();
    case FileKind::unknown:
        return noFormats();
    }
    return noFormats();
}

std::string checkNumbering(const std::string& path)
{
    Numbering numbering;
    if (findNumbering(path, &numbering))
        return "";
    return "'%' in a path stands once, as %d or %04d, for the frame's number";
}

std::string numberedPath(const std::string& path, long long number)
{
    Numbering numbering;
    findNumbering(path, &numbering);
    if (numbering.length == 0) {
        size_t dot = path.size() - endingOf(path).size();
        return path.substr(0, dot) + text("-%04lld", number) + path.substr(dot);
    }
    std::string digits = text("%0*lld", numbering.digits, number);
    return std::string(path).replace(numbering.at, numbering.length, digits);
}

std::unique_ptr<FrameWriter> makeFrameWriter(const std::string& path, const PictureFormat& format)
{
    switch (fileKindOf(path)) {
    case FileKind::y4m:
        return std::make_unique<Y4mWriter>(path, format);
    case FileKind::mjpeg:
        return std::make_unique<MjpegWriter>(path);
    case FileKind::jpg:
        return std::make_unique<JpgWriter>(path);
    case FileKind::png:
        return std::make_unique<PngWriter>(path, format);
    case FileKind::ppm:
        return std::make_unique<PpmWriter>(path, format);
    case FileKind::unknown:
        return nullptr;
    }
    return nullptr;
}
