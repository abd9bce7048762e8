// poolFixture.h - a pool that fails the test when a buffer is missing at the end.
#pragma once

#include "platform/zv/zv.h"

class PoolFixture {
public:
    explicit PoolFixture(int count, int size = 4096);
    ~PoolFixture();
    PoolFixture(const PoolFixture&) = delete;
    PoolFixture& operator=(const PoolFixture&) = delete;

    ZVbuffer take();  // one buffer; the fixture drops this reference at the end
    ZVbuffer takeOwned();  // one buffer; the caller frees it
    void expectKept(int buffers);  // what a class is documented to leave behind
    ZVbufferpool pool = nullptr;

private:
    static constexpr int maxTaken = 64;
    ZVbuffer taken_[maxTaken];
    int numTaken_ = 0;
    int kept_ = 0;
};

// References held over all buffers of the pool, for "who holds what" checks.
int poolReferences(ZVbufferpool pool);
