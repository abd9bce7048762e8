// arena.cpp - making, joining and removing arena files.
#include "platform/yq/arena.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/support/handle.h"

namespace kiv {

constinit std::atomic<Arena*> arenas[maxArenas] = {};

namespace {

constexpr char magic[8] = {'k', 'i', 'v', 'a', 'r', 'e', 'n', 'a'};
constexpr uint32_t version = 1;

constinit std::mutex openLock;  // one yqinit at a time

// Removes what this process made, if the name still means the same file.
void removeFiles()
{
    for (const std::atomic<Arena*>& entry : arenas) {
        const Arena* const arena = entry.load();
        struct stat now;
        if (arena == nullptr || arena->maker != getpid() || lstat(arena->path, &now) != 0)
            continue;
        if (now.st_dev == arena->device && now.st_ino == arena->inode)
            unlink(arena->path);
    }
}

bool isPrivate(const struct stat& file, const char* name)
{
    const char* wrong = nullptr;
    if (!S_ISREG(file.st_mode))
        wrong = "is not a regular file";
    else if (file.st_uid != geteuid())
        wrong = "belongs to another user";
    else if ((file.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        wrong = "is open to other users";
    if (wrong != nullptr)
        recordError(ZV_ERROR_ARGUMENT, "%s %s", name, wrong);
    return wrong == nullptr;
}

// Moved off 0 to 2, which belong to the program's streams.
UniqueFd openFile(const char* name, struct stat& status)
{
    UniqueFd fd(open(name, O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (fd && fd.get() < 3)
        fd.reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
    if (!fd || fstat(fd.get(), &status) != 0) {
        recordSystemError(ZV_ERROR_SYSTEM, "%s cannot be opened", name);
        return UniqueFd();
    }
    return isPrivate(status, name) ? std::move(fd) : UniqueFd();
}

Arena* findMapped(const struct stat& file)
{
    for (const std::atomic<Arena*>& entry : arenas) {
        Arena* const arena = entry.load();
        if (arena != nullptr && arena->device == file.st_dev && arena->inode == file.st_ino)
            return arena;
    }
    return nullptr;
}

// The address space is reserved whole, so that pointers never move; the file
// behind it grows.
bool map(Arena& arena)
{
    const long long bytes = kivLimits()->arenaBytes;
    if (bytes < (long long)(headerBytes + sizeof(Slot))) {
        recordError(ZV_ERROR_LIMIT, "arenaBytes (%lld) leaves no room for a semaphore", bytes);
        return false;
    }
    arena.capacity
        = uint32_t(std::min<long long>((bytes - (long long)headerBytes) / (long long)sizeof(Slot), maxSlots));

    const size_t shared = headerBytes + arena.capacity * sizeof(Slot);
    const size_t own = arena.capacity * sizeof(Polled);
    void* const base = mmap(nullptr, shared, PROT_READ | PROT_WRITE, MAP_SHARED, arena.file.get(), 0);
    void* const beside = mmap(nullptr, own, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED || beside == MAP_FAILED || madvise(beside, own, MADV_WIPEONFORK) != 0) {
        recordSystemError(ZV_ERROR_MEMORY, "no address space for an arena of arenaBytes (%lld)", bytes);
        if (base != MAP_FAILED)
            munmap(base, shared);
        if (beside != MAP_FAILED)
            munmap(beside, own);
        return false;
    }
    arena.header = static_cast<ArenaHeader*>(base);
    arena.slots = reinterpret_cast<Slot*>(static_cast<char*>(base) + headerBytes);
    arena.polled = static_cast<Polled*>(beside);
    return true;
}

void unmap(Arena& arena)
{
    munmap(arena.header, headerBytes + arena.capacity * sizeof(Slot));
    munmap(arena.polled, arena.capacity * sizeof(Polled));
}

// Numbers start anywhere, so that arenas of two processes seldom share one.
uint32_t freeNumber(const Arena& arena)
{
    const uint32_t start = uint32_t(arena.inode) * 2654435761u ^ uint32_t(getpid()) * 40503u;
    for (uint32_t i = 0; i < maxArenas; ++i) {
        const uint32_t number = (start + i) % maxArenas;
        if (arenas[number].load() == nullptr)
            return number;
    }
    recordError(ZV_ERROR_LIMIT, "%u arenas in one process", maxArenas);
    return maxArenas;
}

bool initialise(Arena& arena, const char* file)
{
    arena.path = realpath(file, nullptr);
    if (arena.path == nullptr) {
        recordSystemError(ZV_ERROR_SYSTEM, "no absolute name of %s", file);
        return false;
    }
    arena.number = freeNumber(arena);
    if (arena.number == maxArenas || !allocate(arena.file, 0, headerBytes))
        return false;
    arena.maker = getpid();
    arena.header->version = version;
    arena.header->slotBytes = sizeof(Slot);
    arena.header->number = arena.number;
    memcpy(arena.header->magic, magic, sizeof magic);
    return true;
}

bool adopt(Arena& arena, const struct stat& status, const char* file)
{
    const ArenaHeader* const header = arena.header;
    if (status.st_size < off_t(headerBytes) || memcmp(header->magic, magic, sizeof magic) != 0
        || header->version != version || header->slotBytes != sizeof(Slot)) {
        recordError(ZV_ERROR_DATA, "%s is not a semaphore arena", file);
        return false;
    }
    arena.number = header->number;
    if (arena.number >= maxArenas || arenas[arena.number].load() != nullptr) {
        recordError(ZV_ERROR_DATA, "number %u of arena %s is impossible, or another arena's here", arena.number, file);
        return false;
    }
    return true;
}

// Under openLock and the file's own lock, which orders makers and joiners.
Arena* setUp(UniqueFd fd, const struct stat& status, const char* file)
{
    auto arena = std::make_unique<Arena>();
    arena->file = std::move(fd);
    arena->device = status.st_dev;
    arena->inode = status.st_ino;
    if (!map(*arena))
        return nullptr;
    if (!(status.st_size == 0 ? initialise(*arena, file) : adopt(*arena, status, file))) {
        unmap(*arena);
        free(arena->path);
        return nullptr;
    }
    arenas[arena->number].store(arena.get());
    return arena.release();
}

}  // namespace

Arena* openArena(const char* file)
{
    static const int registered = atexit(removeFiles);
    (void)registered;
    std::lock_guard lock(openLock);
    struct stat status;
    UniqueFd fd = openFile(file, status);
    if (!fd)
        return nullptr;
    if (Arena* const mapped = findMapped(status))
        return mapped;
    if (flock(fd.get(), LOCK_EX) != 0 || fstat(fd.get(), &status) != 0) {
        recordSystemError(ZV_ERROR_SYSTEM, "%s cannot be locked", file);
        return nullptr;
    }
    const int number = fd.get();
    Arena* const arena = setUp(std::move(fd), status, file);
    if (arena != nullptr)
        flock(number, LOCK_UN);
    return arena;
}

Arena* arenaOf(yqptr_t handle)
{
    const auto number = uint32_t(reinterpret_cast<uintptr_t>(handle) & (maxArenas - 1));
    Arena* const arena = arenas[number].load();
    if (arena != nullptr && handleOf(*arena) == handle)
        return arena;
    recordError(ZV_ERROR_HANDLE, "null or foreign arena %p", static_cast<void*>(handle));
    return nullptr;
}

yqptr_t handleOf(const Arena& arena)
{
    return reinterpret_cast<yqptr_t>(uintptr_t(HandleKind::Arena) << 60 | arena.number);
}

}  // namespace kiv
