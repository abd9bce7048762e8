// poolFixture.cpp - see poolFixture.h.
#include "tests/support/poolFixture.h"

#include <gtest/gtest.h>

PoolFixture::PoolFixture(int count, int size)
{
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvBufferSetPoolDefaults(params, count, size, 0, 0);
    EXPECT_EQ(zvBufferCreatePool(params, &pool), ZV_SUCCESS);
    zvParamsDestroy(params);
}

PoolFixture::~PoolFixture()
{
    for (int i = 0; i < numTaken_; ++i)
        EXPECT_EQ(zvBufferFree(taken_[i]), ZV_SUCCESS) << "buffer " << i << " was freed by somebody else";
    ZVpoolLedger ledger = {};
    EXPECT_EQ(zvBufferGetPoolLedger(pool, &ledger), ZV_SUCCESS);
    EXPECT_EQ(ledger.inUse, kept_) << "buffers missing from the pool";
    zvBufferDestroyPool(pool);
}

ZVbuffer PoolFixture::take()
{
    ZVbuffer buffer = takeOwned();
    EXPECT_LT(numTaken_, maxTaken);
    if (buffer != nullptr && numTaken_ < maxTaken)
        taken_[numTaken_++] = buffer;
    return buffer;
}

ZVbuffer PoolFixture::takeOwned()
{
    ZVbuffer buffer = nullptr;
    EXPECT_EQ(zvBufferAllocate(pool, &buffer), ZV_SUCCESS);
    return buffer;
}

void PoolFixture::expectKept(int buffers) { kept_ = buffers; }

int poolReferences(ZVbufferpool pool)
{
    ZVpoolLedger ledger = {};
    EXPECT_EQ(zvBufferGetPoolLedger(pool, &ledger), ZV_SUCCESS);
    return int(ledger.references);
}
