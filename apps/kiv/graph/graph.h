// graph.h - the parts of a graph, linked and ready to run.
#pragma once

#include <memory>
#include <vector>

#include "apps/kiv/graph/graphPart.h"

struct PoolReport {
    std::string place;
    ZVpoolLedger ledger;
};

// Loop-bound.
class Graph {
public:
    // Makes and configures the parts and links their nodes. Throws GraphError.
    explicit Graph(const std::vector<NodeText>& nodes);
    ~Graph();
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    // Initialises all nodes; "" or what failed.
    std::string init();
    // Starts all nodes; "" or what failed.
    std::string start();
    void addTo(kivLoop& loop);
    void removeFrom(kivLoop& loop);
    bool idle(const GraphPart& source);  // no frame is under way below it
    // What each node's pool has to say now; those without a pool are left out.
    std::vector<PoolReport> pools();
    // Deletes the nodes, then looks at their pools: what is still out is lost.
    std::vector<PoolReport> takeApart();

    const std::vector<std::unique_ptr<GraphPart>>& parts() { return parts_; }  // in the order of the text
    const std::vector<GraphPart*>& sources() { return sources_; }
    const std::vector<GraphPart*>& sinks() { return sinks_; }
    GraphPart* above(const GraphPart& part);  // null for a source
    GraphPart& sourceOf(const GraphPart& part) { return *sourceOf_[size_t(part.nodeText().number) - 1]; }
    // What leaves that part.
    const PictureFormat& formatOf(const GraphPart& part) { return formats_[size_t(part.nodeText().number) - 1]; }

private:
    std::vector<std::unique_ptr<GraphPart>> parts_;
    std::vector<PictureFormat> formats_;
    std::vector<GraphPart*> sources_, sinks_;
    std::vector<GraphPart*> sourceOf_;  // of each part
};
