// kivObj.cpp - see kivObj.h.
#include "core/kivObj.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cstring>
#include <mutex>

#include "core/kivObserver.h"

yqptr_t kivObj::kivArena = nullptr;

namespace {

constinit std::mutex arenaLock;  // guards the making of the arena

constinit std::atomic<kivObserver*> theObserver{nullptr};

// A block that a destroyed node left behind.
struct Kept {
    const void* block;
    Kept* next;
};
constinit std::atomic<Kept*> kept{nullptr};
constinit std::atomic<int> numKept{0};

// Keeps a block reachable for ever; without memory it is merely lost.
void keep(const void* block)
{
    Kept* entry = static_cast<Kept*>(malloc(sizeof(Kept)));
    if (entry == nullptr)
        return;
    *entry = {block, kept.load(std::memory_order_relaxed)};
    while (!kept.compare_exchange_weak(entry->next, entry, std::memory_order_release, std::memory_order_relaxed)) { }
    numKept.fetch_add(1, std::memory_order_relaxed);
}

// An arena in a fresh file that only this user can open; null after a message.
yqptr_t makeArena()
{
    yqconfig(16, 1);
    char* kivArenaFileName = strdup("/tmp/kivXXXXXX");
    const int fd = kivArenaFileName != nullptr ? mkostemp(kivArenaFileName, O_CLOEXEC) : -1;
    yqptr_t arena = nullptr;
    if (fd >= 0) {
        close(fd);
        arena = yqinit(kivArenaFileName);
    }
    if (arena == nullptr) {
        kivPrintError("Unable to create semaphore arena\n");
        if (fd >= 0)
            unlink(kivArenaFileName);
        free(kivArenaFileName);
        return nullptr;
    }
    keep(kivArenaFileName);
    return arena;
}

}  // namespace

// Any thread. The first node of the process makes the arena; after a failure the
// next one tries again, and nodes live without an arena meanwhile.
kivObj::kivObj()
    : parent(nullptr), objList(nullptr), buffer(nullptr), bufferPool(nullptr), numBuffers(6), imageSizeX(0),
      imageSizeY(0), bufferSizeX(0), bufferSizeY(0), started(0), initialized(0), name(strdup("No name"))
{
    std::lock_guard lock(arenaLock);
    if (kivArena == nullptr)
        kivArena = makeArena();
}

// Destroys the pool; buffers of it that others hold stay valid until they are
// freed. The children live on; cells and name are kept.
kivObj::~kivObj()
{
    if (bufferPool != nullptr) {
        kivTrace("~kivObj(%s): Deleting buffer pool\n", name);
        zvBufferDestroyPool(bufferPool);
    }
    for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next)
        keep(tmpPtr);
    if (name != nullptr)
        keep(name);
}

int kivObj::keptBlocks() { return numKept.load(std::memory_order_relaxed); }

// Adds a child at the head of the list, so walks visit the newest first. Neither
// duplicates nor cycles are looked for. Returns 8 for null, 10 when this node is
// initialised and the child cannot be added that late.
int kivObj::addObject(kivObj* newObj)
{
    if (newObj == nullptr)
        return kivErrParams;
    if (initialized && newObj->easyToAdd() == 0)
        return kivErrRuntimeChild;

    kivObjList* tmpPtr = static_cast<kivObjList*>(malloc(sizeof(kivObjList)));
    assert(tmpPtr);
    *tmpPtr = {newObj, objList};
    objList = tmpPtr;
    newObj->parent = this;
    return kivErrNone;
}

int kivObj::addSrcConstraints(ZVparams*) { return kivErrVirtual; }

int kivObj::addDstConstraints(ZVparams*) { return kivErrVirtual; }

// Initialises the children with a null record, then marks itself. A child's
// failure is reported, never returned. Loop thread.
int kivObj::init(kivParams*)
{
    for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
        assert(tmpPtr->obj);
        if (const int err = tmpPtr->obj->init(nullptr); err != kivErrNone)
            KIV_REPORT(err);
    }
    initialized = 1;
    return kivErrNone;
}

// Starts the children first if asked to, so that nothing arrives at a node that
// is not started. Loop thread.
int kivObj::start(int propagate)
{
    kivTrace("Starting:%s\n", name);
    if (propagate) {
        for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
            assert(tmpPtr->obj);
            tmpPtr->obj->start(propagate);
        }
    }
    std::atomic_ref(started).store(1);
    return kivErrNone;
}

// Stops itself, then the whole subtree. Loop thread.
int kivObj::stop()
{
    kivTrace("Stopping:%s\n", name);
    std::atomic_ref(started).store(0);
    for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
        assert(tmpPtr->obj);
        tmpPtr->obj->stop();
    }
    return kivErrNone;
}

int kivObj::getFD() { return -1; }

// Adds its descriptor, then those of the subtree if asked to. Descriptor 0 never
// enters the set but may raise *maxFD; what select() cannot take does neither.
int kivObj::setFD(fd_set* fdSet, int* maxFD, int propagate)
{
    const int fd = getFD();
    if (fd < FD_SETSIZE) {
        if (fd > 0)
            kivFdAdd(fd, fdSet);
        if (*maxFD < fd)
            *maxFD = fd;
    }
    if (!propagate)
        return kivErrNone;
    for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
        assert(tmpPtr->obj);
        tmpPtr->obj->setFD(fdSet, maxFD, 1);
    }
    return kivErrNone;
}

int kivObj::handleEvents(fd_set) { return kivErrVirtual; }

int kivObj::receive(ZVbuffer) { return kivErrVirtual; }

kivObserver::~kivObserver() = default;

void kivSetObserver(kivObserver* observer) { theObserver.store(observer, std::memory_order_release); }

// Hands a buffer to every child through the observer. Apart from the road without one,
// which stays as short as it can be.
static void propagateObserved(kivObserver& observer, kivObj& from, ZVbuffer outBuffer)
{
    for (kivObjList* tmpPtr = from.objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
        assert(tmpPtr->obj);
        if (const int err = observer.deliver(&from, tmpPtr->obj, outBuffer); err != kivErrNone)
            KIV_REPORT(err);
    }
}

// Hands a buffer to every child. It takes and drops no reference: a child that
// keeps the buffer attaches its own, the caller frees its own afterwards.
int kivObj::propagate(ZVbuffer outBuffer)
{
    if (kivObserver* const observer = theObserver.load(std::memory_order_acquire); observer != nullptr) [[unlikely]] {
        propagateObserved(*observer, *this, outBuffer);
        return kivErrNone;
    }
    for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
        assert(tmpPtr->obj);
        if (const int err = tmpPtr->obj->receive(outBuffer); err != kivErrNone)
            KIV_REPORT(err);
    }
    return kivErrNone;
}

int kivObj::easyToAdd() { return 0; }

int kivObj::isStarted() { return std::atomic_ref(started).load(std::memory_order_relaxed); }

int kivObj::isInitialized() { return initialized; }

void kivObj::setParent(kivObj* newParent) { parent = newParent; }

int kivObj::getImageDimensions(int* returnWidth, int* returnHeight)
{
    *returnWidth = imageSizeX;
    *returnHeight = imageSizeY;
    return kivErrNone;
}

int kivObj::getBufferDimensions(int* sizeX, int* sizeY)
{
    *sizeX = bufferSizeX;
    *sizeY = bufferSizeY;
    return kivErrNone;
}

void kivObj::setName(const char* newName)
{
    char* copy = newName != nullptr ? strdup(newName) : nullptr;
    if (copy == nullptr)
        return;
    free(name);
    name = copy;
}

const char* kivObj::getName() { return name; }

kivObjList* kivObj::getObjectList() { return objList; }

// Asks every child what it needs of this node's buffers; before the pool is made.
int kivObj::addChildConstraints(ZVparams* params)
{
    for (kivObjList* tmpPtr = objList; tmpPtr != nullptr; tmpPtr = tmpPtr->next) {
        assert(tmpPtr->obj);
        if (const int err = tmpPtr->obj->addSrcConstraints(params); err != kivErrNone)
            KIV_REPORT(err);
    }
    return kivErrNone;
}

// Asks the parent that will fill this node's pool.
int kivObj::addParentConstraints(ZVparams* params)
{
    assert(parent);
    return parent->addDstConstraints(params);
}
