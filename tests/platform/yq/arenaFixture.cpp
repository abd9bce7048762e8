// arenaFixture.cpp - see arenaFixture.h.
#include "tests/platform/yq/arenaFixture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/wait.h>

TemporaryFile::TemporaryFile() : path("/tmp/yqtestXXXXXX") { close(mkstemp(path.data())); }

TemporaryFile::~TemporaryFile() { unlink(name()); }

ArenaFixture::ArenaFixture() : arena(yqinit(file.name())) { EXPECT_NE(arena, nullptr); }

int endOfChild(int pid)
{
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
