// resources.h - what the process holds just now, for "nothing is left behind".
#pragma once

#include <unistd.h>

#include <filesystem>

inline int entriesOf(const char* directory)
{
    int n = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory))
        ++n;
    return n;
}
inline int openDescriptors() { return entriesOf("/proc/self/fd"); }
// Counted when it has stood still for a few milliseconds: the system lists a
// thread that was joined for a moment longer.
inline int runningThreads()
{
    int threads = entriesOf("/proc/self/task");
    for (int still = 0; still < 3;) {
        usleep(1000);
        const int now = entriesOf("/proc/self/task");
        still = now == threads ? still + 1 : 0;
        threads = now;
    }
    return threads;
}
