// kivStats.cpp - see kivStats.h.
#include "core/kivStats.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace {

constexpr long long maxMask = 1023;
constexpr long long shortNs = 500'000, longNs = 4'000'000;  // between two timed frames of a node

long long now()
{
    unsigned long long ns = 0;
    zvGetUST(&ns);
    return (long long)(ns);
}

struct alignas(64) Entry {
    const kivObj* node = nullptr;
    STATSnode* record = nullptr;
    int index = -1;
    long long mask = 0;  // a frame is timed when its number has none of these bits
    long long lastTimedNs = 0;
    Entry* follower = this;  // that came after it the last time
};

// A receive that is being timed.
struct Timing {
    Timing* outer;
    long long insideNs = 0;  // in the nodes that it called
};

}  // namespace

// Entries in a hash table, at most half full: a hop finds its node at once.
struct kivStats::State {
    static constexpr int bits = 9;
    static_assert(STATS_MAX_NODES * 2 <= 1 << bits);

    STATSpage page = nullptr;
    int count = 0;
    Timing* timing = nullptr;
    Entry* last = &nobody;  // that was seen last
    Entry nobody;
    std::array<Entry, 1 << bits> entries;

    Entry& place(const kivObj* node)
    {
        const uint64_t word = uint64_t(reinterpret_cast<uintptr_t>(node)) >> 4;
        size_t at = size_t((word * 0x9E3779B97F4A7C15u) >> (64 - bits));
        while (entries[at].node != nullptr && entries[at].node != node)
            at = (at + 1) % entries.size();
        return entries[at];
    }

    [[gnu::noinline]] int timed(Entry& entry, kivObj* to, ZVbuffer buffer);
};

kivStats::kivStats(STATSpage page) : state_(std::make_unique<State>()) { state_->page = page; }

kivStats::~kivStats() = default;

STATSnode* kivStats::addNode(kivObj* node, const char* kind, const char* format, int number)
{
    const Entry* above = node->parent != nullptr ? &state_->place(node->parent) : nullptr;
    const int parent = above != nullptr && above->node != nullptr ? above->index : -1;
    STATSnode* record = statsAddNode(state_->page, node->getName(), kind, format, number, parent);
    if (record == nullptr)
        return nullptr;
    Entry& entry = state_->place(node);
    entry.node = node;
    entry.record = record;
    entry.index = state_->count++;
    return record;
}

STATSnode* kivStats::recordOf(const kivObj* node) { return state_->place(node).record; }

// Loop thread. Counts and hands on. Nodes come in the same order frame for frame, so the
// one that followed the last is looked at before the table is.
int kivStats::deliver(kivObj*, kivObj* to, ZVbuffer buffer)
{
    State& s = *state_;
    Entry* found = s.last->follower;
    if (found->node != to) [[unlikely]] {
        found = &s.place(to);
        if (found->node == nullptr)
            return to->receive(buffer);
        s.last->follower = found;
    }
    Entry& entry = *found;
    s.last = found;
    const long long number = __atomic_load_n(&entry.record->in, __ATOMIC_RELAXED) + 1;
    statsSet(&entry.record->in, number);
    if (s.timing == nullptr && (number & entry.mask) != 0) [[likely]]
        return to->receive(buffer);
    return s.timed(entry, to, buffer);
}

// A receive with the clock before and after it. What it calls in turn is timed too and
// taken off its time.
int kivStats::State::timed(Entry& entry, kivObj* to, ZVbuffer buffer)
{
    const long long begin = now();
    const long long stamp = zvBufferGetUSTMSCpair(buffer).ust;
    Timing here = {timing};
    timing = &here;
    const int err = to->receive(buffer);
    timing = here.outer;
    const long long took = now() - begin;
    if (timing != nullptr)
        timing->insideNs += took;

    statsAdd(&entry.record->timed, 1);
    statsAdd(&entry.record->timedNs, took - here.insideNs);
    const int age = stamp != 0 ? statsAgeClass(begin - stamp) : -1;
    if (age >= 0)
        __atomic_store_n(&entry.record->ages[age], entry.record->ages[age] + 1, __ATOMIC_RELAXED);

    // As often as is worth it: fast nodes are timed seldom.
    const long long since = begin - entry.lastTimedNs;
    if (since < shortNs && entry.mask < maxMask)
        entry.mask = entry.mask * 2 + 1;
    else if (since > longNs)
        entry.mask = (long long)(std::bit_ceil((unsigned long long)((entry.mask + 1) * longNs / since + 1)) / 2) - 1;
    entry.mask = std::max(entry.mask, 0LL);
    entry.lastTimedNs = begin;
    return err;
}
