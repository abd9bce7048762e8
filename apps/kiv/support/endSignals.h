// endSignals.h - signals as descriptors: SIGINT and SIGTERM end a run in order, SIGUSR1
// asks for the ledger.
#pragma once

#include <csignal>

#include "apps/kiv/support/eventFd.h"

// While it stands, a thread of its own waits for the three signals, all others have them
// blocked; so it is made before any other thread. The first signal to end raises the event, a
// second one ends the process even when the loop is stuck.
class EndSignals {
public:
    EndSignals();
    ~EndSignals();
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    int fd() const { return event_.fd(); }  // readable once one has come
    EventFd& asked() { return asked_; }  // raised by each SIGUSR1

private:
    void watch();

    EventFd event_, asked_;
    sigset_t set_, before_;
    int signals_;  // descriptor of the blocked signals
    int thread_;
};
