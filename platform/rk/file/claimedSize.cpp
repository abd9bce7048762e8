// claimedSize.cpp - see claimedSize.h.
#include "platform/rk/file/claimedSize.h"

#include <cstdint>
#include <cstring>

namespace kiv::rk {

namespace {

constexpr int headBytes = 4096;  // what stands before a segment is far shorter
constexpr uint8_t segmentId[] = {0x18, 0x53, 0x80, 0x67};
constexpr uint8_t headerId[] = {0x1a, 0x45, 0xdf, 0xa3};

// A length of 1 to 8 bytes, the first of which says how many; -1 for "unknown",
// which live recordings write. Moves `at` behind it; false when it is not all there.
bool readLength(const uint8_t* head, int got, int* at, long long* length)
{
    if (*at >= got || head[*at] == 0)
        return false;
    const int bytes = __builtin_clz(unsigned(head[*at])) - 23;
    if (*at + bytes > got)
        return false;
    uint64_t value = head[*at] & (0xffu >> bytes);
    uint64_t unknown = 0xffu >> bytes;
    for (int i = 1; i < bytes; ++i) {
        value = value << 8 | head[*at + i];
        unknown = unknown << 8 | 0xff;
    }
    *at += bytes;
    *length = value == unknown ? -1 : (long long)(value);
    return true;
}

// Where the segment ends; 0 when it does not say.
long long matroskaEnd(const uint8_t* head, int got)
{
    int at = sizeof headerId;
    long long length = 0;
    if (got < at || memcmp(head, headerId, sizeof headerId) != 0 || !readLength(head, got, &at, &length))
        return 0;
    if (length < 0 || length > got - at - (long long)(sizeof segmentId))
        return 0;
    at += int(length);
    if (memcmp(head + at, segmentId, sizeof segmentId) != 0)
        return 0;
    at += sizeof segmentId;
    return readLength(head, got, &at, &length) && length >= 0 ? at + length : 0;
}

// Where the first list ends; recordings that nobody finished say 0.
long long aviEnd(const uint8_t* head, int got)
{
    if (got < 8)
        return 0;
    const uint32_t length = head[4] | head[5] << 8 | head[6] << 16 | uint32_t(head[7]) << 24;
    return length == 0 || length == UINT32_MAX ? 0 : 8LL + length;
}

}  // namespace

bool isCutShort(const MovieFile& file)
{
    uint8_t head[headBytes];
    const int got = file.readSome(0, headBytes, head);
    switch (file.container()) {
    case Container::Avi:
        return aviEnd(head, got) > file.bytes();
    case Container::Matroska:
        return matroskaEnd(head, got) > file.bytes();
    default:
        return false;
    }
}

}  // namespace kiv::rk
