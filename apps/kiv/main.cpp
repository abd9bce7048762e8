// main.cpp - the command line of kiv.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "apps/kiv/demo.h"
#include "apps/kiv/devices.h"
#include "apps/kiv/grammar.h"
#include "apps/kiv/probe.h"
#include "apps/kiv/run.h"
#include "apps/kiv/runner.h"
#include "apps/kiv/text.h"
#include "apps/kiv/values.h"

namespace {

constexpr char graphHelp[] =
    R"(A graph is a line of nodes with '!' between them, one word to the shell:

  kiv run 'movie clip.mov ! jpegdec ! null'

)";

constexpr char examples[] = R"(
Examples:
  kiv probe clip.mov
  kiv run 'movie clip.mov every ! file frames.mjpeg'
  kiv run 'movie clip.mov every ! jpegdec ! file picture-%03d.png' --frames 3
  kiv run 'recv tcp://:5000 size=1280x720 once ! jpegdec ! file out.y4m'
  kiv run 'movie clip.mov ! send tcp://localhost:5000'
  kiv run 'video:pattern size=1280x720 rate=30 ! jpegenc ! send tcp://localhost:5000'
  kiv run 'video ! videoout:monitor record=seen.y4m' --seconds 5
  kiv run 'movie clip.mov loop ! jpegdec ! jpegenc quality=50 ! send tcp://localhost:5000' --seconds 1m30s

kiv ends with 0 when all went well, 1 when something failed while the graph ran
(one line says what), 2 when the command line or the graph cannot be meant.
SIGINT and SIGTERM end a run in order, with its summary; a second one at once.
)";

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
    return run->graph.size() > longest ? text("a graph has at most %zu bytes", longest) : "";
}

struct CommandLine {
    std::vector<std::string> graph;
    std::string seconds, file, graphFile;
    RunOptions run;
    bool probeJson = false;
    bool devicesJson = false;
    DemoOptions demo;
};

std::string checkFrames(const std::string& word)
{
    long long frames;
    return parseFrames(word, &frames) ? "" : "'" + word + "' is no number of frames; write 1 or more";
}

std::string checkSeconds(const std::string& word)
{
    double seconds;
    return parseSeconds(word, &seconds) ? "" : "'" + word + "' is no length of time; write 10 or 1m30s";
}

CLI::App* addRun(CLI::App& app, CommandLine* line)
{
    CLI::App* run = app.add_subcommand("run", "run a graph");
    auto* graph = run->add_option("GRAPH", line->graph, "the graph; 'kiv help' describes it");
    run->add_option("-f,--file", line->graphFile, "read the graph from a file; - is standard input")->excludes(graph);
    run->add_option("--frames", line->run.frames, "end when that many frames have reached the sink")
        ->check(checkFrames);
    run->add_option("--seconds", line->seconds, "end after that time: 10, 2.5, 90s, 1m30s")->check(checkSeconds);
    run->add_flag("--status", line->run.status, "a status line each second also without a terminal");
    run->add_flag("--json", line->run.json, "the summary as one JSON object");
    run->add_flag("--check", line->run.check, "only see whether the graph is understood; nothing is opened");
    run->add_flag("--trace", line->run.trace, "show the nodes' own lines");
    return run;
}

CLI::App* addDemo(CLI::App& app, CommandLine* line)
{
    CLI::App* demo = app.add_subcommand("demo", "show it working: camera, JPEG, TCP, JPEG, check; ten seconds");
    demo->add_option("--seconds", line->seconds, "how long: 10, 2.5, 90s, 1m30s")->check(checkSeconds);
    demo->add_option("--out", line->demo.folder, "folder for the pictures left behind")->capture_default_str();
    demo->add_flag("--json", line->demo.json, "the summary as one JSON object");
    return demo;
}

int startDemo(CommandLine& line)
{
    if (!line.seconds.empty())
        parseSeconds(line.seconds, &line.demo.seconds);
    return runDemo(line.demo);
}

int startRun(CommandLine& line)
{
    if (line.graph.empty() && line.graphFile.empty()) {
        say("run: GRAPH is required: kiv run 'video ! null', or -f FILE");
        return exitUsage;
    }
    if (!line.graph.empty())
        line.run.graph = joined(line.graph);
    else if (const std::string wrong = readGraphFile(line.graphFile, &line.run); !wrong.empty()) {
        say("%s: %s", line.graphFile.c_str(), wrong.c_str());
        return exitUsage;
    }
    line.run.status |= isatty(STDERR_FILENO) != 0;
    if (!line.seconds.empty())
        parseSeconds(line.seconds, &line.run.seconds);
    return runGraph(line.run);
}

// Standard streams that the caller has closed: a file opened later must not take their place.
void holdStandardStreams()
{
    int fd;
    do
        fd = open("/dev/null", O_RDONLY);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

int help(const CLI::App& app)
{
    const std::string usage = app.get_formatter()->make_help(&app, "kiv", CLI::AppFormatMode::All);
    return printOut(usage + "\n" + graphHelp + grammarHelp() + examples) ? exitGood : exitFailed;
}

}  // namespace

int main(int argc, char** argv)
{
    holdStandardStreams();
    signal(SIGPIPE, SIG_IGN);  // what cannot be written fails and is said
    signal(SIGXFSZ, SIG_IGN);
    CLI::App app("Runs graphs of media nodes.", "kiv");
    CommandLine line;
    app.set_version_flag("--version", std::string("kiv " KIV_VERSION));
    app.require_subcommand(0, 1);
    CLI::App* run = addRun(app, &line);
    CLI::App* probe = app.add_subcommand("probe", "describe a movie file");
    probe->add_option("FILE", line.file, "the movie")->required();
    probe->add_flag("--json", line.probeJson, "as one JSON object");
    CLI::App* devices = app.add_subcommand("devices", "list cameras and video outputs");
    devices->add_flag("--json", line.devicesJson, "as one JSON array");
    CLI::App* demo = addDemo(app, &line);
    CLI::App* helping = app.add_subcommand("help", "all nodes, their members, examples");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == int(CLI::ExitCodes::Success))
            return app.exit(error);
        say("%s; 'kiv help' shows what there is", error.what());
        return exitUsage;
    }
    if (*helping)
        return help(app);
    if (*probe)
        return probeMovie(line.file, line.probeJson);
    if (*devices)
        return listDevices(line.devicesJson);
    if (*demo)
        return startDemo(line);
    if (*run)
        return startRun(line);
    say("run, probe, devices, demo or help? 'kiv help' shows what there is");
    return exitUsage;
}
