// heapCount.cpp - counts what program and library take from the heap. A file of
// its own, so that no operator is inlined beside its twin.
#include "tests/platform/wisp/wispPeers.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

long heapAllocations() { return -1; }

#else

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> allocations{0};

}

void* operator new(size_t bytes)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* memory = malloc(bytes == 0 ? 1 : bytes))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { free(memory); }
void operator delete(void* memory, size_t) noexcept { free(memory); }

long heapAllocations() { return allocations.load(std::memory_order_relaxed); }

#endif
