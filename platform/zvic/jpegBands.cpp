// jpegBands.cpp - see jpegBands.h.
#include "platform/zvic/jpegBands.h"

#include <algorithm>
#include <cstring>

namespace kiv {

namespace {

constexpr uint8_t sof0 = 0xc0;  // baseline
constexpr uint8_t sof1 = 0xc1;  // the same with more tables
constexpr uint8_t sof15 = 0xcf;
constexpr uint8_t dht = 0xc4;
constexpr uint8_t dac = 0xcc;
constexpr uint8_t sos = 0xda;
constexpr uint8_t dri = 0xdd;

int be16(const uint8_t* p) { return p[0] << 8 | p[1]; }

bool isOtherFrame(uint8_t code) { return code > sof1 && code <= sof15 && code != dht && code != dac; }

// `p` has `length` bytes, the two of the length included.
bool readFrame(const uint8_t* p, int length, JpegHead* head)
{
    if (length < 8 || head->components != 0)
        return false;
    head->height = be16(p + 3);
    head->width = be16(p + 5);
    head->components = p[7];
    if ((head->components != 1 && head->components != 3) || length != 8 + 3 * head->components || p[2] != 8)
        return false;
    int h = 0, v = 0;
    head->fullRows = true;
    for (int i = 0; i < head->components; ++i) {
        const uint8_t factors = p[9 + 3 * i];
        h = std::max(h, factors >> 4);
        v = std::max(v, factors & 15);
        head->fullRows = head->fullRows && (factors & 15) == (p[9] & 15);
    }
    if (head->components == 1)  // a scan of one component has MCUs of one block
        h = v = 1;
    head->mcuWidth = 8 * h;
    head->mcuHeight = 8 * v;
    return h >= 1 && h <= 4 && v >= 1 && v <= 4 && head->width > 0 && head->height > 0;
}

}  // namespace

bool readJpegHead(const uint8_t* jpeg, size_t size, JpegHead* head)
{
    if (size < 4 || jpeg[0] != jpegMarker || jpeg[1] != jpegSoi)
        return false;
    for (size_t at = 2; at + 4 <= size;) {
        if (jpeg[at] != jpegMarker)
            return false;
        const uint8_t code = jpeg[at + 1];
        if (code == jpegMarker) {  // fill
            ++at;
            continue;
        }
        const int length = be16(jpeg + at + 2);
        if (length < 2 || size_t(length) > size - at - 2)
            return false;
        const uint8_t* segment = jpeg + at + 2;
        if (code == sof0 || code == sof1) {
            head->heightAt = at + 5;
            if (!readFrame(segment, length, head))
                return false;
        } else if (isOtherFrame(code)) {
            return false;
        } else if (code == dri && length == 4) {
            head->restartInterval = be16(segment + 2);
        } else if (code == sos) {
            head->dataAt = at + 2 + size_t(length);
            return head->components != 0 && length >= 3 && segment[2] == head->components;
        }
        at += 2 + size_t(length);
    }
    return false;
}

size_t nextJpegMarker(const uint8_t* jpeg, size_t size, size_t at)
{
    while (at + 1 < size) {
        const void* found = memchr(jpeg + at, jpegMarker, size - at - 1);
        if (found == nullptr)
            return size;
        at = size_t(static_cast<const uint8_t*>(found) - jpeg);
        if (jpeg[at + 1] == 0)
            at += 2;
        else if (jpeg[at + 1] == jpegMarker)
            ++at;
        else
            return at;
    }
    return size;
}

bool planJpegBands(const uint8_t* jpeg, size_t size, const JpegHead& head, int most, BandPlan* plan)
{
    if (head.restartInterval == 0 || head.restartInterval % head.mcusPerRow() != 0)
        return false;
    const int rowsEach = head.restartInterval / head.mcusPerRow();  // of MCUs, in an interval
    const int intervals = (head.mcuRows() + rowsEach - 1) / rowsEach;
    const int bands = std::min({intervals, most, int(BandPlan::most)});
    if (bands < 2)
        return false;

    const int rowPixels = rowsEach * head.mcuHeight;
    size_t at = head.dataAt;
    int band = 0;
    for (int interval = 0; interval < intervals; ++interval) {
        BandPlan::Band& b = plan->bands[band];
        if (interval == band * intervals / bands) {
            b = {};
            b.row = interval * rowPixels;
            b.begin = at;
            b.marker = interval & 7;
        }
        at = nextJpegMarker(jpeg, size, at);
        const bool last = interval + 1 == intervals;
        const uint8_t expected = last ? jpegEoi : uint8_t(jpegRst0 + (interval & 7));
        if (at == size || jpeg[at + 1] != expected)
            return false;
        if (last || interval + 1 == (band + 1) * intervals / bands) {
            b.rows = std::min((interval + 1) * rowPixels, head.height) - b.row;
            b.end = at;
            ++band;
        }
        at += 2;
    }
    if (anotherJpegFollows(jpeg + at, size - at))
        return false;
    plan->count = bands;
    return true;
}

// As interlaced Motion-JPEG has it.
bool anotherJpegFollows(const uint8_t* rest, size_t size)
{
    constexpr size_t farthest = 64 << 10;
    const uint8_t* end = rest + std::min(size, farthest);
    while (rest < end
           && (*rest == 0 || (*rest == jpegMarker && rest + 1 < end && (rest[1] == jpegMarker || rest[1] == 0))))
        ++rest;
    return end - rest >= 3 && rest[0] == jpegMarker && rest[1] == jpegSoi && rest[2] == jpegMarker;
}

}  // namespace kiv
