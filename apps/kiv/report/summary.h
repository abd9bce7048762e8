// summary.h - what a run has to tell: the status line, the summary, JSON.
#pragma once

#include <string>
#include <vector>

#include "apps/kiv/graph/graph.h"

struct NodeSummary {
    int number;
    std::string name;
    Counters counters;
};

// A node that dropped frames, and what to do about it.
struct DropReport {
    int number;
    std::string name;
    long long dropped;
    double sinceSeconds;  // after the beginning, to within half a second
    const char* remedy;
};

struct Summary {
    long long frames = 0, bytes = 0, dropped = 0;
    double seconds = 0;  // from the first frame at the sink to the last
    double p50Ms = -1, p99Ms = -1;  // from a frame's stamp to its arrival at the sink; -1 unknown
    double cpuSeconds = 0;
    long long maxRssKb = 0;
    std::vector<NodeSummary> nodes;
    std::vector<PoolReport> pools;
    std::vector<DropReport> drops;
    std::vector<std::string> errors;
    int exitCode = 0;
};

// All but pools, errors and exit code.
Summary summarise(Graph& graph);
std::string humanSummary(const Summary& summary);
std::string jsonSummary(const Summary& summary);

// One line a second: what came since the last call.
class StatusLine {
public:
    std::string next(Graph& graph, double seconds);

private:
    long long frames_ = 0, bytes_ = 0, ns_ = 0;
};
