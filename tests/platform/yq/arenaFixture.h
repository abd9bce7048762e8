// arenaFixture.h - an arena in a file of its own, and children that share it.
#pragma once

#include <string>

#include <unistd.h>

#include "platform/yq/yq.h"

// An empty private file in the temporary folder; removed at the end.
struct TemporaryFile {
    TemporaryFile();
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const char* name() const { return path.c_str(); }
    std::string path;
};

struct ArenaFixture {
    ArenaFixture();
    TemporaryFile file;
    yqptr_t arena;
};

// A forked child that ends with what `body` returns, and runs no handlers of exit.
template <class Body> int startChild(Body body)
{
    const int pid = fork();
    if (pid == 0)
        _exit(body());
    return pid;
}

int endOfChild(int pid);  // its exit status, -1 if it was killed
