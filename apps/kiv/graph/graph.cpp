// graph.cpp - see graph.h.
#include "apps/kiv/graph/graph.h"

#include <algorithm>

#include "apps/kiv/graph/link.h"
#include "apps/kiv/support/text.h"

Graph::Graph(const std::vector<NodeText>& nodes)
{
    for (const NodeText& node : nodes) {
        const PictureFormat in = node.parent >= 0 ? formats_[size_t(node.parent)] : PictureFormat();
        if (node.parent >= 0)
            checkLink(nodes[size_t(node.parent)], node, in);
        parts_.push_back(node.kind->make(node));
        GraphPart& part = *parts_.back();
        part.node().setName(node.name.empty() ? node.kind->name : node.name.c_str());
        formats_.push_back(part.configure(in, nodesBelow(nodes, node)));
        noteOrigins(node, in, &formats_.back());
        if (node.parent < 0)
            sources_.push_back(&part);
        sourceOf_.push_back(node.parent < 0 ? &part : sourceOf_[size_t(node.parent)]);
        if (node.kind->role == NodeRole::sink)
            sinks_.push_back(&part);
    }
    // A node visits its newest child first: linked from the end, branches have their turn
    // in the order of the text.
    for (size_t i = parts_.size(); i-- > 0;)
        if (nodes[i].parent >= 0)
            parts_[size_t(nodes[i].parent)]->node().addObject(&parts_[i]->node());
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
    for (GraphPart* source : sources_)
        source->node().init(nullptr);
    for (const auto& part : parts_)
        if (!part->node().isInitialized())
            return part->place() + ": cannot be initialised: " + serviceError();
    return "";
}

std::string Graph::start()
{
    for (GraphPart* source : sources_)
        if (source->node().start(1) != kivErrNone)
            return source->place() + ": cannot be started: " + serviceError();
    return "";
}

void Graph::addTo(kivLoop& loop)
{
    for (GraphPart* source : sources_)
        loop.addTree(&source->node());
}

void Graph::removeFrom(kivLoop& loop)
{
    for (GraphPart* source : sources_)
        loop.removeTree(&source->node());
}

bool Graph::idle(const GraphPart& source)
{
    return std::ranges::all_of(parts_, [&](const auto& part) { return &sourceOf(*part) != &source || part->idle(); });
}

GraphPart* Graph::above(const GraphPart& part)
{
    const int parent = part.nodeText().parent;
    return parent < 0 ? nullptr : parts_[size_t(parent)].get();
}

std::vector<PoolReport> Graph::pools()
{
    std::vector<PoolReport> reports;
    for (const auto& part : parts_) {
        PoolReport report = {part->place(), {}};
        if (zvBufferGetPoolLedger(part->node().bufferPool, &report.ledger) == 0)
            reports.push_back(report);
    }
    return reports;
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
