// semaphore.h - the two kinds of semaphore, behind the public calls.
#pragma once

#include "platform/yq/arena.h"

namespace kiv {

// What a handle names: a slot that can be touched, and the tag that the handle
// expects there. Empty if the handle cannot be one of a semaphore.
struct SemaphoreRef {
    Arena* arena = nullptr;
    uint32_t index = 0;
    Tag tag = 0;

    explicit operator bool() const { return arena != nullptr; }
    Slot& slot() const { return arena->slots[index]; }
    Polled& own() const { return arena->polled[index]; }
    bool polled() const { return (tag & polledTag) != 0; }
};

SemaphoreRef refOf(const yqsema_t* handle);
yqsema_t* handleOf(const SemaphoreRef& ref);
int recordStale(const SemaphoreRef& ref);  // -1

// A fresh semaphore's slot, already live; empty, with an error recorded, if none is left.
SemaphoreRef newSlot(Arena& arena, Tag kind, int value);
// Ends the slot's semaphore and wakes its sleepers. True for exactly one caller.
bool endSlot(const SemaphoreRef& ref);

int takeOrdinary(const SemaphoreRef& ref);
int giveOrdinary(const SemaphoreRef& ref);
int testOrdinary(const SemaphoreRef& ref);

void beginPolled(const SemaphoreRef& ref, int value);
int openPolled(const SemaphoreRef& ref);
int addPolled(const SemaphoreRef& ref, int change);  // +1: give, -1: take
int testPolled(const SemaphoreRef& ref);
int endPolled(const SemaphoreRef& ref);

}  // namespace kiv
