// checkPart.cpp - see checkPart.h.
#include "apps/kiv/nodes/checkPart.h"

#include <algorithm>

#include "apps/kiv/support/text.h"
#include "platform/kp/kp.h"

static constexpr int keepEvery = 100;  // pictures

PictureFormat CheckPart::configure(const PictureFormat& in, const Below&)
{
    format_ = in;
    const Value& path = text_.value("keep");
    if (!path.given)
        return in;
    const FileKind kind = fileKindOf(path.text);
    const std::string wrong
        = kind == FileKind::png || kind == FileKind::ppm ? checkNumbering(path.text) : "must end in .png or .ppm";
    if (!wrong.empty())
        throw GraphError(text_, path.where, "keep '" + path.text + "' " + wrong);
    PictureFormat rgb = in;
    rgb.packing = ZV_IMAGE_PACKING_RGB;
    writer_ = makeFrameWriter(path.text, rgb);
    rgb_.resize(size_t(frameBytes(rgb)));
    return in;
}

void CheckPart::take(ZVbuffer buffer)
{
    const auto* picture = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    const long long number = zvBufferGetUSTMSCpair(buffer).msc;
    unsigned shown = 0;
    const bool readable = zvBufferGetSize(buffer) >= frameBytes(format_)
        && kpReadTestPicture(picture, format_.width, format_.height, &shown) == 0;
    if (!readable || shown != unsigned(number)) {
        if (wrong_++ == 0)
            run_->failed(readable ? text("%s: frame %lld shows number %u", place().c_str(), number, shown)
                                  : text("%s: no number can be read in frame %lld", place().c_str(), number),
                         false);
        return;
    }
    if (last_ >= 0 && number > last_)
        missing_ += number - last_ - 1;
    last_ = number;
    if (writer_ != nullptr && right_ % keepEvery == 0)
        keep(picture);
    ++right_;
}

static uint8_t clamped(int value) { return uint8_t(std::clamp(value, 0, 255)); }

// BT.601 from the camera's studio range.
void CheckPart::keep(const uint8_t* picture)
{
    uint8_t* out = rgb_.data();
    for (size_t pair = 0; pair < rgb_.size() / 6; ++pair, picture += 4)
        for (int i = 0; i < 2; ++i) {
            const int y = 298 * (picture[1 + 2 * i] - 16) + 128;
            const int cb = picture[0] - 128;
            const int cr = picture[2] - 128;
            *out++ = clamped((y + 409 * cr) >> 8);
            *out++ = clamped((y - 100 * cb - 208 * cr) >> 8);
            *out++ = clamped((y + 516 * cb) >> 8);
        }
    if (const std::string wrong = writer_->write(rgb_.data(), int(rgb_.size())); !wrong.empty())
        run_->failed(place() + ": " + writer_->path() + ": " + wrong, false);
}

Counters CheckPart::counters() { return {{"right", right_}, {"wrong", wrong_}, {"missing", missing_}}; }
