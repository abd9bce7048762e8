// movieFile.h - the open file under a movie.
#pragma once

#include <memory>
#include <string>

#include "platform/support/fd.h"

namespace kiv::rk {

enum class Container { QuickTime, Mp4, Avi, Matroska };

// A regular file, opened once and read by position. Thread-safe.
class MovieFile {
public:
    // Never blocks on a fifo or a device. Null, with an error recorded, for
    // anything but a non-empty regular file that begins like one of the containers.
    static std::unique_ptr<MovieFile> open(const char* name);

    // Reads `size` bytes at `position`, all or -1 with an error recorded.
    int read(long long position, int size, void* to) const;
    // As pread: what is there, short at the end of the file, -1 with errno.
    int readSome(long long position, int size, void* to) const;

    const char* name() const { return name_.c_str(); }
    long long bytes() const { return bytes_; }  // when it was opened
    Container container() const { return container_; }

private:
    MovieFile(const char* name, UniqueFd fd) : name_(name), fd_(std::move(fd)) { }
    int check();
    int recognise();

    std::string name_;
    UniqueFd fd_;
    long long bytes_ = 0;
    Container container_ = Container::QuickTime;
};

}  // namespace kiv::rk
