// builtin.cpp - the devices that need no hardware.
#include "platform/kp/builtin/captureStream.h"
#include "platform/support/error.h"

namespace kiv {

namespace {

// One jack; any number of paths may take it, each with pictures of its own.
class BuiltinDevice final : public Device {
public:
    using Maker = std::unique_ptr<Stream> (*)(std::shared_ptr<Presence>);

    BuiltinDevice(const char* jack, bool output, Maker make, const char* mode)
        : jack_{jack, output}, make_(make), mode_(mode), presence_(std::make_shared<Presence>())
    {
    }

    std::string name() const override { return "builtin"; }
    std::vector<Jack> jacks() const override { return {jack_}; }
    std::vector<std::string> modes(int) override { return {mode_}; }

    std::unique_ptr<Stream> open(int) override
    {
        if (presence_->away()) {
            recordError(ZV_ERROR_PEER, "builtin %s: the device is gone", jack_.name.c_str());
            return nullptr;
        }
        return make_(presence_);
    }

private:
    const Jack jack_;
    const Maker make_;
    const char* const mode_;
    const std::shared_ptr<Presence> presence_;
};

}  // namespace

// The pattern comes last: of all built-in inputs it is the one that a name which
// fits several means.
DeviceList makeBuiltinDevices()
{
    return {
        std::make_shared<BuiltinDevice>("monitor", true, makeMonitorStream, "UYVY any even size, 1-1000 fps"),
        std::make_shared<BuiltinDevice>("clip", false, makeClipStream, "UYVY size and rate of the file"),
        std::make_shared<BuiltinDevice>("pattern", false, makePatternStream,
                                        "UYVY any even size, 1-1000 fps or free-running"),
    };
}

}  // namespace kiv
