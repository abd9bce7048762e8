// kivNetworkHeader.h - what precedes each frame on a connection.
#pragma once

#include <cstddef>

#include "platform/zv/zv.h"

// Sent as it lies in memory; a sender zeroes the whole of it, padding too.
struct kivNetworkHeader {
    int headerVal;  // the application's
    USTMSCpair headerTimePair;  // stamp of the frame
};

static_assert(sizeof(kivNetworkHeader) == 24);
static_assert(offsetof(kivNetworkHeader, headerVal) == 0);
static_assert(offsetof(kivNetworkHeader, headerTimePair) == 8);
static_assert(offsetof(kivNetworkHeader, headerTimePair.msc) == 16);
