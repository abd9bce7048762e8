// fd.h - owning descriptors, and the rule for those that are handed out.
#pragma once

#include <utility>

namespace kiv {

// Owns one descriptor; closes it. Move-only.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1);

private:
    int fd_ = -1;
};

// Makes a fresh descriptor fit for select(): close-on-exec, at least 3, below
// FD_SETSIZE. Takes `fd` over in every case; empty, with an error recorded,
// when it cannot be done. A negative `fd` gives an empty holder and keeps errno.
UniqueFd selectableFd(int fd);

}  // namespace kiv
