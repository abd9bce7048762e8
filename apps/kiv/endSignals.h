// endSignals.h - SIGINT and SIGTERM as a descriptor: the first one ends a run in order.
#pragma once

#include <csignal>

#include "apps/kiv/eventFd.h"

// While it stands, a thread of its own waits for the two signals, all others have them
// blocked; so it is made before any other thread. The first signal raises the event, a
// second one ends the process even when the loop is stuck.
class EndSignals {
public:
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    int fd() const { return event_.fd(); }  // readable once one has come

private:
    void watch();

    EventFd event_;
    sigset_t set_, before_;
    int signals_;  // descriptor of the blocked signals
    int thread_;
};
