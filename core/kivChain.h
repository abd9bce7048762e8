// kivChain.h - fronts a linear pipeline: one object for the whole graph and its loop.
#pragma once

#include "core/kivObj.h"

// Loop-bound. Remembers the first and the last node of a pipeline; owns neither.
// The tail is found by setChain alone: call it again after addObject, or a
// descriptor below the old tail is waited for and never served.
class KIV_API kivChain : public kivObj {
public:
    kivChain();
    ~kivChain() override;

    int addObject(kivObj* newObj) override;  // to the tail
    int addSrcConstraints(ZVparams* params) override;  // to the head
    int addDstConstraints(ZVparams* params) override;  // to the tail
    int init(kivParams* params) override;  // to the head
    int start(int propagate) override;  // to the head; end with stop() of the head itself
    int getFD() override;  // always 5002, no descriptor
    int setFD(fd_set* fdSet, int* maxFD, int propagate) override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;  // to the head

    virtual int setup();

    int setChain(kivObj* newHead);

    kivObj* chainHead;
    kivObj* chainTail;
};
