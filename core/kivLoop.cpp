// kivLoop.cpp - see kivLoop.h.
#include "core/kivLoop.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/support/fd.h"

namespace {

struct Watch {
    int fd;  // -1 once removed
    std::function<void()> onReadable;
};

struct Timer {
    int id;
    unsigned long long deadline;
    std::function<void()> onDeadline;
};

// A tree with the chains that serve it.
struct Tree {
    kivObj* root;
    std::vector<std::unique_ptr<kivChain>> chains;
};

unsigned long long clockNow()
{
    unsigned long long ns = 0;
    zvGetUST(&ns);
    return ns;
}

}  // namespace

struct kivLoop::State {
    std::vector<kivChain*> chains;  // null once removed, until the pass ends
    std::vector<Tree> trees;
    std::vector<std::unique_ptr<kivChain>> removedChains;  // kept until the pass ends
    std::vector<std::unique_ptr<kivChain>> spareChains;  // for the next tree: a chain leaves its name behind
    std::deque<Watch> watches;  // a deque: a running handler stays where it is while others are added
    std::vector<Timer> timers;  // few: a scan finds the next one
    std::function<void()> onPass;
    kiv::UniqueFd wakeFD = kiv::selectableFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    std::atomic<bool> quitting{false};
    bool running = false;  // in a pass
    int lastTimer = 0;
    int badFD = -1;

    void addBranch(Tree* tree, kivObj* head);
    int pass(bool now);
    int gather(fd_set* set, int maxFD);
    int wait(int maxFD, fd_set* set, bool now);
    unsigned long long deadline() const;
    int reportBadWait(int maxFD, const fd_set& set);
    void takeWake(const fd_set& ready);
    void callTimers();
    void callWatches(const fd_set& ready);
    void serveChains(fd_set ready);
    void dropRemoved();
};

kivLoop::kivLoop() : state_(std::make_unique<State>()) { }

kivLoop::~kivLoop() = default;

int kivLoop::addChain(kivChain* chain)
{
    if (chain == nullptr)
        return kivErrParams;
    state_->chains.push_back(chain);
    return kivErrNone;
}

int kivLoop::removeChain(kivChain* chain)
{
    for (kivChain*& known : state_->chains) {
        if (known != chain || chain == nullptr)
            continue;
        known = nullptr;
        return kivErrNone;
    }
    return kivErrParams;
}

int kivLoop::addTree(kivObj* root)
{
    if (root == nullptr)
        return kivErrParams;
    Tree tree = {root, {}};
    state_->addBranch(&tree, root);
    state_->trees.push_back(std::move(tree));
    return kivErrNone;
}

int kivLoop::removeTree(kivObj* root)
{
    const auto tree = std::ranges::find(state_->trees, root, &Tree::root);
    if (tree == state_->trees.end())
        return kivErrParams;
    for (const auto& chain : tree->chains)
        removeChain(chain.get());
    std::ranges::move(tree->chains, std::back_inserter(state_->removedChains));
    state_->trees.erase(tree);
    return kivErrNone;
}

int kivLoop::addFD(int fd, std::function<void()> onReadable)
{
    if (fd < 0 || fd >= FD_SETSIZE || !onReadable)
        return kivErrParams;
    state_->watches.push_back({fd, std::move(onReadable)});
    return kivErrNone;
}

int kivLoop::removeFD(int fd)
{
    for (Watch& watch : state_->watches) {
        if (watch.fd != fd || fd < 0)
            continue;
        watch.fd = -1;
        return kivErrNone;
    }
    return kivErrParams;
}

int kivLoop::addTimer(unsigned long long deadlineNs, std::function<void()> onDeadline)
{
    state_->timers.push_back({++state_->lastTimer, deadlineNs, std::move(onDeadline)});
    return state_->lastTimer;
}

int kivLoop::cancelTimer(int id)
{
    return std::erase_if(state_->timers, [id](const Timer& timer) { return timer.id == id; }) != 0 ? kivErrNone
                                                                                                   : kivErrParams;
}

void kivLoop::setPassHandler(std::function<void()> onPass) { state_->onPass = std::move(onPass); }

int kivLoop::badFD() const { return state_->badFD; }

void kivLoop::wake()
{
    const int keptError = errno;
    const uint64_t one = 1;
    // The only failure is a full counter, which is as awake as can be.
    [[maybe_unused]] const ssize_t written = write(state_->wakeFD.get(), &one, sizeof one);
    errno = keptError;
}

void kivLoop::quit()
{
    state_->quitting.store(true);
    wake();
}

// Loop thread; blocks until quit. Returns 0, or 5000 after a line when it cannot wait.
int kivLoop::run()
{
    int err = kivErrNone;
    while (err == kivErrNone && !state_->quitting.load())
        err = pass();
    state_->quitting.store(false);
    return err;
}

// Loop thread. Returns 0; 5000 after a line when it cannot wait, and from a handler.
int kivLoop::pass() { return state_->pass(false); }

// Loop thread, never blocks. Returns as pass does.
int kivLoop::passNow() { return state_->pass(true); }

int kivLoop::State::pass(bool now)
{
    if (running)
        return kivErrChain;
    fd_set ready;
    FD_ZERO(&ready);
    const int maxFD = gather(&ready, -1);
    if (wait(maxFD, &ready, now) < 0)
        return reportBadWait(maxFD, ready);

    running = true;
    takeWake(ready);
    callTimers();
    callWatches(ready);
    serveChains(ready);
    if (onPass)
        onPass();
    dropRemoved();
    running = false;
    return kivErrNone;
}

// Adds to the set; raises *maxFD. Loop thread. Returns 8 for null.
int kivLoop::setFD(fd_set* fdSet, int* maxFD)
{
    if (fdSet == nullptr || maxFD == nullptr)
        return kivErrParams;
    *maxFD = state_->gather(fdSet, *maxFD);
    return kivErrNone;
}

unsigned long long kivLoop::deadline() const { return state_->deadline(); }

bool kivLoop::quitAsked() const { return state_->quitting.load(); }

// A chain from `head` on, then one from each node beside its path.
void kivLoop::State::addBranch(Tree* tree, kivObj* head)
{
    if (spareChains.empty())
        spareChains.push_back(std::make_unique<kivChain>());
    tree->chains.push_back(std::move(spareChains.back()));
    spareChains.pop_back();
    kivChain* chain = tree->chains.back().get();
    chain->setChain(head);
    chains.push_back(chain);
    for (kivObj* node = head; node != chain->chainTail; node = node->getObjectList()->obj)
        for (const kivObjList* other = node->getObjectList()->next; other != nullptr; other = other->next)
            addBranch(tree, other->obj);
}

// Adds all descriptors to wait for; returns the highest, at least `maxFD`.
int kivLoop::State::gather(fd_set* set, int maxFD)
{
    kivFdAdd(wakeFD.get(), set);
    maxFD = std::max(maxFD, wakeFD.get());
    for (kivChain* chain : chains)
        if (chain != nullptr)
            chain->setFD(set, &maxFD, 0);
    for (const Watch& watch : watches) {
        kivFdAdd(watch.fd, set);
        maxFD = std::max(maxFD, watch.fd);
    }
    return maxFD;
}

unsigned long long kivLoop::State::deadline() const
{
    return timers.empty() ? 0 : std::ranges::min(timers, {}, &Timer::deadline).deadline;
}

// Blocks until a descriptor is ready or the next timer is due, but not when what is due
// `now` is all that counts; negative on failure.
int kivLoop::State::wait(int maxFD, fd_set* set, bool now)
{
    int numReady;
    do {
        timeval timeout = {0, 0};
        timeval* limit = now ? &timeout : nullptr;
        if (!timers.empty() && !now) {
            const unsigned long long next = deadline();
            const unsigned long long t = clockNow();
            const unsigned long long left = next > t ? next - t : 0;
            const unsigned long long us = left / 1000 + (left % 1000 != 0);  // never early
            timeout = {time_t(us / 1000000), suseconds_t(us % 1000000)};
            limit = &timeout;
        }
        numReady = select(maxFD + 1, set, nullptr, nullptr, limit);
    } while (numReady < 0 && errno == EINTR);
    return numReady;
}

// Says why a wait failed; the set is as it was before it.
int kivLoop::State::reportBadWait(int maxFD, const fd_set& set)
{
    const int error = errno;
    badFD = -1;
    for (int fd = 0; fd <= maxFD && badFD < 0; ++fd)
        if (kivFdIsSet(fd, &set) && fcntl(fd, F_GETFD) < 0)
            badFD = fd;
    if (badFD >= 0)
        kivPrintError("kivLoop: descriptor %d is closed\n", badFD);
    else
        kivPrintError("kivLoop: select failed: %s\n", strerror(error));
    return kivErrChain;
}

void kivLoop::State::takeWake(const fd_set& ready)
{
    uint64_t count;
    if (kivFdIsSet(wakeFD.get(), &ready)) [[maybe_unused]]
        const ssize_t n = read(wakeFD.get(), &count, sizeof count);
}

// Calls what is due now; a timer that a handler adds waits for the next pass.
void kivLoop::State::callTimers()
{
    if (timers.empty())
        return;
    const int newest = lastTimer;
    const unsigned long long t = clockNow();
    for (;;) {
        const auto due = std::ranges::find_if(
            timers, [&](const Timer& timer) { return timer.id <= newest && timer.deadline <= t; });
        if (due == timers.end())
            return;
        const std::function<void()> onDeadline = std::move(due->onDeadline);
        timers.erase(due);
        onDeadline();
    }
}

void kivLoop::State::callWatches(const fd_set& ready)
{
    for (size_t i = 0, n = watches.size(); i < n; ++i)
        if (kivFdIsSet(watches[i].fd, &ready))
            watches[i].onReadable();
}

void kivLoop::State::serveChains(fd_set ready)
{
    for (size_t i = 0, n = chains.size(); i < n && !quitting.load(std::memory_order_relaxed); ++i) {
        kivChain* chain = chains[i];
        if (chain == nullptr)
            continue;
        if (n == 1) {
            chain->handleEvents(ready);
            continue;
        }
        // What this chain's nodes took must not be shown to the next chain as ready.
        fd_set served;
        int top = -1;
        FD_ZERO(&served);
        chain->setFD(&served, &top, 0);
        chain->handleEvents(ready);
        for (int fd = 0; fd <= top; ++fd)
            if (kivFdIsSet(fd, &served))
                FD_CLR(fd, &ready);
    }
}

void kivLoop::State::dropRemoved()
{
    std::erase(chains, nullptr);
    std::ranges::move(removedChains, std::back_inserter(spareChains));
    removedChains.clear();
    std::erase_if(watches, [](const Watch& watch) { return watch.fd < 0; });
}
