// runCommand.cpp - see runCommand.h.
#include "apps/kiv/commands/runCommand.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "apps/kiv/commands/runner.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/graph/values.h"
#include "apps/kiv/support/text.h"

namespace {

// Words given one by one become one text again; those with blanks are quoted.
std::string joined(const std::vector<std::string>& words)
{
    if (words.size() == 1)
        return words.front();
    std::string all;
    for (const std::string& word : words) {
        const bool blank = word.find_first_of(" \t") != std::string::npos;
        all += (all.empty() ? "" : " ") + (blank ? "\"" + word + "\"" : word);
    }
    return all;
}

// "" or what is wrong.
std::string readGraphFile(const std::string& name, RunOptions* run)
{
    constexpr size_t longest = 1 << 20;
    const bool standard = name == "-";
    FILE* file = standard ? stdin : fopen(name.c_str(), "re");
    if (file == nullptr)
        return strerror(errno);
    run->source = standard ? "stdin" : name;
    run->graph.resize(longest + 1);
    run->graph.resize(fread(run->graph.data(), 1, longest + 1, file));
    const int error = ferror(file) != 0 ? errno : 0;
    if (!standard)
        fclose(file);
    if (error != 0)
        return strerror(error);
    if (run->graph.starts_with("\xEF\xBB\xBF"))  // some editors begin a file with a byte order mark
        run->graph.erase(0, 3);
    return run->graph.size() > longest ? text("a graph has at most %zu bytes", longest) : "";
}

class RunCommand : public Command {
public:
    void declare(CLI::App& line) override;
    int run() override;

private:
    std::vector<std::string> graph_;
    std::string file_, seconds_, stats_;
    RunOptions options_;
};

void RunCommand::declare(CLI::App& line)
{
    line.add_option("GRAPH", graph_, "the graph; 'kiv man graph' describes the language");
    line.add_option("-f,--file", file_, "read the graph from a file; - is standard input");
    line.add_option("--frames", options_.frames, "end when that many frames have reached each sink")
        ->check(checkFrames);
    line.add_option("--seconds", seconds_, "end after that time: 10, 2.5, 90s, 1m30s")->check(checkSeconds);
    line.add_flag("--status", options_.status, "a status line each second also without a terminal");
    line.add_flag("--json", options_.json, "the summary as one JSON object");
    line.add_flag("--explain", options_.explain, "say what each link has negotiated, and who set it");
    line.add_option("--stats", stats_, "unix:PATH hands the statistics to 'kiv top unix:PATH'; off counts nothing");
    line.add_option("--dot", options_.dotFile, "picture of the graph, with formats and counts; .svg through Graphviz");
    line.add_option("--trace-file", options_.traceFile,
                    "one slice per node and frame, for chrome://tracing or Perfetto");
    line.add_flag("--ledger", options_.ledger, "at the end, what every pool has held; SIGUSR1 prints it at any time");
    line.add_flag("--check", options_.check, "only see whether the graph is understood; nothing is opened");
    line.add_flag("--trace", options_.trace, "show the nodes' own lines");
}

int RunCommand::run()
{
    if (graph_.empty() && file_.empty()) {
        say("run: GRAPH is required, or -f FILE: kiv run 'video ! null'");
        return exitUsage;
    }
    if (!graph_.empty() && !file_.empty()) {
        say("run: there is a GRAPH on the line and one in %s; leave one out", file_.c_str());
        return exitUsage;
    }
    if (file_.empty()) {
        options_.graph = joined(graph_);
    } else if (const std::string wrong = readGraphFile(file_, &options_); !wrong.empty()) {
        say("%s: %s", file_.c_str(), wrong.c_str());
        return exitUsage;
    }
    if (stats_ == "off") {
        options_.stats = false;
    } else if (stats_.starts_with("unix:") && stats_.size() > 5) {
        options_.statsPath = stats_.substr(5);
    } else if (!stats_.empty()) {
        say("run: --stats '%s' must be unix:PATH or off", stats_.c_str());
        return exitUsage;
    }
    options_.status |= isatty(STDERR_FILENO) != 0;
    if (!seconds_.empty())
        parseSeconds(seconds_, &options_.seconds);
    return runGraph(options_);
}

constexpr const char* examples[] = {
    "kiv run 'movie clip.mov every ! jpegdec ! file picture-%03d.png' --frames 3",
    "kiv run 'recv tcp://:5000 size=1280x720 once ! jpegdec ! file out.y4m'",
    "kiv run 'video:pattern size=720p rate=30 ! jpegenc ! send tcp://localhost:5000'",
    "kiv run 'video ! jpegenc ! ( send tcp://localhost:5000, file out.mjpeg )' --seconds 1m30s",
    "kiv run -f graph.kiv --json",
    "kiv run 'video:pattern ! jpegenc ! null' --seconds 5 --explain --dot graph.svg --trace-file t.json",
};

}  // namespace

const CommandKind runCommand = {
    .name = "run",
    .help = "run a graph",
    .notes = "SIGINT and SIGTERM end a run in order, with its summary; a second one at once. The summary goes to\n"
             "standard output, everything else to standard error.",
    .examples = examples,
    .make = makeCommand<RunCommand>,
};
