// kivLoop.h - one select() loop for chains, an application's descriptors and timers.
#pragma once

#include <functional>
#include <memory>

#include "core/kivChain.h"

// Loop-bound, but for quit and wake. A pass gathers the descriptors, waits, then
// calls what is due: timers, the application's own descriptors, then each chain, in
// the order in which they were added, then the pass handler. It waits for the nodes
// on each chain's path only, because a chain serves no others: what stands beside or
// below a path gets a chain of its own, which addTree sees to. A node that several paths share is shown a
// ready descriptor once a pass. Handlers may add, remove and quit; they may neither
// run nor delete the loop. A stopped node takes nothing from its descriptor: remove its
// chain, or the loop goes round for it.
class KIV_API kivLoop {
public:
    kivLoop();
    kivLoop(const kivLoop&) = delete;
    kivLoop& operator=(const kivLoop&) = delete;
    ~kivLoop();

    int addChain(kivChain* chain);  // not owned; 8 for null
    int removeChain(kivChain* chain);  // 8 when it is not there
    // Adds chains of the loop's own for a linked tree: one from `root` along the newest
    // children, and where a node has more children, one from each of the others on. So
    // every node lies on exactly one, and parents are served before children. The tree is
    // read now: remove and add it again after addObject. 8 for null.
    int addTree(kivObj* root);
    int removeTree(kivObj* root);  // 8 when it is not there
    // Called in each pass that finds `fd` readable. 8 for what select() cannot take.
    int addFD(int fd, std::function<void()> onReadable);
    int removeFD(int fd);  // 8 when it is not there
    // Called once, as soon as `deadlineNs` on the clock of zvGetUST has passed.
    // Returns an id, 1 or more, that cancelTimer takes.
    int addTimer(unsigned long long deadlineNs, std::function<void()> onDeadline);
    int cancelTimer(int id);  // 8 when it is not there, or was called already
    // Called at the end of each pass.
    void setPassHandler(std::function<void()> onPass);

    int run();  // passes until quit; 0, or the id of a failed wait
    int pass();  // one pass: waits until something is due

    // For a loop of another kind, a window's, that makes the passes: what the next one
    // waits for, and whether quit was asked for. What a pass has changed is known after it.
    int setFD(fd_set* fdSet, int* maxFD);
    unsigned long long deadline() const;  // of the next timer, ns; 0 = none
    int passNow();  // one pass with what is due: waits for nothing
    bool quitAsked() const;  // since run last returned

    // Any thread and any signal handler.
    void quit();  // ends run before the next chain is served; asked for before run, that returns at once
    void wake();  // makes the loop serve its chains now, for nodes that have no descriptor

    // The closed descriptor that made the last wait fail; -1 = none.
    int badFD() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
