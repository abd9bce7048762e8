// stats.cpp - the public calls of the statistics service. See stats.h.
#include "platform/stats/stats.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/stats/page.h"
#include "platform/support/error.h"
#include "platform/support/handle.h"

namespace {

using kiv::StatsPage;

constinit kiv::HandleTable<StatsPage, kiv::HandleKind::Stats> pages;

int handOut(std::unique_ptr<StatsPage> page, STATSpage* out)
{
    *out = page != nullptr ? static_cast<STATSpage>(pages.insert(std::move(page))) : nullptr;
    return *out != nullptr ? 0 : -1;
}

bool isPage(int folder, const char* name)
{
    static constexpr char mark[] = "/memfd:kiv-stats";
    char target[64];
    const ssize_t length = readlinkat(folder, name, target, sizeof target);
    return length >= ssize_t(sizeof mark - 1) && memcmp(target, mark, sizeof mark - 1) == 0;
}

// The first page among the open files of a process. Empty, with an error recorded, for none.
kiv::UniqueFd findPage(int pid)
{
    char path[32];
    snprintf(path, sizeof path, "/proc/%d/fd", pid);
    DIR* files = opendir(path);
    if (files == nullptr) {
        if (errno == ENOENT)
            kiv::recordError(ZV_ERROR_SYSTEM, "there is no process %d", pid);
        else
            kiv::recordSystemError(ZV_ERROR_SYSTEM, "process %d", pid);
        return {};
    }
    kiv::UniqueFd fd;
    while (const dirent* file = fd ? nullptr : readdir(files))
        if (isPage(dirfd(files), file->d_name))
            fd.reset(openat(dirfd(files), file->d_name, O_RDONLY | O_CLOEXEC));
    closedir(files);
    if (!fd)
        kiv::recordError(ZV_ERROR_EMPTY, "process %d has no page of statistics", pid);
    return fd;
}

}  // namespace

int statsCreate(const char* title, int maxNodes, STATSpage* out)
try {
    return handOut(StatsPage::create(title, maxNodes), out);
} catch (const std::bad_alloc&) {
    *out = nullptr;
    return kiv::recordError(ZV_ERROR_MEMORY, "no memory for a page of statistics");
}

// Looks through the files of the process; blocks no longer than that takes.
int statsOpenProcess(int pid, STATSpage* out)
try {
    kiv::UniqueFd fd = findPage(pid);
    return handOut(fd ? StatsPage::open(std::move(fd)) : nullptr, out);
} catch (const std::bad_alloc&) {
    *out = nullptr;
    return kiv::recordError(ZV_ERROR_MEMORY, "no memory for a page of statistics");
}

int statsOpenFD(int fd, STATSpage* out)
try {
    kiv::UniqueFd own(fcntl(fd, F_DUPFD_CLOEXEC, 3));
    if (!own)
        kiv::recordSystemError(ZV_ERROR_ARGUMENT, "descriptor %d", fd);
    return handOut(own ? StatsPage::open(std::move(own)) : nullptr, out);
} catch (const std::bad_alloc&) {
    *out = nullptr;
    return kiv::recordError(ZV_ERROR_MEMORY, "no memory for a page of statistics");
}

int statsClose(STATSpage page) { return pages.retire(page, "statsClose") ? 0 : -1; }

int statsGetFD(STATSpage page)
{
    const auto pin = pages.pin(page, "statsGetFD");
    return pin ? pin->fd() : -1;
}

STATSnode* statsAddNode(STATSpage page, const char* name, const char* kind, const char* format, int number, int parent)
{
    const auto pin = pages.pin(page, "statsAddNode");
    return pin ? pin->add(name, kind, format, number, parent) : nullptr;
}

int statsUpdate(STATSpage page, long long nowNs, long long cpuNs)
{
    const auto pin = pages.pin(page, "statsUpdate");
    return pin ? pin->update(nowNs, cpuNs) : -1;
}

int statsGetInfo(STATSpage page, STATSinfo* info)
{
    const auto pin = pages.pin(page, "statsGetInfo");
    return pin ? pin->info(info) : -1;
}

int statsGetNode(STATSpage page, int index, STATSnode* node)
{
    const auto pin = pages.pin(page, "statsGetNode");
    return pin ? pin->node(index, node) : -1;
}

int statsAgeClass(long long ns)
{
    if (ns < 0)
        return -1;
    const int found = ns < 1000 ? 0 : int(std::log2(double(ns) / 1000.0) * 4);
    return found < STATS_AGES ? found : -1;
}

double statsClassMs(int ageClass)
{
    return ageClass < 0 || ageClass >= STATS_AGES ? 0 : std::exp2((ageClass + 0.5) / 4) / 1000.0;
}
