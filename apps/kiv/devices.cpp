// devices.cpp - see devices.h.
#include "apps/kiv/devices.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "apps/kiv/run.h"
#include "apps/kiv/text.h"
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

void print(const Json& devices)
{
    for (const Json& device : devices) {
        printf("%s\n", device["device"].get<std::string>().c_str());
        for (const Json& jack : device["jacks"]) {
            printf("  %-8s %s\n", jack["direction"] == "in" ? "video" : "videoout",
                   jack["name"].get<std::string>().c_str());
            for (const Json& mode : jack["modes"])
                printf("           %s\n", mode.get<std::string>().c_str());
        }
    }
}

}  // namespace

int listDevices(bool json)
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
    if (json)
        printf("%s\n", devices.dump(2).c_str());
    else
        print(devices);
    return exitGood;
}
