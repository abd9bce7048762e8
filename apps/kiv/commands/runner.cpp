// runner.cpp - see runner.h.
#include "apps/kiv/commands/runner.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "apps/kiv/graph/graph.h"
#include "apps/kiv/report/observation.h"
#include "apps/kiv/report/summary.h"
#include "apps/kiv/support/colour.h"
#include "apps/kiv/support/endSignals.h"
#include "apps/kiv/support/text.h"

namespace {

constexpr long long secondNs = 1000000000;
constexpr long long watchNs = secondNs / 2;
constexpr long long drainNs = 2 * secondNs;  // frames under way after an early end

class Runner : public RunContext {
public:
    Runner(const RunOptions& options, Graph& graph, EndSignals& signals)
        : options_(options), graph_(graph), signals_(signals), observation_(options, graph)
    {
    }

    Summary run();

    kivLoop& loop() override { return loop_; }
    void hold() override;
    void release() override;
    void sourceEnded(const GraphPart& source) override { ended_.insert(&source); }
    bool wantsFrame(const Tally& soFar) override { return options_.frames == 0 || soFar.frames < options_.frames; }
    void note(const std::string& line) override;
    void failed(const std::string& line, bool fatal) override;

private:
    void open();
    void begin();
    void endAfter(GraphPart& source);
    void endEarly();
    bool done(GraphPart& source);
    void afterPass();
    void watch();
    std::string timeLeft();
    void showStatus();
    void clearStatus();
    double secondsRun() const { return begun_ ? double(nowNs() - beganNs_) / 1e9 : 0; }

    const RunOptions& options_;
    Graph& graph_;
    EndSignals& signals_;
    Observation observation_;
    kivLoop loop_;
    StatusLine status_;
    int holds_ = 0;
    bool begun_ = false;  // the nodes have been started
    std::set<const GraphPart*> ended_;  // sources that bring no more
    bool quitting_ = false;
    bool statusShown_ = false;  // the cursor stands behind a status line
    long long beganNs_ = 0;
    std::vector<std::string> errors_;
};

// While anybody holds the graph, nothing is taken from any node: what lies in their
// pools stays there, and a source that loses nothing waits.
void Runner::hold()
{
    if (holds_++ == 0 && begun_)
        graph_.removeFrom(loop_);
}

void Runner::release()
{
    if (--holds_ == 0 && begun_)
        graph_.addTo(loop_);
    else if (holds_ == 0)
        begin();
}

void Runner::begin()
{
    if (begun_ || quitting_)
        return;
    begun_ = true;
    beganNs_ = nowNs();
    if (const std::string wrong = graph_.start(); !wrong.empty())
        return failed(wrong, true);
    graph_.addTo(loop_);
    for (GraphPart* source : graph_.sources())
        endAfter(*source);
}

// A source with seconds= ends by itself.
void Runner::endAfter(GraphPart& source)
{
    const Value& seconds = source.nodeText().value("seconds");
    if (seconds.given)
        loop_.addTimer((unsigned long long)(nowNs() + (long long)(seconds.number * 1e9)), [this, &source] {
            source.endSource();
            sourceEnded(source);
        });
}

// All sinks below a source have what they are to have, or can get no more.
bool Runner::done(GraphPart& source)
{
    auto full = [&](GraphPart* sink) {
        return &graph_.sourceOf(*sink) != &source || sink->tally()->frames >= options_.frames;
    };
    if (options_.frames > 0 && std::ranges::all_of(graph_.sinks(), full))
        return true;
    return ended_.contains(&source) && holds_ == 0 && graph_.idle(source);
}

void Runner::note(const std::string& line)
{
    clearStatus();
    say("%s", line.c_str());
}

void Runner::failed(const std::string& line, bool fatal)
{
    note(line);
    errors_.push_back(line);
    if (fatal) {
        quitting_ = true;
        loop_.quit();
    }
}

// Frames under way still arrive, but not for ever.
void Runner::endEarly()
{
    if (!begun_ || holds_ > 0) {
        loop_.quit();
        return;
    }
    for (GraphPart* source : graph_.sources()) {
        source->endSource();
        sourceEnded(*source);
    }
    loop_.addTimer((unsigned long long)(nowNs() + drainNs), [this] { loop_.quit(); });
}

void Runner::afterPass()
{
    for (const auto& part : graph_.parts())
        part->afterPass(*this);
    if (std::ranges::all_of(graph_.sources(), [this](GraphPart* source) { return done(*source); }))
        loop_.quit();
}

void Runner::watch()
{
    loop_.addTimer((unsigned long long)(nowNs() + watchNs), [this] { watch(); });
    observation_.sample();
    for (const auto& part : graph_.parts())
        part->watch(*this);
}

// ", 12 s left" where an end is known.
std::string Runner::timeLeft()
{
    double left = options_.seconds > 0 ? options_.seconds - secondsRun() : -1;
    auto atMost = [&left](double seconds) { left = left < 0 ? seconds : std::min(left, seconds); };
    for (GraphPart* sink : graph_.sinks()) {
        const long long done = sink->tally()->frames;
        const double perFrame = done > 0 ? secondsRun() / double(done) : 0;
        const long long ofSource = graph_.sourceOf(*sink).framesLeft();
        if (perFrame > 0 && ofSource >= 0)
            atMost(double(ofSource) * perFrame);
        if (perFrame > 0 && options_.frames > 0)
            atMost(double(std::max(0LL, options_.frames - done)) * perFrame);
    }
    return left < 0 ? "" : text(", %.0f s left", left);
}

void Runner::showStatus()
{
    loop_.addTimer((unsigned long long)(nowNs() + secondNs), [this] { showStatus(); });
    if (!begun_)
        return;
    clearStatus();
    const bool terminal = isatty(STDERR_FILENO) != 0;
    fprintf(stderr, terminal ? "%s" : "%s\n", (status_.next(graph_, secondsRun()) + timeLeft()).c_str());
    statusShown_ = terminal;
}

void Runner::clearStatus()
{
    if (statusShown_)
        fputs("\r\033[K", stderr);
    statusShown_ = false;
}

// The sinks first, so that a file which cannot be written is known before a peer is
// asked for; nothing moves before all are open.
void Runner::open()
{
    ++holds_;
    for (size_t i = graph_.parts().size(); i-- > 0 && !quitting_;)
        graph_.parts()[i]->open(*this);
    release();
}

Summary Runner::run()
{
    if (const std::string wrong = graph_.init(); !wrong.empty())
        failed(wrong, true);
    else
        observation_.begin(*this);
    if (!quitting_)
        open();
    loop_.addFD(signals_.fd(), [this] {
        loop_.removeFD(signals_.fd());
        endEarly();
    });
    loop_.addFD(signals_.asked().fd(), [this] {
        signals_.asked().clear();
        clearStatus();
        fputs(ledgerText(graph_.pools()).c_str(), stderr);
    });
    watch();
    if (options_.seconds > 0)  // also when no peer comes
        loop_.addTimer((unsigned long long)(nowNs() + (long long)(options_.seconds * 1e9)), [this] { endEarly(); });
    loop_.setPassHandler([this] { afterPass(); });
    if (options_.status)
        loop_.addTimer((unsigned long long)(nowNs() + secondNs), [this] { showStatus(); });
    if (!quitting_ && (options_.drive ? options_.drive(loop_, graph_) : loop_.run()) != kivErrNone)
        failed("the loop cannot wait", true);

    clearStatus();
    for (GraphPart* source : graph_.sources()) {
        source->endSource();
        source->node().stop();
    }
    for (const auto& part : graph_.parts())
        part->close(*this);
    Summary summary = summarise(graph_);
    observation_.end(*this, &summary);
    graph_.removeFrom(loop_);
    summary.pools = graph_.takeApart();
    for (const PoolReport& pool : summary.pools)
        if (pool.ledger.inUse != 0)
            failed(text("%s: %d buffers were lost", pool.place.c_str(), pool.ledger.inUse), false);
    summary.errors = errors_;
    summary.exitCode = errors_.empty() ? exitGood : exitFailed;
    return summary;
}

}  // namespace

int runGraph(const RunOptions& options)
{
    setTrace(options.trace ? 1 : 0);
    EndSignals signals;
    try {
        const std::vector<NodeText> parsed = parseGraph(options.graph);
        if (options.check)
            return exitGood;
        Graph graph(parsed);
        const Summary summary = Runner(options, graph, signals).run();
        if (options.ledger)
            fputs(ledgerText(summary.pools).c_str(), stderr);
        const bool told = printOut(options.json ? jsonSummary(summary) : humanSummary(summary));
        return told ? summary.exitCode : int(exitFailed);
    } catch (const GraphError& error) {
        const std::string two = error.describe(options.graph, options.source, 5);
        const size_t mark = two.find('^', two.find('\n'));
        say("%s%s", two.substr(0, mark).c_str(), warning(two.substr(mark)).c_str());
        return exitUsage;
    }
}
