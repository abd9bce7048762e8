// tally.h - what a sink counts: frames, bytes and how old frames are on arrival.
#pragma once

#include <array>

#include "platform/zv/zv.h"

// Ages in a fixed number of classes, 16 to each doubling from 1 us to 64 s: a
// percentile is right to 1/16 of its value. Ages outside are not counted, as they
// come from another machine's clock. Loop-bound.
class AgeHistogram {
public:
    void add(long long ns);
    double percentileMs(double percent) const;  // -1 when nothing was counted
    long long count() const { return count_; }
    void add(const AgeHistogram& other);

private:
    static constexpr int perDoubling = 16, doublings = 26;
    std::array<long long, perDoubling* doublings> classes_ = {};
    long long count_ = 0;
};

// Loop-bound.
struct Tally {
    long long frames = 0;
    long long bytes = 0;
    long long firstNs = 0, lastNs = 0;  // arrival of the first and the last frame, clock of zvGetUST
    AgeHistogram ages;
    AgeHistogram recent;  // since the reader of this field emptied it

    // Counts one buffer that arrives now.
    void count(ZVbuffer buffer);
    void add(const Tally& other);
};

long long nowNs();
