// readySignal.h - a descriptor that is readable and writable, or neither.
#pragma once

#include "platform/support/fd.h"

namespace kiv {

// A stream socket pair whose outer end is handed out. Ready: one byte waits
// there and its send side is empty. Not ready: no byte waits and the send side
// is full. (An eventfd can never be neither.) Not thread-safe: the owner locks.
// For less than a microsecond of a change only one half is seen.
class ReadySignal {
public:
    int open();  // not ready yet; 0, or -1 with an error recorded
    void close();
    void set(bool ready);  // two system calls, only when the level changes

    int fd() const { return outer_.get(); }
    explicit operator bool() const { return bool(outer_); }

private:
    UniqueFd outer_;
    UniqueFd inner_;
    bool ready_ = false;
};

}  // namespace kiv
