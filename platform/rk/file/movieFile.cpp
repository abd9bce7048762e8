// movieFile.cpp - opens by name, tells containers apart, reads by position.
#include "platform/rk/file/movieFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/support/error.h"

namespace kiv::rk {

namespace {

uint32_t bigEndian32(const unsigned char* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

bool isQuickTimeAtom(const unsigned char* type)
{
    static const char* const known[]
        = {"ftyp", "moov", "mdat", "wide", "free", "skip", "pnot", "udta", "uuid", "junk", "styp", "prfl"};
    for (const char* atom : known) {
        if (memcmp(type, atom, 4) == 0)
            return true;
    }
    return false;
}

}  // namespace

std::unique_ptr<MovieFile> MovieFile::open(const char* name)
{
    if (name == nullptr) {
        recordError(ZV_ERROR_ARGUMENT, "no movie file is named");
        return nullptr;
    }
    UniqueFd fd(::open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        recordSystemError(ZV_ERROR_SYSTEM, "'%s'", name);
        return nullptr;
    }
    std::unique_ptr<MovieFile> file(new MovieFile(name, std::move(fd)));
    if (file->check() != 0 || file->recognise() != 0)
        return nullptr;
    return file;
}

int MovieFile::check()
{
    struct stat status = {};
    if (fstat(fd_.get(), &status) != 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "'%s'", name());
    if (S_ISDIR(status.st_mode))
        return recordError(ZV_ERROR_ARGUMENT, "'%s': a folder, not a movie", name());
    if (!S_ISREG(status.st_mode))
        return recordError(ZV_ERROR_ARGUMENT, "'%s': not a regular file", name());
    if (status.st_size == 0)
        return recordError(ZV_ERROR_DATA, "'%s': the file is empty", name());
    bytes_ = status.st_size;
    return 0;
}

// Only a container that we mean to read ever reaches a demuxer: no play list,
// no text, no picture format is tried on the file.
int MovieFile::recognise()
{
    unsigned char head[12] = {};
    if (readSome(0, sizeof head, head) < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "'%s'", name());
    if (memcmp(head, "RIFF", 4) == 0 && memcmp(head + 8, "AVI", 3) == 0)
        container_ = Container::Avi;
    else if (bigEndian32(head) == 0x1A45DFA3)
        container_ = Container::Matroska;
    else if (memcmp(head + 4, "ftyp", 4) == 0 && memcmp(head + 8, "qt  ", 4) != 0)
        container_ = Container::Mp4;
    else if (isQuickTimeAtom(head + 4))
        container_ = Container::QuickTime;
    else
        return recordError(ZV_ERROR_DATA, "'%s': not a movie (QuickTime, MP4, AVI or Matroska)", name());
    return 0;
}

int MovieFile::readSome(long long position, int size, void* to) const
{
    char* at = static_cast<char*>(to);
    int done = 0;
    while (done < size) {
        const ssize_t got = pread(fd_.get(), at + done, size_t(size - done), position + done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += int(got);
    }
    return done;
}

int MovieFile::read(long long position, int size, void* to) const
{
    const int got = readSome(position, size, to);
    if (got < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "'%s': %d bytes at %lld", name(), size, position);
    if (got < size)
        return recordError(ZV_ERROR_DATA, "'%s': the file ends %d bytes into a frame of %d", name(), got, size);
    return 0;
}

}  // namespace kiv::rk
