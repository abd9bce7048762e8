// observation.h - all that a run shows of itself beside its frames.
#pragma once

#include <map>
#include <optional>

#include "apps/kiv/commands/runner.h"
#include "apps/kiv/report/statsDoor.h"
#include "apps/kiv/report/statsFeed.h"
#include "apps/kiv/report/summary.h"
#include "apps/kiv/report/tracer.h"

// Loop-bound. Begins once the nodes are initialised.
class Observation {
public:
    Observation(const RunOptions& options, Graph& graph) : options_(options), graph_(graph) { }

    // Reports what cannot be shown to the run, as failed.
    void begin(RunContext& run);
    void sample();  // twice a second or so
    // Once the nodes have stopped: writes what is to be written, tells where frames were dropped.
    void end(RunContext& run, Summary* summary);

private:
    bool draw(RunContext& run, bool fatal);

    const RunOptions& options_;
    Graph& graph_;
    std::optional<StatsFeed> feed_;
    std::optional<Tracer> tracer_;
    StatsDoor door_;
    bool drawn_ = false;  // --dot has worked once
    std::map<const GraphPart*, long long> firstDropNs_;
    long long beganNs_ = 0;
};

// What each link has negotiated, and who set it; one line a link.
std::string explain(Graph& graph);
// What every pool has held; one line a pool.
std::string ledgerText(const std::vector<PoolReport>& pools);
