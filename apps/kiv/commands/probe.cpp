// probe.cpp - see probe.h.
#include "apps/kiv/commands/probe.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "apps/kiv/graph/run.h"
#include "apps/kiv/support/colour.h"
#include "apps/kiv/support/text.h"
#include "platform/rk/rk.h"

namespace {

const char* interlacingName(int code)
{
    switch (code) {
    case RK_INTERLACING_PROGRESSIVE:
        return "progressive";
    case RK_INTERLACING_TOP_FIRST:
        return "top field first";
    case RK_INTERLACING_BOTTOM_FIRST:
        return "bottom field first";
    default:
        return "unknown";
    }
}

double rateOf(const RKtrackInfo& info)
{
    return info.rateDenominator != 0 ? double(info.rateNumerator) / info.rateDenominator : 0;
}

double durationOf(const RKtrackInfo& info) { return rateOf(info) > 0 ? info.frames / rateOf(info) : 0; }

std::string asText(const std::string& file, const RKtrackInfo& info)
{
    std::string out = bold(file) + "\n";
    out += text("  container    %s, %lld bytes\n", info.container, info.bytes);
    out += text("  codec        %s%s%s\n", info.codec, info.pixelFormat[0] != '\0' ? ", " : "", info.pixelFormat);
    out += text("  size         %d x %d\n", info.width, info.height);
    out += text("  rate         %d/%d (%.3f frames/s)\n", info.rateNumerator, info.rateDenominator, rateOf(info));
    out += text("  frames       %d (%.3f s)\n", info.frames, durationOf(info));
    out += text("  interlacing  %s\n", interlacingName(info.interlacing));
    if (info.cutShort != 0)
        out += "  cut short    the file ends before its container does\n";
    out += text("  as JPEG      %s\n",
                info.jpeg != 0 ? "straight from the file" : "each frame is decoded and encoded again");
    return out;
}

std::string asJson(const std::string& file, const RKtrackInfo& info)
{
    const nlohmann::ordered_json out = {{"file", file},
                                        {"container", info.container},
                                        {"bytes", info.bytes},
                                        {"codec", info.codec},
                                        {"pixelFormat", info.pixelFormat},
                                        {"width", info.width},
                                        {"height", info.height},
                                        {"rateNumerator", info.rateNumerator},
                                        {"rateDenominator", info.rateDenominator},
                                        {"frames", info.frames},
                                        {"seconds", durationOf(info)},
                                        {"interlacing", interlacingName(info.interlacing)},
                                        {"jpegStraight", info.jpeg != 0},
                                        {"cutShort", info.cutShort != 0}};
    return out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

class ProbeCommand : public Command {
public:
    void declare(CLI::App& line) override
    {
        line.add_option("FILE", file_, "the movie")->required();
        line.add_flag("--json", json_, "as one JSON object");
    }
    int run() override;

private:
    std::string file_;
    bool json_ = false;
};

int ProbeCommand::run()
{
    RKmovie movie = nullptr;
    RKtrack track = nullptr;
    RKtrackInfo info = {};
    const bool good = rkOpenFile(file_.c_str(), 0, &movie) == 0
        && rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track) == 0 && rkGetTrackInfo(track, &info) == 0;
    const std::string wrong = serviceError();
    rkClose(movie);
    if (!good) {
        say("probe: %s", wrong.c_str());
        return exitUsage;
    }
    return printOut(json_ ? asJson(file_, info) : asText(file_, info)) ? exitGood : exitFailed;
}

constexpr const char* examples[] = {
    "kiv probe clip.mov",
    "kiv probe clip.mov --json",
};

}  // namespace

const CommandKind probeCommand = {
    .name = "probe",
    .help = "describe a movie file",
    .notes = "",
    .examples = examples,
    .make = makeCommand<ProbeCommand>,
};
