// server.h - the devices found, as nodes with ids and numbers.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "platform/kp/device.h"
#include "platform/kp/path.h"

namespace kiv {

// What stays as it was found when the server was opened; read without a lock.
class Server {
public:
    explicit Server(DeviceList devices);

    struct Node {
        std::shared_ptr<Device> device;
        int jack;
        bool output;
        KPNodeDesc desc;
        std::string name;  // desc.name points here
        std::vector<std::string> modes;
    };

    // Ids of the memory nodes; jacks follow.
    static constexpr int memorySource = 1;
    static constexpr int memoryDrain = 2;
    static constexpr int firstJack = 3;

    KPDevList list() const { return {int(descriptions_.size()), descriptions_.data()}; }
    int findNode(int type, int kind, int number) const;  // id, -1
    const Node* jack(int id) const;  // null for anything else
    bool holds(int device, int jackId) const;  // device: place in the list, or KP_ANY

private:
    void addDevice(const std::shared_ptr<Device>& device, bool output);
    std::string uniqueName(const std::string& wish) const;

    DeviceList devices_;
    std::deque<Node> nodes_;  // index = id - firstJack = number
    std::vector<std::string> deviceNames_;
    std::vector<std::vector<KPNodeDesc>> nodeLists_;
    std::vector<KPDevDesc> descriptions_;
};

}  // namespace kiv
