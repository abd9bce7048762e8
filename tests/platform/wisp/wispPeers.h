// wispPeers.h - both ends of a connection, and a raw peer that keeps to no rules.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/limits.h"
#include "platform/wisp/wispSocket.h"
#include "platform/zv/errors.h"

constexpr int testHeaderBytes = 24;

// Owns a descriptor of the test's own.
class RawFd {
public:
    explicit RawFd(int fd = -1) : fd_(fd) { }
    RawFd(RawFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) { }
    RawFd& operator=(RawFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~RawFd();
    int get() const { return fd_; }

private:
    int fd_;
};

// What zvGetError says on this thread.
int lastError();
std::string lastErrorText();

// True when the descriptor becomes readable; the bound only ends a failing test.
bool becomesReadable(int fd, int boundMs = 10000);
bool isReadable(int fd);
int openDescriptors();
long heapAllocations();  // operator new so far, in the library as well; -1 under a sanitizer

// A directory of its own, removed with what is in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const char* name) const { return path_ + "/" + name; }
    std::string url(const char* name) const { return "unix:" + file(name); }

private:
    std::string path_;
};

// Puts every limit back at the end of a test.
struct LimitsGuard {
    KivLimits saved = *kivLimits();
    ~LimitsGuard() { *kivLimits() = saved; }
};

// Two connected ends.
struct Pair {
    explicit Pair(const char* url = "tcp://:0");
    std::unique_ptr<wispListener> listener;
    std::unique_ptr<wispSocket> a;
    std::unique_ptr<wispSocket> b;
};

// One end of ours, and a plain blocking socket at the other.
struct RawPair {
    RawPair();
    void write(const void* bytes, size_t count);
    void write(const std::string& bytes) { write(bytes.data(), bytes.size()); }
    std::string read(size_t count);  // shorter only at the end of the stream
    std::unique_ptr<wispListener> listener;
    RawFd raw;
    std::unique_ptr<wispSocket> ours;
};

int rawConnect(const char* tcpUrl);  // a blocking socket on 127.0.0.1

// A message as it stands on the wire; the size may lie.
std::string wire(const std::string& header, int32_t size, const std::string& data = "");
std::string headerOf(char fill);

// Bytes that tell every position of every message from every other.
std::vector<char> pattern(int seed, int size);

int messageFd(wispSocket& socket);  // its getFD

// Makes the kernel take little at a time (much less, and TCP waits for its own timers).
void shrinkBuffers(wispSocket& socket, int bytes = 65536);

// Sends message `seed` of that size: its header begins with seed.
int sendNumbered(wispSocket& socket, int seed, int size);
// Reads one message and checks it whole; its seed, or -1 with a test failure.
int receiveNumbered(wispSocket& socket);

// Entry of a reader thread of the layer that runs `Work`.
template <class Work> void reader(void* work) { (*static_cast<Work*>(work))(); }
