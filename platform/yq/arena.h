// arena.h - a file of semaphore slots, shared by the processes that map it.
//
// There is no lock in the file: a slot is taken, used and given back by
// compare-and-swap alone, so a process that dies anywhere leaves nothing locked,
// and at worst one slot unused. Nothing read from the file is trusted further than
// a bounds check can carry it.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "platform/support/fd.h"
#include "platform/thread/internal.h"
#include "platform/yq/yq.h"

namespace kiv {

// A semaphore's handle: kind (4 bits), arena (12), slot (20), polled (1),
// generation (27). Arena and slot are the same in every process.
constexpr unsigned arenaBits = 12;
constexpr unsigned slotBits = 20;
constexpr unsigned tagBits = 28;
constexpr uint32_t maxArenas = 1u << arenaBits;
constexpr uint32_t maxSlots = 1u << slotBits;
constexpr uint32_t polledTag = 1u << 27;
constexpr uint32_t lastGeneration = polledTag - 1;
constexpr uint32_t liveTag = 1u << 31;  // in the slot only

// What of the slot says whose it is: liveTag, polledTag, generation. A slot that
// is free keeps its last generation; one whose generations are used up is never
// used again, so an old handle never comes back to life.
using Tag = uint32_t;

constexpr uint64_t slotWord(Tag tag, int value) { return uint64_t(tag) << 32 | uint32_t(value); }
constexpr Tag tagOf(uint64_t word) { return Tag(word >> 32); }
constexpr int valueOf(uint64_t word) { return int(uint32_t(word)); }

// One semaphore, in a cache line of its own.
struct alignas(64) Slot {
    std::atomic<uint64_t> word;  // tag and value: a stale handle is told in the step that takes
    WakeCount wakes;  // sleepers sleep on this
    std::atomic<uint32_t> sleepers;  // about to sleep, or sleeping; V makes a system call only for these
    std::atomic<uint32_t> nextFree;  // slot + 1, 0 at the end
};
static_assert(sizeof(Slot) == 64 && std::atomic<uint64_t>::is_always_lock_free);

// The part of a polled semaphore that only its process has. All zero is a valid,
// unused one; it is never destroyed, so a stale handle can always lock it.
struct Polled {
    std::mutex lock;  // guards the rest
    Tag tag;  // 0: not in use
    int value;
    bool armed;  // some P has found it exhausted
    bool readable;  // what the descriptor says now
    int fd;  // -1 until it is asked for
};

struct ArenaHeader {
    char magic[8];
    uint32_t version;
    uint32_t slotBytes;
    uint32_t number;
    std::atomic<uint32_t> used;  // slots ever taken
    std::atomic<uint64_t> freeList;  // count of changes << 32 | slot + 1; the count defeats ABA
};
constexpr size_t headerBytes = 4096;
static_assert(sizeof(ArenaHeader) <= headerBytes);

// One mapped file. Lives as long as the process.
struct Arena {
    UniqueFd file;
    uint32_t number = 0;
    dev_t device = 0;
    ino_t inode = 0;
    ArenaHeader* header = nullptr;
    Slot* slots = nullptr;
    Polled* polled = nullptr;  // one per slot, private, all zero in a forked child
    uint32_t capacity = 0;  // slots that fit the mapping
    std::atomic<uint32_t> backed{0};  // slots known to lie within the file
    char* path = nullptr;  // absolute; only if this process made the file
    pid_t maker = 0;

    // A slot that no handle means; maxSlots, with an error recorded, if none is left.
    uint32_t takeSlot();
    void giveSlot(uint32_t slot);
    // Whether the slot can be touched.
    bool reaches(uint32_t slot) { return slot < backed.load(std::memory_order_relaxed) || reachesNow(slot); }

private:
    bool reachesNow(uint32_t slot);
    uint32_t popFree();
    bool grow(uint32_t slot);
};

// By number. Entries are set once and stay.
extern std::atomic<Arena*> arenas[maxArenas];

// Allocates the file's blocks, so that a full disk is an error now and not a
// SIGBUS at the first touch. Two processes may do this at once.
bool allocate(const UniqueFd& file, size_t from, size_t bytes);

// Makes or joins; null with an error recorded.
Arena* openArena(const char* file);
Arena* arenaOf(yqptr_t handle);  // null, with an error recorded, for a null or foreign one
yqptr_t handleOf(const Arena& arena);

}  // namespace kiv
