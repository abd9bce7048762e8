// jpegFacts.cpp - walks the marker segments of one frame.
#include "platform/rk/decode/jpegFacts.h"

#include <cstring>

namespace kiv::rk {

namespace {

constexpr unsigned char soi = 0xD8, eoi = 0xD9, sos = 0xDA, app0 = 0xE0;

bool isFrameHeader(unsigned char marker)
{
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// Three bytes a component from its sampling on; what counts is the ratio of luma to chroma.
const char* layoutName(int components, const unsigned char* samplings)
{
    if (components == 1)
        return "gray";
    if (components != 3 || samplings[3] != samplings[6])
        return "";
    const int chromaH = samplings[3] >> 4, chromaV = samplings[3] & 15;
    const int lumaH = samplings[0] >> 4, lumaV = samplings[0] & 15;
    if (chromaH == 0 || chromaV == 0 || lumaH % chromaH != 0 || lumaV % chromaV != 0)
        return "";
    switch ((lumaH / chromaH) << 4 | lumaV / chromaV) {
    case 0x11:
        return "yuvj444p";
    case 0x12:
        return "yuvj440p";
    case 0x21:
        return "yuvj422p";
    case 0x22:
        return "yuvj420p";
    case 0x41:
        return "yuvj411p";
    default:
        return "";
    }
}

// `body` begins with the precision.
void readFrameHeader(const unsigned char* body, int length, JpegFacts& facts)
{
    if (length < 6)
        return;
    const int components = body[5];
    facts.height = body[1] << 8 | body[2];
    facts.width = body[3] << 8 | body[4];
    if (length >= 6 + 3 * components && components > 0)
        facts.pixelFormat = layoutName(components, body + 7);
}

// Whether a second image follows the end of the first. Within coded data a
// 0xFF never stands before an EOI's code but for a real one.
bool hasSecondImage(const unsigned char* data, int size, int at)
{
    for (; at + 1 < size; ++at) {
        if (data[at] != 0xFF || data[at + 1] != eoi)
            continue;
        for (at += 2; at + 1 < size; ++at) {  // some writers fill up to a multiple
            if (data[at] == 0xFF && data[at + 1] == soi)
                return true;
        }
    }
    return false;
}

}  // namespace

JpegFacts readJpegFacts(const unsigned char* data, int size)
{
    JpegFacts facts;
    if (size < 4 || data[0] != 0xFF || data[1] != soi)
        return facts;
    for (int at = 2; at + 4 <= size && data[at] == 0xFF;) {
        const unsigned char marker = data[at + 1];
        if (marker == 0xFF) {  // fill
            ++at;
            continue;
        }
        const int length = data[at + 2] << 8 | data[at + 3];
        if (length < 2 || at + 2 + length > size)
            break;
        const unsigned char* body = data + at + 4;
        if (isFrameHeader(marker))
            readFrameHeader(body, length - 2, facts);
        if (marker == app0 && length >= 7 && memcmp(body, "AVI1", 4) == 0)
            facts.polarity = body[4];
        at += 2 + length;
        if (marker == sos) {
            facts.twoFields = hasSecondImage(data, size, at);
            break;
        }
    }
    if (facts.twoFields)
        facts.height *= 2;
    return facts;
}

}  // namespace kiv::rk
