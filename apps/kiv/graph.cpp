// graph.cpp - see graph.h.
#include "apps/kiv/graph.h"

#include <algorithm>

#include "apps/kiv/text.h"

Graph::Graph(const std::vector<NodeText>& nodes)
{
    PictureFormat format;
    for (size_t i = 0; i < nodes.size(); ++i) {
        parts_.push_back(makePart(nodes[i]));
        GraphPart& part = *parts_.back();
        part.node().setName(nodes[i].kind->name);
        format = part.configure(format, i + 1 < nodes.size() ? &nodes[i + 1] : nullptr);
        if (i > 0)
            parts_[i - 1]->node().addObject(&part.node());
    }
    chain_.setName("graph");
    chain_.setChain(&parts_.front()->node());
}

// Parents go before their children.
Graph::~Graph()
{
    for (std::unique_ptr<GraphPart>& part : parts_)
        part.reset();
}

std::string Graph::init()
{
    if (kivObj::kivArena == nullptr)
        return "graph: no file for semaphores can be made in /tmp";
    chain_.init(nullptr);
    for (const auto& part : parts_)
        if (!part->node().isInitialized())
            return part->place() + ": cannot be initialised: " + serviceError();
    return "";
}

bool Graph::idle()
{
    return std::ranges::all_of(parts_, [](const auto& part) { return part->idle(); });
}

// A node destroys its pool with itself. Its handle is taken away from it first, so
// that the pool can still be asked when all who held buffers have gone.
std::vector<PoolReport> Graph::takeApart()
{
    std::vector<PoolReport> reports;
    std::vector<ZVbufferpool> pools;
    for (const auto& part : parts_) {
        pools.push_back(part->node().bufferPool);
        reports.push_back({part->place(), {}});
        part->node().bufferPool = nullptr;
    }
    for (std::unique_ptr<GraphPart>& part : parts_)
        part.reset();
    parts_.clear();
    for (size_t i = 0; i < pools.size(); ++i) {
        if (pools[i] == nullptr)
            continue;
        zvBufferGetPoolLedger(pools[i], &reports[i].ledger);
        zvBufferDestroyPool(pools[i]);
    }
    std::erase_if(reports, [](const PoolReport& report) { return report.ledger.count == 0; });
    return reports;
}
