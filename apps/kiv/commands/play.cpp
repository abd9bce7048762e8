// play.cpp - see play.h.
#include "apps/kiv/commands/play.h"

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "apps/kiv/commands/player.h"
#include "apps/kiv/commands/runner.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/graph/values.h"
#include "apps/kiv/support/text.h"

namespace {

class PlayCommand : public Command {
public:
    void declare(CLI::App& line) override;
    int run() override;

private:
    std::string source() const;  // nodes up to pictures; "" after a line

    std::string what_, size_, seconds_;
    int zoom_ = 1;
    bool loop_ = false;
    RunOptions options_;
};

void PlayCommand::declare(CLI::App& line)
{
    line.add_option("SOURCE", what_, "a movie file, video:JACK, or the tcp:// or unix: URL of a sender")->required();
    line.add_option("--zoom", zoom_, "window pixels for one of the picture, each way")
        ->check(CLI::Range(1, 16))
        ->capture_default_str();
    line.add_flag("--loop", loop_, "a movie begins again at its end");
    line.add_option("--size", size_, "of the pictures that a URL sends, or that a camera is asked for: 640x480");
    line.add_option("--seconds", seconds_, "end after that time: 10, 2.5, 90s, 1m30s")->check(checkSeconds);
    line.add_flag("--json", options_.json, "the summary as one JSON object");
    line.add_flag("--trace", options_.trace, "show the nodes' own lines");
}

std::string PlayCommand::source() const
{
    const std::string size = size_.empty() ? "" : " size=" + size_;
    if (what_ == "video" || what_ == "video:" || what_.starts_with("video:"))
        return (what_ == "video:" ? "video" : "\"" + what_ + "\"") + size;
    if (what_.starts_with("tcp:") || what_.starts_with("unix:")) {
        if (size.empty()) {
            say("play: the size of what comes from %s is not known; write --size 640x480", what_.c_str());
            return "";
        }
        return "recv \"" + what_ + "\"" + size + " once ! jpegdec";
    }
    if (!size.empty()) {
        say("play: a movie has its own size; leave --size out");
        return "";
    }
    return "movie \"" + what_ + "\"" + (loop_ ? " loop" : "") + " ! jpegdec";
}

int PlayCommand::run()
{
    if (what_.find('"') != std::string::npos) {
        say("play: SOURCE '%s' has a \" in it; rename it", what_.c_str());
        return exitUsage;
    }
    const std::string nodes = source();
    if (nodes.empty())
        return exitUsage;
    options_.graph = nodes + text(" ! display zoom=%d", zoom_);
    options_.status = isatty(STDERR_FILENO) != 0;
    if (!seconds_.empty())
        parseSeconds(seconds_, &options_.seconds);
    options_.drive = [](kivLoop& loop, Graph& graph) { return Player(loop, graph).run(); };
    return runGraph(options_);
}

constexpr const char* examples[] = {
    "kiv play clip.mov --zoom 2",
    "kiv play video:pattern",
    "kiv play tcp://:5000 --size 1280x720",
};

}  // namespace

const CommandKind playCommand = {
    .name = "play",
    .help = "show a movie, a camera or what a peer sends in a window",
    .notes = "Space pauses and goes on, the arrow keys step through a movie frame by frame, q ends. Closing the\n"
             "window ends it too, with the summary.",
    .examples = examples,
    .make = makeCommand<PlayCommand>,
};
