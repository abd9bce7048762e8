// eventFd.h - a descriptor that one thread raises and another waits for.
#pragma once

// Thread-safe. Raised until it is cleared; raising twice is raising once.
class EventFd {
public:
    EventFd();
    ~EventFd();
    EventFd(const EventFd&) = delete;
    EventFd& operator=(const EventFd&) = delete;

    int fd() const { return fd_; }  // readable while raised; -1 when there was none left
    void raise();
    void clear();

private:
    int fd_;
};
