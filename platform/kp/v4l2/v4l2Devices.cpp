// v4l2Devices.cpp - the devices of the kernel's video interface.
#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/kp/device.h"
#include "platform/kp/v4l2/v4l2Modes.h"
#include "platform/kp/v4l2/v4l2Stream.h"
#include "platform/support/error.h"

namespace kiv {

namespace {

constexpr int maxJacks = 64;  // what a driver may list before it is not believed

std::string text(const uint8_t* name, size_t size)
{
    const char* chars = reinterpret_cast<const char*>(name);
    return std::string(chars, strnlen(chars, size));
}

V4l2Jack inputJack(const v4l2_input& input)
{
    return {text(input.name, sizeof input.name), int(input.index), (input.capabilities & V4L2_IN_CAP_DV_TIMINGS) != 0,
            (input.capabilities & V4L2_IN_CAP_STD) != 0 ? input.std : 0};
}

V4l2Jack outputJack(const v4l2_output& output)
{
    return {text(output.name, sizeof output.name), int(output.index),
            (output.capabilities & V4L2_OUT_CAP_DV_TIMINGS) != 0,
            (output.capabilities & V4L2_OUT_CAP_STD) != 0 ? output.std : 0};
}

std::vector<V4l2Jack> findJacks(const V4l2Node& node)
{
    std::vector<V4l2Jack> jacks;
    for (uint32_t i = 0; i < maxJacks; ++i) {
        v4l2_input input = {};
        v4l2_output output = {};
        input.index = output.index = i;
        if (node.output() && node.control(VIDIOC_ENUMOUTPUT, &output) == 0)
            jacks.push_back(outputJack(output));
        else if (!node.output() && node.control(VIDIOC_ENUMINPUT, &input) == 0)
            jacks.push_back(inputJack(input));
        else
            break;
    }
    if (jacks.empty())
        jacks.push_back({"video", -1, false, 0});
    return jacks;
}

// A device is looked at once; it is opened again when a jack is taken.
class V4l2Device final : public Device {
public:
    V4l2Device(std::string path, const V4l2Node& node)
        : path_(std::move(path)), card_(node.card()), output_(node.output()), jacks_(findJacks(node))
    {
        for (const V4l2Jack& jack : jacks_)
            modes_.push_back(describeModes(node, jack));
    }

    std::string name() const override { return card_; }

    std::vector<Jack> jacks() const override
    {
        std::vector<Jack> list;
        for (const V4l2Jack& jack : jacks_)
            list.push_back({jack.name, output_});
        return list;
    }

    std::vector<std::string> modes(int jack) override { return modes_[size_t(jack)]; }

    std::unique_ptr<Stream> open(int jack) override
    {
        V4l2Node node;
        if (!node.open(path_.c_str()) || node.output() != output_) {
            recordSystemError(ZV_ERROR_PEER, "'%s' at %s cannot be opened", card_.c_str(), path_.c_str());
            return nullptr;
        }
        if (node.card() != card_) {
            recordError(ZV_ERROR_PEER, "%s is '%s' now, no longer '%s'", path_.c_str(), node.card().c_str(),
                        card_.c_str());
            errno = ENODEV;
            return nullptr;
        }
        if (!node.lock()) {
            recordError(ZV_ERROR_STATE, "'%s' at %s is busy", card_.c_str(), path_.c_str());
            errno = EBUSY;
            return nullptr;
        }
        auto stream = output_ ? makeV4l2Output(std::move(node), jacks_[size_t(jack)])
                              : makeV4l2Capture(std::move(node), jacks_[size_t(jack)]);
        if (stream->open() != 0)
            return nullptr;
        return stream;
    }

private:
    const std::string path_;
    const std::string card_;
    const bool output_;
    const std::vector<V4l2Jack> jacks_;
    std::vector<std::vector<std::string>> modes_;
};

// Numbers of the /dev/video* files, in order.
std::vector<int> videoNumbers()
{
    std::vector<int> numbers;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/dev"), closedir);
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        char* end = nullptr;
        if (strncmp(entry->d_name, "video", 5) != 0 || entry->d_name[5] < '0' || entry->d_name[5] > '9')
            continue;
        const long number = strtol(entry->d_name + 5, &end, 10);
        if (*end == '\0')
            numbers.push_back(int(number));
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

}  // namespace

DeviceList findV4l2Devices()
{
    DeviceList devices;
    for (const int number : videoNumbers()) {
        const std::string path = "/dev/video" + std::to_string(number);
        V4l2Node node;
        if (node.open(path.c_str()))
            devices.push_back(std::make_shared<V4l2Device>(path, node));
    }
    return devices;
}

}  // namespace kiv
