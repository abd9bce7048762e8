// kivStats.h - counts the frames of a graph on a page that other processes can look at.
#pragma once

#include <memory>

#include "core/kivObserver.h"
#include "platform/stats/stats.h"

// Loop-bound: serves the nodes of one loop. Counting is a relaxed store a hop; every so
// often, about a thousand times a second at most, a node's frame is timed as well. Nodes
// that it does not know pass uncounted.
//
//   statsCreate("camera to disk", 16, &page);
//   kivStats stats(page);
//   stats.addNode(&camera, "video", "CbYCrY 1280x720", 1);
//   stats.addNode(&encoder, "jpegenc", "JPEG", 2);
//   kivSetObserver(&stats);
class KIV_API kivStats : public kivObserver {
public:
    explicit kivStats(STATSpage page);  // not owned; must outlive this
    ~kivStats() override;
    kivStats(const kivStats&) = delete;
    kivStats& operator=(const kivStats&) = delete;

    // Gives a linked node a record on the page, by its name; its parent first. The node must
    // not be deleted while frames pass. Null when the page is full.
    STATSnode* addNode(kivObj* node, const char* kind, const char* format, int number);
    STATSnode* recordOf(const kivObj* node);  // null for a node that was not added

    int deliver(kivObj* from, kivObj* to, ZVbuffer buffer) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};
