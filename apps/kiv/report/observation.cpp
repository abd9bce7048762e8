// observation.cpp - see observation.h.
#include "apps/kiv/report/observation.h"

#include "apps/kiv/graph/link.h"
#include "apps/kiv/report/dot.h"
#include "apps/kiv/support/text.h"

void Observation::begin(RunContext& run)
{
    std::string wrong;
    beganNs_ = nowNs();
    if (options_.explain)
        fputs(explain(graph_).c_str(), stderr);
    if (options_.stats)
        feed_.emplace(graph_, options_.graph, &wrong);
    if (!wrong.empty())
        run.note("nothing is counted: " + wrong);
    if (!options_.statsPath.empty() && feed_ && feed_->page() != nullptr)
        if (wrong = door_.open(run.loop(), options_.statsPath, feed_->page()); !wrong.empty())
            run.failed("--stats " + options_.statsPath + ": " + wrong, true);
    drawn_ = draw(run, true);
    if (options_.traceFile.empty())
        return;
    tracer_.emplace(graph_, feed_ ? feed_->observer() : nullptr);
    if (wrong = tracer_->open(options_.traceFile); !wrong.empty())
        run.failed("--trace-file " + options_.traceFile + ": " + wrong, true);
}

// True when there is a picture now.
bool Observation::draw(RunContext& run, bool fatal)
{
    if (options_.dotFile.empty())
        return false;
    const std::string wrong = writeDot(options_.dotFile, dotOf(graph_, feed_ ? &*feed_ : nullptr));
    if (!wrong.empty())
        run.failed("--dot " + options_.dotFile + ": " + wrong, fatal);
    return wrong.empty();
}

void Observation::sample()
{
    for (const auto& part : graph_.parts())
        if (part->dropped() > 0)
            firstDropNs_.try_emplace(part.get(), nowNs());
    if (feed_)
        feed_->sample();
}

void Observation::end(RunContext& run, Summary* summary)
{
    sample();
    door_.close();
    for (const auto& part : graph_.parts())
        if (const long long dropped = part->dropped(); dropped > 0)
            summary->drops.push_back({part->nodeText().number, part->nodeText().title(), dropped,
                                      double(firstDropNs_[part.get()] - beganNs_) / 1e9,
                                      part->nodeText().kind->whenDropping});
    if (drawn_)
        draw(run, false);
    if (tracer_)
        if (const std::string wrong = tracer_->close(); !wrong.empty())
            run.failed("--trace-file " + options_.traceFile + ": " + wrong, false);
    tracer_.reset();
    feed_.reset();
}

std::string explain(Graph& graph)
{
    std::string out;
    for (const auto& part : graph.parts()) {
        const GraphPart* above = graph.above(*part);
        if (above == nullptr)
            continue;
        const PictureFormat& format = graph.formatOf(*above);
        out += text("%d %s -> %d %s: %s\n", above->nodeText().number, above->nodeText().title().c_str(),
                    part->nodeText().number, part->nodeText().title().c_str(), describeLink(format).c_str());
        out += text("    %s: %s; size: %s", format.jpeg ? "format" : "packing", format.kindBy.c_str(),
                    format.sizeBy.c_str());
        if (format.rateNumerator > 0)
            out += "; rate: " + format.rateBy;
        ZVpoolLedger pool = {};
        auto* producer = graph.parts()[size_t(above->nodeText().number) - 1].get();
        if (producer->node().bufferPool != nullptr && zvBufferGetPoolLedger(producer->node().bufferPool, &pool) == 0)
            out += text("; %d buffers of %d bytes", pool.count, pool.size);
        out += "\n";
    }
    return out;
}

std::string ledgerText(const std::vector<PoolReport>& pools)
{
    std::string out = "pool of                buffers      bytes  in use  peak  allocated  found none\n";
    for (const PoolReport& pool : pools)
        out += text("%-22s %7d %10d %7d %5d %10lld %11lld\n", pool.place.c_str(), pool.ledger.count, pool.ledger.size,
                    pool.ledger.inUse, pool.ledger.peak, pool.ledger.allocated, pool.ledger.failures);
    return out;
}
