// server.cpp - see server.h.
#include "platform/kp/server.h"

#include <algorithm>

#include "platform/support/error.h"

namespace kiv {

// Outputs come first, then inputs, each in the order given: a name that fits
// several jacks then means the last input.
Server::Server(DeviceList devices) : devices_(std::move(devices))
{
    for (const bool output : {true, false})
        for (const auto& device : devices_)
            addDevice(device, output);
    for (size_t i = 0; i < nodeLists_.size(); ++i)
        descriptions_.push_back({deviceNames_[i].c_str(), int(nodeLists_[i].size()), nodeLists_[i].data()});
}

// A device with jacks of both directions stands in the list twice.
void Server::addDevice(const std::shared_ptr<Device>& device, bool output)
{
    std::vector<KPNodeDesc> list;
    const std::vector<Jack> jacks = device->jacks();
    for (int j = 0; j < int(jacks.size()); ++j) {
        if (jacks[j].output != output)
            continue;
        const int number = int(nodes_.size());
        Node& node = nodes_.emplace_back();
        node.device = device;
        node.jack = j;
        node.output = output;
        node.name = uniqueName(device->name() + " " + jacks[j].name + (output ? " out" : " in"));
        node.modes = device->modes(j);
        node.desc
            = {firstJack + number, node.name.c_str(), output ? KP_TYPE_DRAIN : KP_TYPE_SOURCE, number, KP_KIND_VIDEO};
        list.push_back(node.desc);
    }
    if (list.empty())
        return;
    deviceNames_.push_back(device->name());
    nodeLists_.push_back(std::move(list));
}

std::string Server::uniqueName(const std::string& wish) const
{
    std::string name = wish;
    const auto taken = [&](const Node& node) { return node.name == name; };
    for (int n = 2; std::any_of(nodes_.begin(), nodes_.end(), taken); ++n)
        name = wish + " #" + std::to_string(n);
    return name;
}

int Server::findNode(int type, int kind, int number) const
{
    if (type != KP_TYPE_SOURCE && type != KP_TYPE_DRAIN)
        return recordError(ZV_ERROR_ARGUMENT, "no nodes of type %d", type);
    if (kind == KP_KIND_MEMORY)
        return type == KP_TYPE_SOURCE ? memorySource : memoryDrain;
    if (kind != KP_KIND_VIDEO && kind != KP_KIND_DEVICE)
        return recordError(ZV_ERROR_ARGUMENT, "no nodes of kind %d", kind);
    for (const Node& node : nodes_)
        if (node.desc.type == type && (number == KP_ANY || node.desc.number == number))
            return node.desc.id;
    return recordError(ZV_ERROR_ARGUMENT, "no video %s has number %d", type == KP_TYPE_SOURCE ? "input" : "output",
                       number);
}

bool Server::holds(int device, int jackId) const
{
    if (device == KP_ANY)
        return true;
    if (device < 0 || device >= int(nodeLists_.size()))
        return false;
    const auto& list = nodeLists_[size_t(device)];
    return std::any_of(list.begin(), list.end(), [&](const KPNodeDesc& node) { return node.id == jackId; });
}

const Server::Node* Server::jack(int id) const
{
    const int index = id - firstJack;
    return index >= 0 && index < int(nodes_.size()) ? &nodes_[index] : nullptr;
}

}  // namespace kiv
