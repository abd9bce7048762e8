// page.h - how a page lies in its memory file.
#pragma once

#include <memory>

#include "platform/stats/stats.h"
#include "platform/support/fd.h"

namespace kiv {

// Both sides are of one machine, and of one build as long as `layout` says so.
struct StatsHead {
    static constexpr unsigned long long mark = 0x5354415456494b31ull;
    static constexpr unsigned thisLayout = unsigned(sizeof(STATSnode)) << 8 | 1;

    unsigned long long magic;
    unsigned layout;
    int capacity;  // records behind the head
    int pid;
    char title[STATS_TEXT_MAX];
    int nodes;  // atomic: records that are complete
    int ended;  // atomic: the owner counts no more
    long long startedNs;
    long long updatedNs;  // atomic
    long long cpuNs;  // atomic
};

// A mapped page; unmapped when the last user is gone.
class StatsPage {
public:
    // Both give null with an error recorded.
    static std::unique_ptr<StatsPage> create(const char* title, int maxNodes);
    static std::unique_ptr<StatsPage> open(UniqueFd fd);
    ~StatsPage();

    STATSnode* add(const char* name, const char* kind, const char* format, int number, int parent);
    int info(STATSinfo* info) const;
    int node(int index, STATSnode* node) const;
    int update(long long nowNs, long long cpuNs);
    int fd() const { return fd_.get(); }

private:
    StatsPage(UniqueFd fd, void* memory, size_t bytes, bool own);
    int nodes() const;

    UniqueFd fd_;
    StatsHead* head_;
    STATSnode* records_;
    size_t bytes_;
    bool own_;  // may be written
};

}  // namespace kiv
