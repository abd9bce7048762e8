// scriptedPeer.cpp - see scriptedPeer.h.
#include "tests/network/scriptedPeer.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

#include "network/kivNetworkHeader.h"
#include "platform/thread/thread.h"

static void post(int fd)
{
    const uint64_t one = 1;
    if (write(fd, &one, sizeof one) < 0) { }
}

static void take(int fd)
{
    uint64_t one = 0;
    if (read(fd, &one, sizeof one) < 0) { }
}

ScriptedPeer::ScriptedPeer()
    : arrived_(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC)),
      silence_(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC)),
      entered_(eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC))
{
}

ScriptedPeer::~ScriptedPeer()
{
    close(arrived_);
    close(silence_);
    close(entered_);
}

int ScriptedPeer::setHeaderSize(int bytes)
{
    headerSize = bytes;
    return 0;
}

int ScriptedPeer::getFD(int* fd)
{
    *fd = arrived_;
    return descriptorResult;
}

int ScriptedPeer::step(At at)
{
    if (current_.silent == at) {
        post(entered_);
        if (threadPoll(silence_, 0) != THREAD_POLL_READY)
            return -1;
        take(silence_);
    }
    return current_.fail == at ? -1 : 0;
}

int ScriptedPeer::getHeader(void* header)
{
    take(arrived_);
    {
        std::lock_guard lock(mutex_);
        if (messages_.empty())
            return -1;
        current_ = messages_.front();
        messages_.pop_front();
    }
    kivNetworkHeader block = {};
    block.headerVal = current_.headerVal;
    block.headerTimePair = {current_.ust, current_.msc};
    memcpy(header, &block, current_.silent == At::header ? sizeof block / 2 : sizeof block);
    return step(At::header);
}

int ScriptedPeer::getSize(int* size)
{
    *size = current_.size == -2 ? int(current_.bytes.size()) : current_.size;
    return step(At::size);
}

int ScriptedPeer::getData(void* data)
{
    memcpy(data, current_.bytes.data(), current_.bytes.size());
    return step(At::data);
}

int ScriptedPeer::sendData(void* header, void* data, int size)
{
    sentHeader.assign(static_cast<const char*>(header), size_t(headerSize));
    sentData.assign(static_cast<const char*>(data), size_t(size));
    ++sent;
    return sendResult;
}

void ScriptedPeer::say(PeerMessage message)
{
    std::lock_guard lock(mutex_);
    messages_.push_back(std::move(message));
    post(arrived_);
}

void ScriptedPeer::say(const std::string& bytes, long long msc)
{
    PeerMessage message;
    message.bytes = bytes;
    message.msc = msc;
    say(message);
}

void ScriptedPeer::resume() { post(silence_); }

bool ScriptedPeer::untilSilent()
{
    pollfd entered = {entered_, POLLIN, 0};
    const bool is = poll(&entered, 1, 10000) == 1;
    take(entered_);
    return is;
}
