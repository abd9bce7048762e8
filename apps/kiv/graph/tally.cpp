// tally.cpp - see tally.h.
#include "apps/kiv/graph/tally.h"

#include <algorithm>
#include <cmath>

void AgeHistogram::add(long long ns)
{
    double us = double(ns) / 1000.0;
    if (us < 1.0)
        us = ns < 0 ? 0.0 : 1.0;
    int at = us > 0.0 ? int(std::log2(us) * perDoubling) : -1;
    if (at < 0 || at >= int(classes_.size()))
        return;
    ++classes_[size_t(at)];
    ++count_;
}

void AgeHistogram::add(const AgeHistogram& other)
{
    for (size_t i = 0; i < classes_.size(); ++i)
        classes_[i] += other.classes_[i];
    count_ += other.count_;
}

// The middle of the class in which that share of all ages is reached.
double AgeHistogram::percentileMs(double percent) const
{
    long long wanted = (long long)(std::ceil(double(count_) * percent / 100.0));
    long long seen = 0;
    for (size_t i = 0; i < classes_.size() && count_ > 0; ++i) {
        seen += classes_[i];
        if (seen >= wanted)
            return std::exp2((double(i) + 0.5) / perDoubling) / 1000.0;
    }
    return -1.0;
}

void Tally::count(ZVbuffer buffer)
{
    long long now = nowNs();
    if (frames == 0)
        firstNs = now;
    lastNs = now;
    ++frames;
    bytes += zvBufferGetSize(buffer);
    const int64_t stamp = zvBufferGetUSTMSCpair(buffer).ust;
    if (stamp == 0)
        return;
    ages.add(now - stamp);
    recent.add(now - stamp);
}

void Tally::add(const Tally& other)
{
    if (other.frames == 0)
        return;
    firstNs = frames == 0 ? other.firstNs : std::min(firstNs, other.firstNs);
    lastNs = std::max(lastNs, other.lastNs);
    frames += other.frames;
    bytes += other.bytes;
    ages.add(other.ages);
    recent.add(other.recent);
}

long long nowNs()
{
    unsigned long long ns = 0;
    zvGetUST(&ns);
    return (long long)(ns);
}
