// graphPart.h - one node of a graph with what the program knows about it.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "apps/kiv/graph/graphText.h"
#include "apps/kiv/graph/picture.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/graph/tally.h"

// Name and value, in the order in which they are shown.
using Counters = std::vector<std::pair<const char*, long long>>;

// The nodes below one, in the order of the text; empty at an end.
using Below = std::vector<const NodeText*>;

// Loop-bound. Life: configure (sizes and packings, down the line), init of the nodes
// by the graph, open (files, connections), start, frames, close, destruction.
class GraphPart {
public:
    explicit GraphPart(const NodeText& nodeText) : text_(nodeText) { }
    virtual ~GraphPart() = default;
    GraphPart(const GraphPart&) = delete;
    GraphPart& operator=(const GraphPart&) = delete;

    virtual kivObj& node() = 0;
    // Takes what comes in, which is among what it wants, sets the node up, answers what goes
    // out. Throws GraphError.
    virtual PictureFormat configure(const PictureFormat& in, const Below& below) = 0;
    // Opens what the run needs; reports failures to the run, and adds its descriptors to its loop.
    virtual void open(RunContext&) { }
    // A source begins no further frame. Waits for its reader.
    virtual void endSource() { }
    // Nothing is on its way inside.
    virtual bool idle() { return true; }
    // Once in each pass of the loop.
    virtual void afterPass(RunContext&) { }
    // Ends connections and files; may wait as long as is documented. After the nodes have stopped.
    virtual void close(RunContext&) { }
    virtual Counters counters() { return {}; }
    virtual long long dropped() { return 0; }
    virtual long long waiting() { return 0; }  // frames that it has and has not begun to work on
    virtual long long workNs() { return 0; }  // CPU time of threads of its own
    virtual long long framesLeft() { return -1; }  // of a source that knows; -1 unknown
    // Twice a second or so, for what takes time to show.
    virtual void watch(RunContext&) { }
    // A sink's count; null elsewhere.
    virtual Tally* tally() { return nullptr; }

    const NodeText& nodeText() const { return text_; }
    std::string place() const { return text_.place(); }  // "node 2 'jpegdec'"

protected:
    const NodeText text_;
};
