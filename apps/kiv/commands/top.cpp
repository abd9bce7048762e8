// top.cpp - see top.h.
#include "apps/kiv/commands/top.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <nlohmann/json.hpp>

#include "apps/kiv/graph/run.h"
#include "apps/kiv/graph/tally.h"
#include "apps/kiv/graph/values.h"
#include "apps/kiv/report/statsDoor.h"
#include "apps/kiv/support/colour.h"
#include "apps/kiv/support/endSignals.h"
#include "apps/kiv/support/text.h"
#include "platform/thread/thread.h"

namespace {

using Json = nlohmann::ordered_json;

// What a page says at one moment.
struct Snapshot {
    STATSinfo info = {};
    std::vector<STATSnode> nodes;
    long long ns = 0;
};

// A node between two moments.
struct Row {
    int number, parent;
    std::string name, kind, format;
    long long in, out, dropped, waiting, poolInUse, poolBuffers;
    double rate;  // frames a second
    double p50Ms, p99Ms;  // -1 unknown
    double cpuPercent;
};

Snapshot take(STATSpage page)
{
    Snapshot shot;
    statsGetInfo(page, &shot.info);
    for (int i = 0; i < shot.info.nodes; ++i) {
        STATSnode node = {};
        statsGetNode(page, i, &node);
        shot.nodes.push_back(node);
    }
    shot.ns = nowNs();
    return shot;
}

// The age below which that share of the frames were that came between the two.
double percentile(const STATSnode& from, const STATSnode& to, double share)
{
    long long all = 0, seen = 0;
    for (int i = 0; i < STATS_AGES; ++i)
        all += to.ages[i] - from.ages[i];
    for (int i = 0; i < STATS_AGES && all > 0; ++i) {
        seen += to.ages[i] - from.ages[i];
        if (double(seen) >= share * double(all))
            return statsClassMs(i);
    }
    return -1;
}

// In its receive on the loop's thread, by the frames that were timed, and in threads of its own.
double cpuOf(const STATSnode& from, const STATSnode& to, double seconds)
{
    const double timed = double(to.timed - from.timed);
    const double each = timed > 0 ? double(to.timedNs - from.timedNs) / timed : 0;
    return (each * double(to.in - from.in) + double(to.workNs - from.workNs)) / 1e7 / seconds;
}

std::vector<Row> rowsOf(const Snapshot& before, const Snapshot& now)
{
    std::vector<Row> rows;
    const double seconds = std::max(1e-3, double(now.ns - before.ns) / 1e9);
    for (size_t i = 0; i < now.nodes.size(); ++i) {
        const STATSnode& to = now.nodes[i];
        const STATSnode from = i < before.nodes.size() ? before.nodes[i] : STATSnode{};
        const bool source = to.parent < 0;
        const double frames = double(source ? to.out - from.out : to.in - from.in);
        rows.push_back({to.number, to.parent, to.name, to.kind, to.format, to.in, to.out, to.dropped, to.waiting,
                        to.poolInUse, to.poolBuffers, frames / seconds, percentile(from, to, 0.5),
                        percentile(from, to, 0.99), cpuOf(from, to, seconds)});
    }
    return rows;
}

double processCpu(const Snapshot& before, const Snapshot& now)
{
    const long long wall = now.info.updatedNs - before.info.updatedNs;
    return wall > 0 ? double(now.info.cpuNs - before.info.cpuNs) * 100 / double(wall) : 0;
}

std::string milliseconds(double ms) { return ms < 0 ? "-" : text(ms < 10 ? "%.2f" : "%.1f", ms); }

std::string table(const Snapshot& before, const Snapshot& now)
{
    const double since = double(now.ns - now.info.startedNs) / 1e9;
    const double quiet = double(now.ns - now.info.updatedNs) / 1e9;
    std::string out = text("kiv %d, %.0f s, CPU %.0f %%: ", now.info.pid, since, processCpu(before, now));
    out += printable(now.info.title) + "\n";
    if (quiet > 2)
        out += text("its loop has not turned for %.0f s: a sink that blocks?\n", quiet);
    out += bold(text("%3s %-20s %10s %8s %8s %5s %7s %9s %9s %6s  %s", "", "node", "frames", "rate/s", "dropped",
                     "wait", "pool", "p50 ms", "p99 ms", "CPU %", "gives"))
        + "\n";
    for (const Row& row : rowsOf(before, now)) {
        const std::string title = row.name == row.kind ? row.kind : row.name + "=" + row.kind;
        const std::string pool = row.poolBuffers > 0 ? text("%lld/%lld", row.poolInUse, row.poolBuffers) : "-";
        out += text("%3d %-20s %10lld %8.1f %8lld %5lld %7s %9s %9s %6.1f  %s\n", row.number, printable(title).c_str(),
                    row.parent < 0 ? row.out : row.in, row.rate, row.dropped, row.waiting, pool.c_str(),
                    milliseconds(row.p50Ms).c_str(), milliseconds(row.p99Ms).c_str(), row.cpuPercent,
                    printable(row.format).c_str());
    }
    return out;
}

std::string json(const Snapshot& before, const Snapshot& now)
{
    Json out = {{"pid", now.info.pid},
                {"graph", now.info.title},
                {"seconds", double(now.ns - now.info.startedNs) / 1e9},
                {"cpuPercent", processCpu(before, now)}};
    out["nodes"] = Json::array();
    for (const Row& row : rowsOf(before, now)) {
        Json node = {{"number", row.number},   {"name", row.name},       {"kind", row.kind},
                     {"in", row.in},           {"out", row.out},         {"rate", row.rate},
                     {"dropped", row.dropped}, {"waiting", row.waiting}, {"cpuPercent", row.cpuPercent}};
        node["pool"] = {{"inUse", row.poolInUse}, {"buffers", row.poolBuffers}};
        node["latencyMs"] = row.p50Ms < 0 ? Json() : Json({{"p50", row.p50Ms}, {"p99", row.p99Ms}});
        node["gives"] = row.format;
        out["nodes"].push_back(node);
    }
    return out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

class TopCommand : public Command {
public:
    void declare(CLI::App& line) override;
    int run() override;

private:
    std::string open(STATSpage* page);
    int follow(STATSpage page);

    std::string who_, interval_ = "1";
    long long count_ = 0;  // 0: until it ends
    bool json_ = false;
};

void TopCommand::declare(CLI::App& line)
{
    line.add_option("PID", who_, "a running kiv, or the unix:PATH of its --stats")->required();
    line.add_option("--interval", interval_, "from one table to the next")->check(checkSeconds)->capture_default_str();
    line.add_option("--count", count_, "end after that many")->check(checkFrames);
    line.add_flag("--json", json_, "one JSON object a line instead of tables");
}

std::string TopCommand::open(STATSpage* page)
{
    long long pid = 0;
    if (who_.starts_with("unix:"))
        return fetchPage(who_.substr(5), page);
    if (!parseFrames(who_, &pid) || pid > INT32_MAX)
        return "is neither a process nor unix:PATH";
    return statsOpenProcess(int(pid), page) == 0 ? "" : serviceError();
}

// Until the graph has ended, the count is reached, or the user ends it.
int TopCommand::follow(STATSpage page)
{
    double seconds = 1;
    parseSeconds(interval_, &seconds);
    const bool clear = !json_ && isatty(STDOUT_FILENO) != 0;
    const EndSignals signals;
    Snapshot before = take(page);
    for (long long i = 0; count_ == 0 || i < count_; ++i) {
        const bool ended = threadPoll(signals.fd(), (unsigned long long)(nowNs() + (long long)(seconds * 1e9)))
            != THREAD_POLL_TIMEOUT;
        const bool gone = kill(before.info.pid, 0) != 0;  // asked first: the last numbers are still to be shown
        const Snapshot now = take(page);
        if (!printOut((clear ? "\033[H\033[2J" : "") + (json_ ? json(before, now) : table(before, now))))
            return exitFailed;
        if (ended || gone || now.info.ended != 0)
            break;
        before = now;
    }
    return exitGood;
}

int TopCommand::run()
{
    STATSpage page = nullptr;
    if (const std::string wrong = open(&page); !wrong.empty()) {
        say("top: %s: %s", who_.c_str(), wrong.c_str());
        return exitUsage;
    }
    const int code = follow(page);
    statsClose(page);
    return code;
}

constexpr const char* examples[] = {
    "kiv top $(pidof -s kiv)",
    "kiv run 'video:pattern ! jpegenc ! null' --stats unix:/tmp/camera.stats",
    "kiv top unix:/tmp/camera.stats --json --count 1",
};

}  // namespace

const CommandKind topCommand = {
    .name = "top",
    .help = "show the nodes of a running graph: frames, rate, drops, waiting, pool, latency, CPU",
    .notes = "Frames are those that came to a node, of a source those that it handed on. Latency is from a frame's\n"
             "stamp to its arrival at the node. CPU is that of the node on the loop's thread and of its own threads.\n"
             "Ends when the graph ends.",
    .examples = examples,
    .make = makeCommand<TopCommand>,
};
