// kivObj.h - base class of every node: its place in the tree, its pool, its life.
#pragma once

#include <sys/select.h>

#include "core/kivUtil.h"
#include "platform/yq/yq.h"
#include "platform/zv/zv.h"

class kivObj;

// One child; cells are made by addObject and stay for the life of the process.
struct kivObjList {
    kivObj* obj;
    kivObjList* next;
};

// Handed to init; reserved, read by nobody.
struct kivParams {
    int foo;
};

// Loop-bound: every operation runs on the thread that drives the graph. A node
// never owns its children: stop the graph, then delete parents before children.
class KIV_API kivObj {
public:
    kivObj();
    kivObj(const kivObj&) = delete;
    kivObj& operator=(const kivObj&) = delete;
    virtual ~kivObj();

    // Virtual operations, in slot order. All return an error id unless said otherwise.
    virtual int addObject(kivObj* newObj);  // child at the head of the list
    virtual int addSrcConstraints(ZVparams* params);  // what this node needs of its parent's pool
    virtual int addDstConstraints(ZVparams* params);  // what this node needs of a pool below it
    virtual int init(kivParams* params);  // children first, then itself
    virtual int start(int propagate);  // with propagate: children first
    virtual int stop();  // itself first, then always the children
    virtual int getFD();  // descriptor to wait for, -1 = none
    virtual int setFD(fd_set* fdSet, int* maxFD, int propagate);
    virtual int handleEvents(fd_set fdSet);  // 9 when its descriptor is not in the set
    virtual int receive(ZVbuffer inBuffer);  // borrowed: attach to keep
    virtual int propagate(ZVbuffer outBuffer);  // receive of every child
    virtual int easyToAdd();  // 1: may be added below an initialised parent
    virtual int isStarted();
    virtual int isInitialized();

    void setParent(kivObj* newParent);
    int getImageDimensions(int* returnWidth, int* returnHeight);
    int getBufferDimensions(int* sizeX, int* sizeY);
    void setName(const char* newName);  // copied; null is ignored
    const char* getName();
    kivObjList* getObjectList();
    int addChildConstraints(ZVparams* params);  // addSrcConstraints of every child
    int addParentConstraints(ZVparams* params);  // addDstConstraints of the parent

    kivObj* parent;
    kivObjList* objList;  // newest child first
    ZVbuffer buffer;
    ZVbufferpool bufferPool;  // owned; destroyed with the node
    int numBuffers;  // wanted in the pool
    int imageSizeX, imageSizeY;  // pixels
    int bufferSizeX, bufferSizeY;  // pixels; may exceed the image
    int started;
    int initialized;
    char* name;  // heap copy, for messages

    static yqptr_t kivArena;  // semaphores of all nodes; made by the first node

    // Names and list cells that destroyed nodes left behind. They stay valid, and
    // reachable for leak checkers, for the life of the process. Thread-safe.
    static int keptBlocks();
};
