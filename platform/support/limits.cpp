// limits.cpp - the one instance of the limits.
#include "platform/limits.h"

extern "C" KivLimits* kivLimits(void)
{
    static KivLimits limits = {
        .messageBytes = 64LL << 20,
        .imageWidth = 16384,
        .imageHeight = 16384,
        .poolBytes = 4LL << 30,
        .poolBuffers = 4096,
        .paramsElements = 4096,
        .arenaBytes = 64LL << 20,
        .movieFrames = 16 << 20,
        .frameBytes = 64LL << 20,
        .converterWorkers = 64,
        .connectMs = 5000,
        .sendMs = 10000,
        .idleMs = 2000,
        .recvMs = 60000,
    };
    return &limits;
}
