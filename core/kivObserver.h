// kivObserver.h - sees every buffer on its way from a node to a child.
#pragma once

#include "core/kivObj.h"

// Called by kivObj::propagate on the thread that drives the graph. There is one for the
// process, or none, which costs a hop one predictable branch.
class KIV_API kivObserver {
public:
    virtual ~kivObserver();
    // In place of to->receive(buffer): calls it once and returns its answer. The buffer is
    // borrowed.
    virtual int deliver(kivObj* from, kivObj* to, ZVbuffer buffer) = 0;
};

// Null for none. Set it while no graph runs; it must live until it is replaced.
KIV_API void kivSetObserver(kivObserver* observer);
