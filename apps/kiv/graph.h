// graph.h - the parts of a graph, linked and ready to run.
#pragma once

#include <memory>
#include <vector>

#include "apps/kiv/graphPart.h"
#include "core/kivChain.h"

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
    bool idle();  // no frame is under way
    // Deletes the nodes, then looks at their pools: what is still out is lost.
    std::vector<PoolReport> takeApart();

    std::vector<std::unique_ptr<GraphPart>>& parts() { return parts_; }
    GraphPart& source() { return *parts_.front(); }
    GraphPart& sink() { return *parts_.back(); }
    kivChain& chain() { return chain_; }

private:
    kivChain chain_;
    std::vector<std::unique_ptr<GraphPart>> parts_;
};
