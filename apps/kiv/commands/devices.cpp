// devices.cpp - see devices.h.
#include "apps/kiv/commands/devices.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "apps/kiv/graph/run.h"
#include "apps/kiv/support/colour.h"
#include "apps/kiv/support/text.h"
#include "platform/kp/kp.h"

namespace {

using Json = nlohmann::ordered_json;

Json describe(KPServer server, const KPNodeDesc& jack)
{
    Json modes = Json::array();
    for (int i = 0; const char* mode = kpGetNodeMode(server, jack.id, i); ++i)
        modes.push_back(mode);
    return {{"name", jack.name},
            {"direction", jack.type == KP_TYPE_DRAIN ? "out" : "in"},
            {"number", jack.number},
            {"modes", modes}};
}

std::string asText(const Json& devices)
{
    std::string out;
    for (const Json& device : devices) {
        out += bold(device["device"].get<std::string>()) + "\n";
        for (const Json& jack : device["jacks"]) {
            out += text("  %-8s %s\n", jack["direction"] == "in" ? "video" : "videoout",
                        jack["name"].get<std::string>().c_str());
            for (const Json& mode : jack["modes"])
                out += "           " + mode.get<std::string>() + "\n";
        }
    }
    return out;
}

class DevicesCommand : public Command {
public:
    void declare(CLI::App& line) override { line.add_flag("--json", json_, "as one JSON array"); }
    int run() override;

private:
    bool json_ = false;
};

int DevicesCommand::run()
{
    const KPServer server = kpOpenVideo("");
    if (server == nullptr) {
        say("the video devices cannot be listed: %s", serviceError().c_str());
        return exitFailed;
    }
    KPDevList list = {};
    kpGetDeviceList(server, &list);
    Json devices = Json::array();
    for (int d = 0; d < list.numDevices; ++d) {
        Json jacks = Json::array();
        for (int n = 0; n < list.devices[d].numNodes; ++n)
            jacks.push_back(describe(server, list.devices[d].nodes[n]));
        devices.push_back({{"device", list.devices[d].name}, {"jacks", jacks}});
    }
    kpCloseVideo(server);
    return printOut(json_ ? devices.dump(2) + "\n" : asText(devices)) ? exitGood : exitFailed;
}

constexpr const char* examples[] = {
    "kiv devices",
    "kiv devices --json",
    "kiv run 'video:pattern ! videoout:monitor' --seconds 5",
};

}  // namespace

const CommandKind devicesCommand = {
    .name = "devices",
    .help = "list cameras and video outputs",
    .notes = "'video:NAME' and 'videoout:NAME' in a graph take the last of those whose name contains NAME.",
    .examples = examples,
    .make = makeCommand<DevicesCommand>,
};
