// failureTest.cpp - the kernel refuses; the service fails cleanly and leaks nothing.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "platform/limits.h"
#include "tests/platform/zv/poolTools.h"
#include "tests/support/poolFixture.h"

namespace {

const char* failing = "";  // the call that fails, once armed

template <class Function> Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool refuse(const char* name)
{
    if (strcmp(failing, name) != 0)
        return false;
    errno = ENOMEM;
    return true;
}

}  // namespace

#define REPLACE extern "C" __attribute__((visibility("default")))

REPLACE int memfd_create(const char* name, unsigned flags) noexcept
{
    return refuse("memfd_create") ? -1 : next<int(const char*, unsigned)>("memfd_create")(name, flags);
}

REPLACE int ftruncate(int fd, off_t size) noexcept
{
    return refuse("ftruncate") ? -1 : next<int(int, off_t)>("ftruncate")(fd, size);
}

REPLACE int socketpair(int domain, int type, int protocol, int* ends) noexcept
{
    return refuse("socketpair") ? -1 : next<int(int, int, int, int*)>("socketpair")(domain, type, protocol, ends);
}

REPLACE int setsockopt(int fd, int level, int name, const void* value, socklen_t bytes) noexcept
{
    if (refuse("setsockopt"))
        return -1;
    return next<int(int, int, int, const void*, socklen_t)>("setsockopt")(fd, level, name, value, bytes);
}

namespace {

void expectOutOfMemory()
{
    char detail[ZV_ERROR_DETAIL_MAX];
    int number = 0;
    EXPECT_STREQ(zvGetError(&number, detail), "out of memory");
    EXPECT_EQ(number, ZV_ERROR_MEMORY);
    EXPECT_THAT(detail, testing::EndsWith(strerror(ENOMEM)));
}

TEST(PoolFailure, AFailingCallMakesNoPoolAndLeavesNothing)
{
    zvBufferDestroyPool(makePool(1, 1));  // what is made once is made
    const int files = openFiles();
    for (const char* call : {"memfd_create", "ftruncate"}) {
        failing = call;
        ZVbufferpool pool = makePool(4, 1000);
        failing = "";
        EXPECT_EQ(pool, nullptr) << call;
        expectOutOfMemory();
        EXPECT_EQ(openFiles(), files) << call;
        EXPECT_EQ(poolMappings(), 0) << call;
    }
    PoolFixture pool(4, 1000);
    EXPECT_EQ(ledgerOf(pool.pool).free, 4);
}

// More than the processor can address.
TEST(PoolFailure, WithoutAddressSpaceThereIsNoPoolAndNothingStays)
{
    const KivLimits before = *kivLimits();
    kivLimits()->poolBytes = LLONG_MAX;
    kivLimits()->poolBuffers = 65'000;
    const int files = openFiles();
    ZVbufferpool huge = makePool(65'000, INT_MAX);
    EXPECT_EQ(huge, nullptr);
    expectOutOfMemory();
    EXPECT_EQ(openFiles(), files);
    kivLimits()->poolBytes = 4096;
    PoolFixture pool(1);
    *kivLimits() = before;
}

TEST(PoolFailure, ADescriptorThatCannotBeMadeIsTriedAgain)
{
    PoolFixture pool(1);
    const int files = openFiles();
    for (const char* call : {"socketpair", "setsockopt"}) {
        failing = call;
        EXPECT_EQ(zvBufferGetPoolFD(pool.pool), -1) << call;
        failing = "";
        EXPECT_EQ(lastError(), ZV_ERROR_SYSTEM) << call;
        EXPECT_EQ(openFiles(), files) << call;
    }
    ZVbuffer buffer = pool.takeOwned();
    const int fd = zvBufferGetPoolFD(pool.pool);
    EXPECT_FALSE(isReady(fd));
    zvBufferFree(buffer);
    EXPECT_TRUE(isReady(fd));
}

}  // namespace
