// statsFeed.cpp - see statsFeed.h.
#include "apps/kiv/report/statsFeed.h"

#include <ctime>

#include "apps/kiv/graph/link.h"
#include "apps/kiv/support/text.h"

static long long processCpuNs()
{
    timespec t = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1'000'000'000LL + t.tv_nsec;
}

StatsFeed::StatsFeed(Graph& graph, const std::string& title, std::string* wrong) : graph_(graph)
{
    if (statsCreate(title.c_str(), int(graph.parts().size()), &page_) != 0) {
        *wrong = serviceError();
        return;
    }
    stats_ = std::make_unique<kivStats>(page_);
    for (const auto& part : graph.parts()) {
        const NodeText& text = part->nodeText();
        const bool sink = text.kind->role == NodeRole::sink;
        stats_->addNode(&part->node(), text.kind->name, sink ? "" : describeLink(graph.formatOf(*part)).c_str(),
                        text.number);
    }
    kivSetObserver(stats_.get());
}

StatsFeed::~StatsFeed()
{
    kivSetObserver(nullptr);
    stats_.reset();
    if (page_ != nullptr)
        statsClose(page_);
}

void StatsFeed::sample()
{
    if (page_ == nullptr)
        return;
    for (const auto& part : graph_.parts()) {
        STATSnode* record = stats_->recordOf(&part->node());
        statsSet(&record->dropped, part->dropped());
        statsSet(&record->waiting, part->waiting());
        statsSet(&record->workNs, part->workNs());
        ZVpoolLedger pool = {};
        if (part->node().bufferPool != nullptr && zvBufferGetPoolLedger(part->node().bufferPool, &pool) == 0) {
            statsSet(&record->poolBuffers, pool.count);
            statsSet(&record->poolInUse, pool.inUse);
        }
    }
    statsUpdate(page_, nowNs(), processCpuNs());
}

STATSnode StatsFeed::of(const GraphPart& part) const
{
    STATSnode node = {};
    if (page_ != nullptr)
        statsGetNode(page_, part.nodeText().number - 1, &node);
    return node;
}
