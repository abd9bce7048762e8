// summary.cpp - see summary.h.
#include "apps/kiv/report/summary.h"

#include <sys/resource.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "apps/kiv/support/text.h"

static double secondsOf(const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; }

// What all sinks have counted.
static Tally allSinks(Graph& graph)
{
    Tally all;
    for (GraphPart* sink : graph.sinks())
        all.add(*sink->tally());
    return all;
}

static long long droppedIn(Graph& graph)
{
    long long dropped = 0;
    for (const auto& part : graph.parts())
        dropped += part->dropped();
    return dropped;
}

// Where most of them were: " at 2 jpegenc".
static std::string dropPlace(Graph& graph)
{
    const auto& parts = graph.parts();
    const auto most = std::ranges::max_element(parts, {}, [](const auto& part) { return part->dropped(); });
    if ((*most)->dropped() == 0)
        return "";
    return text(" at %d %s", (*most)->nodeText().number, (*most)->nodeText().title().c_str());
}

Summary summarise(Graph& graph)
{
    Summary s;
    const Tally tally = allSinks(graph);
    s.frames = tally.frames;
    s.bytes = tally.bytes;
    s.dropped = droppedIn(graph);
    s.seconds = double(tally.lastNs - tally.firstNs) / 1e9;
    s.p50Ms = tally.ages.percentileMs(50);
    s.p99Ms = tally.ages.percentileMs(99);
    for (const auto& part : graph.parts())
        s.nodes.push_back({part->nodeText().number, part->nodeText().title(), part->counters()});
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    s.cpuSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    s.maxRssKb = usage.ru_maxrss;
    return s;
}

// Between n frames lie n - 1 intervals.
static double framesPerSecond(const Summary& s)
{
    return s.frames > 1 && s.seconds > 0 ? double(s.frames - 1) / s.seconds : 0;
}

static std::string latency(double p50, double p99)
{
    return p50 < 0 ? "latency unknown" : text("latency p50 %.1f ms, p99 %.1f ms", p50, p99);
}

std::string humanSummary(const Summary& s)
{
    const double megabytes = double(s.bytes) / 1e6;
    std::string out = text("%lld frames, %.1f MB in %.1f s (%.1f frames/s, %.1f MB/s), %lld dropped, %s\n", s.frames,
                           megabytes, s.seconds, framesPerSecond(s), s.seconds > 0 ? megabytes / s.seconds : 0,
                           s.dropped, latency(s.p50Ms, s.p99Ms).c_str());
    int nameWidth = 0;
    for (const NodeSummary& node : s.nodes)
        nameWidth = std::max(nameWidth, int(node.name.size()));
    for (const NodeSummary& node : s.nodes) {
        out += text("  %-2d %-*s", node.number, nameWidth, node.name.c_str());
        for (size_t i = 0; i < node.counters.size(); ++i)
            out += text("%s %lld %s", i == 0 ? "" : ",", node.counters[i].second, node.counters[i].first);
        out += "\n";
    }
    for (const DropReport& drop : s.drops)
        out += text("node %d '%s' dropped %lld frame%s, the first %.1f s after the beginning: %s\n", drop.number,
                    drop.name.c_str(), drop.dropped, drop.dropped == 1 ? "" : "s", drop.sinceSeconds, drop.remedy);
    return out;
}

std::string jsonSummary(const Summary& s)
{
    using nlohmann::ordered_json;
    ordered_json out = {{"frames", s.frames},    {"bytes", s.bytes},
                        {"seconds", s.seconds},  {"framesPerSecond", framesPerSecond(s)},
                        {"dropped", s.dropped},  {"cpuSeconds", s.cpuSeconds},
                        {"maxRssKb", s.maxRssKb}};
    out["latencyMs"] = s.p50Ms < 0 ? ordered_json() : ordered_json({{"p50", s.p50Ms}, {"p99", s.p99Ms}});
    out["nodes"] = ordered_json::array();
    for (const NodeSummary& node : s.nodes) {
        ordered_json one = {{"number", node.number}, {"name", node.name}};
        for (const auto& [name, value] : node.counters)
            one[name] = value;
        out["nodes"].push_back(one);
    }
    out["pools"] = ordered_json::array();
    for (const PoolReport& pool : s.pools)
        out["pools"].push_back({{"of", pool.place},
                                {"buffers", pool.ledger.count},
                                {"bytes", pool.ledger.size},
                                {"lost", pool.ledger.inUse},
                                {"peak", pool.ledger.peak},
                                {"allocated", pool.ledger.allocated}});
    out["drops"] = ordered_json::array();
    for (const DropReport& drop : s.drops)
        out["drops"].push_back({{"node", drop.number},
                                {"name", drop.name},
                                {"dropped", drop.dropped},
                                {"sinceSeconds", drop.sinceSeconds},
                                {"remedy", drop.remedy}});
    out["errors"] = s.errors;
    out["exit"] = s.exitCode;
    return out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string StatusLine::next(Graph& graph, double seconds)
{
    const Tally tally = allSinks(graph);
    const long long now = nowNs();
    const double passed = ns_ != 0 ? double(now - ns_) / 1e9 : 1.0;
    std::string line
        = text("%5.0f s  %lld frames  %.1f/s  %.1f MB/s  %lld dropped%s  %s", seconds, tally.frames,
               double(tally.frames - frames_) / passed, double(tally.bytes - bytes_) / 1e6 / passed, droppedIn(graph),
               dropPlace(graph).c_str(), latency(tally.recent.percentileMs(50), tally.recent.percentileMs(99)).c_str());
    for (GraphPart* sink : graph.sinks())
        sink->tally()->recent = {};
    frames_ = tally.frames;
    bytes_ = tally.bytes;
    ns_ = now;
    return line;
}
