// snapshotPart.cpp - see snapshotPart.h.
#include "apps/kiv/nodes/snapshotPart.h"

#include <algorithm>

#include "apps/kiv/support/text.h"

static constexpr Member snapshotMembers[] = {
    placeMember("PATH", MemberType::path, "ends in .png; numbered from 1 where %d or %04d stands, else before the dot"),
    numberMember("every", MemberType::integer, 1, 1e9, "frames", "1", "one picture in so many, from the first on"),
};

constexpr NodeKind snapshotKind = {
    .name = "snapshot",
    .role = NodeRole::sink,
    .members = snapshotMembers,
    .takes = SnapshotPart::takes,
    .gives = noFormats,
    .wants = nullptr,
    .make = makePartOf<SnapshotPart>,
    .help = "writes a PNG picture of what passes, now and then",
    .whenDropping = "",
    .errors = {},
    .example = "video:pattern ! ( display, snapshot seen-%d.png every=30 )",
};

FormatSet SnapshotPart::takes()
{
    static constexpr int packings[]
        = {ZV_IMAGE_PACKING_CbYCrY, ZV_IMAGE_PACKING_RGBA, ZV_IMAGE_PACKING_RGB, ZV_IMAGE_PACKING_LUMINANCE};
    return {false, packings};
}

PictureFormat SnapshotPart::configure(const PictureFormat& in, const Below&)
{
    const Value& path = text_.value("PATH");
    const std::string wrong = fileKindOf(path.text) == FileKind::png ? checkNumbering(path.text) : "must end in .png";
    if (!wrong.empty())
        throw GraphError(text_, path.where, "PATH '" + path.text + "' " + wrong);
    format_ = in;
    every_ = (long long)(text_.value("every").number);
    PictureFormat written = in;
    if (in.packing == ZV_IMAGE_PACKING_CbYCrY) {
        written.packing = ZV_IMAGE_PACKING_RGB;
        rgb_.resize(size_t(frameBytes(written)));
    }
    writer_ = makeFrameWriter(path.text, written);
    return in;
}

void SnapshotPart::take(ZVbuffer buffer)
{
    if (failed_ || (tally()->frames - 1) % every_ != 0)
        return;
    const auto* picture = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    const int size = zvBufferGetSize(buffer);
    std::string wrong;
    if (picture == nullptr || size < frameBytes(format_))
        wrong = text("a frame of %d bytes came, a picture has %d", size, frameBytes(format_));
    if (wrong.empty() && !rgb_.empty())
        rgbOfCbYCrY(picture, rgb_.size() / 3, format_.fullRange, rgb_.data());
    if (wrong.empty())
        wrong = rgb_.empty() ? writer_->write(picture, size) : writer_->write(rgb_.data(), int(rgb_.size()));
    if (wrong.empty()) {
        ++written_;
        return;
    }
    failed_ = true;
    run_->failed(place() + ": " + writer_->path() + ": " + wrong, true);
}

static uint8_t toByte(double value) { return uint8_t(std::clamp(value + 0.5, 0.0, 255.0)); }

void rgbOfCbYCrY(const uint8_t* picture, size_t pixels, bool fullRange, uint8_t* rgb)
{
    const double luma = fullRange ? 1.0 : 255.0 / 219.0, chroma = fullRange ? 1.0 : 255.0 / 224.0;
    const int black = fullRange ? 0 : 16;
    for (size_t i = 0; i < pixels; ++i, rgb += 3) {
        const uint8_t* pair = picture + i / 2 * 4;
        const double y = luma * (pair[1 + i % 2 * 2] - black);
        const double cb = chroma * (pair[0] - 128), cr = chroma * (pair[2] - 128);
        rgb[0] = toByte(y + 1.402 * cr);
        rgb[1] = toByte(y - 0.344136 * cb - 0.714136 * cr);
        rgb[2] = toByte(y + 1.772 * cb);
    }
}
