// slots.cpp - taking and giving back the slots of an arena.
#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/support/error.h"
#include "platform/yq/arena.h"

namespace kiv {

namespace {

constexpr uint32_t slotsPerStep = 1024;  // the file grows by 64 KiB

void raiseTo(std::atomic<uint32_t>& value, uint32_t least)
{
    uint32_t now = value.load();
    while (now < least && !value.compare_exchange_weak(now, least)) { }
}

}  // namespace

bool allocate(const UniqueFd& file, size_t from, size_t bytes)
{
    int rc = 0;
    do {
        rc = posix_fallocate(file.get(), off_t(from), off_t(bytes));
    } while (rc == EINTR);
    if (rc == 0)
        return true;
    errno = rc;
    recordSystemError(ZV_ERROR_MEMORY, "the arena file cannot grow to %zu bytes", from + bytes);
    return false;
}

bool Arena::grow(uint32_t slot)
{
    const uint32_t from = backed.load();
    const uint32_t to = std::min(capacity, (slot / slotsPerStep + 1) * slotsPerStep);
    if (!allocate(file, headerBytes + from * sizeof(Slot), (to - from) * sizeof(Slot)))
        return false;
    raiseTo(backed, to);
    return true;
}

// Another process may have grown the file.
bool Arena::reachesNow(uint32_t slot)
{
    struct stat now;
    if (slot >= capacity || fstat(file.get(), &now) != 0 || now.st_size < off_t(headerBytes))
        return false;
    const auto within = uint64_t(now.st_size - off_t(headerBytes)) / sizeof(Slot);
    raiseTo(backed, uint32_t(std::min<uint64_t>(within, capacity)));
    return slot < within;
}

// maxSlots if the list is empty. What a damaged list offers is passed over, and
// what lies behind it is given up.
uint32_t Arena::popFree()
{
    uint64_t head = header->freeList.load();
    while (uint32_t(head) != 0) {
        const uint32_t slot = uint32_t(head) - 1;
        if (!reaches(slot)) {
            header->freeList.compare_exchange_strong(head, 0);
            return maxSlots;
        }
        const uint64_t next = ((head >> 32) + 1) << 32 | slots[slot].nextFree.load();
        if (!header->freeList.compare_exchange_weak(head, next))
            continue;
        if ((tagOf(slots[slot].word.load()) & liveTag) == 0)
            return slot;
        header->freeList.store(((next >> 32) + 1) << 32);
        return maxSlots;
    }
    return maxSlots;
}

uint32_t Arena::takeSlot()
{
    const uint32_t again = popFree();
    if (again != maxSlots)
        return again;
    uint32_t slot = header->used.load();
    do {
        if (slot >= capacity) {
            recordError(ZV_ERROR_LIMIT, "%u semaphores fill the arena (arenaBytes)", capacity);
            return maxSlots;
        }
        if (!reaches(slot) && !grow(slot))
            return maxSlots;
    } while (!header->used.compare_exchange_weak(slot, slot + 1));
    return slot;
}

void Arena::giveSlot(uint32_t slot)
{
    if ((tagOf(slots[slot].word.load()) & lastGeneration) == lastGeneration)
        return;
    uint64_t head = header->freeList.load();
    uint64_t next = 0;
    do {
        slots[slot].nextFree.store(uint32_t(head));
        next = ((head >> 32) + 1) << 32 | (slot + 1);
    } while (!header->freeList.compare_exchange_weak(head, next));
}

}  // namespace kiv
