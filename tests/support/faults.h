// faults.h - makes one call of one platform function fail, and counts its calls.
//
// A test program writes KIV_FAULT once for each function that it wants to reach;
// the library's own calls then go through it to the real one.
#pragma once

#include <dlfcn.h>

#include <atomic>

struct Fault {
    std::atomic<int> countdown{0};  // 1: the next call fails; 0: none will
    std::atomic<long> calls{0};

    void failAt(int call) { countdown.store(call); }
    bool hit()
    {
        calls.fetch_add(1, std::memory_order_relaxed);
        int left = countdown.load(std::memory_order_relaxed);
        while (left > 0 && !countdown.compare_exchange_weak(left, left - 1)) { }
        return left == 1;
    }
};

// The real function behind one that the test program replaces.
template <class Function> Function* realFunction(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

#define KIV_FAULT(result, name, params, args, failure)                                                                 \
    Fault fault_##name;                                                                                                \
    extern "C" result name params                                                                                      \
    {                                                                                                                  \
        static const auto real = realFunction<result params>(#name);                                                   \
        return fault_##name.hit() ? failure : real args;                                                               \
    }
