// kivChain.cpp - see kivChain.h.
#include "core/kivChain.h"

namespace {

// The way from head to tail follows the newest child of each node.
kivObj* nextOnPath(kivObj* node)
{
    const kivObjList* cell = node->getObjectList();
    return cell != nullptr ? cell->obj : nullptr;
}

}  // namespace

kivChain::kivChain() : chainHead(nullptr), chainTail(nullptr) { }

kivChain::~kivChain() = default;

// Takes a linked pipeline and finds its tail. Returns 5000 for null.
int kivChain::setChain(kivObj* newHead)
{
    if (newHead == nullptr)
        return kivErrChain;
    chainHead = newHead;
    chainTail = newHead;
    while (kivObj* next = nextOnPath(chainTail))
        chainTail = next;
    return kivErrNone;
}

int kivChain::addObject(kivObj* newObj) { return chainTail != nullptr ? chainTail->addObject(newObj) : kivErrNoChain; }

int kivChain::addSrcConstraints(ZVparams* params)
{
    return chainHead != nullptr ? chainHead->addSrcConstraints(params) : kivErrNoChain;
}

int kivChain::addDstConstraints(ZVparams* params)
{
    return chainTail != nullptr ? chainTail->addDstConstraints(params) : kivErrNoChain;
}

int kivChain::init(kivParams* params) { return chainHead != nullptr ? chainHead->init(params) : kivErrNoChain; }

int kivChain::start(int propagate) { return chainHead != nullptr ? chainHead->start(propagate) : kivErrNoChain; }

int kivChain::receive(ZVbuffer inBuffer) { return chainHead != nullptr ? chainHead->receive(inBuffer) : kivErrNoChain; }

int kivChain::getFD() { return kivErrUseSetFD; }

// Adds the descriptors of the nodes on the path; with propagate those of the
// tail's whole subtree too. A head that is also the tail is asked for its own only.
int kivChain::setFD(fd_set* fdSet, int* maxFD, int propagate)
{
    if (chainTail == nullptr)
        return kivErrNoChain;
    // A child added to an inner node after setChain leads the walk past the tail: it ends with the list.
    for (kivObj* node = chainHead; node != nullptr; node = nextOnPath(node)) {
        const bool isTail = node == chainTail;
        node->setFD(fdSet, maxFD, isTail && node != chainHead ? propagate : 0);
        if (isTail)
            break;
    }
    return kivErrNone;
}

// Calls every node on the path, head first, each with its own copy of the set;
// what they return is theirs. Other children are reached by propagate alone.
int kivChain::handleEvents(fd_set fdSet)
{
    for (kivObj* node = chainHead; node != nullptr; node = nextOnPath(node)) {
        node->handleEvents(fdSet);
        if (node == chainTail)
            break;
    }
    return kivErrNone;
}

int kivChain::setup() { return kivErrNotImplemented; }
