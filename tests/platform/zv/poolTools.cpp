// poolTools.cpp - see poolTools.h.
#include "tests/platform/zv/poolTools.h"

#include <gtest/gtest.h>
#include <sys/select.h>

#include <filesystem>
#include <fstream>
#include <string>

int lastError()
{
    int number = -1;
    zvGetError(&number, nullptr);
    return number;
}

ZVbufferpool makePool(int count, int size)
{
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvParamsSetInt(params, ZV_BUFFER_COUNT, count);
    zvParamsSetInt(params, ZV_BUFFER_SIZE, size);
    ZVbufferpool pool = reinterpret_cast<ZVbufferpool>(params);  // must become null on failure
    zvBufferCreatePool(params, &pool);
    zvParamsDestroy(params);
    return pool;
}

ZVpoolLedger ledgerOf(ZVbufferpool pool)
{
    ZVpoolLedger ledger = {};
    EXPECT_EQ(zvBufferGetPoolLedger(pool, &ledger), ZV_SUCCESS);
    return ledger;
}

bool isReady(int fd)
{
    fd_set in, out;
    FD_ZERO(&in);
    FD_ZERO(&out);
    FD_SET(fd, &in);
    FD_SET(fd, &out);
    timeval now = {};
    EXPECT_GE(select(fd + 1, &in, &out, nullptr, &now), 0);
    EXPECT_EQ(bool(FD_ISSET(fd, &in)), bool(FD_ISSET(fd, &out))) << "readable and writable differ";
    return FD_ISSET(fd, &in) && FD_ISSET(fd, &out);
}

int openFiles()
{
    const auto all = std::filesystem::directory_iterator("/proc/self/fd");
    return int(std::distance(begin(all), end(all)));
}

int poolMappings()
{
    std::ifstream maps("/proc/self/maps");
    int count = 0;
    for (std::string line; std::getline(maps, line);)
        count += line.find("kiv-pool") != std::string::npos;
    return count;
}
