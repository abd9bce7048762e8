// packetList.cpp - builds the index: from the header where it can be trusted, else by one pass over the packets.
#include "platform/rk/file/packetList.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <numeric>

#include "platform/limits.h"
#include "platform/rk/file/atoms.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

// Times as a file may claim them, kept where differences cannot overflow: 2^55 ns is more than a year.
long long boundedTime(long long time)
{
    constexpr long long far = 1LL << 55;
    return std::clamp(time, -far, far);
}

PacketEntry describe(const MovieFile& file, const AVPacket& packet)
{
    const bool timed = packet.pts != AV_NOPTS_VALUE;
    return {.position = packet.pos,
            .data = findData(file, packet),
            .time = boundedTime(timed ? packet.pts : packet.dts),
            .size = packet.size,
            .key = (packet.flags & AV_PKT_FLAG_KEY) != 0,
            .shown = (packet.flags & AV_PKT_FLAG_DISCARD) == 0,
            .timed = timed};
}

// A chunk of no bytes in an AVI file, or what a cut file leaves of a packet, is no frame.
bool isWhole(const AVPacket& packet) { return packet.size > 0 && (packet.flags & AV_PKT_FLAG_CORRUPT) == 0; }

void orderForPresentation(PacketList& list)
{
    for (int i = 0; i < int(list.packets.size()); ++i) {
        if (list.packets[size_t(i)].shown)
            list.shown.push_back(i);
    }
    std::stable_sort(list.shown.begin(), list.shown.end(),
                     [&](int a, int b) { return list.packets[size_t(a)].time < list.packets[size_t(b)].time; });
}

struct HeaderEntry {
    long long position, time;
    int size;
};

// The entries that are shown and have bytes, in order of presentation.
std::vector<HeaderEntry> headerEntries(AVStream* stream, int count)
{
    std::vector<HeaderEntry> entries;
    entries.reserve(size_t(count));
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(stream, i);
        if (entry != nullptr && (entry->flags & AVINDEX_DISCARD_FRAME) == 0 && entry->size > 0)
            entries.push_back({entry->pos, boundedTime(entry->timestamp), entry->size});
    }
    std::stable_sort(entries.begin(), entries.end(), [](auto& a, auto& b) { return a.time < b.time; });
    return entries;
}

// An index is whole when the header counts as many frames; AVI headers count otherwise.
bool isIndexWhole(const MovieFile& file, const AVStream* stream, int count)
{
    if (file.container() == Container::Matroska || count <= 0)
        return false;
    return file.container() == Container::Avi || (stream->nb_frames == count && !isFragmented(file));
}

// How far behind its entry's position the first frame's bytes lie; -1 when they are not there.
long long dataOffset(Demuxer& demuxer, const MovieFile& file, const std::vector<HeaderEntry>& entries)
{
    PacketPtr packet = newPacket();
    do {
        if (demuxer.next(packet.get()) != 0)
            return -1;
    } while (packet->size == 0 || (packet->flags & AV_PKT_FLAG_DISCARD) != 0);
    for (const HeaderEntry& entry : entries) {
        if (entry.position == packet->pos && entry.size == packet->size) {
            const long long data = findData(file, *packet);
            return data < 0 ? -1 : data - entry.position;
        }
    }
    return -1;
}

}  // namespace

int checkFrameCount(const MovieFile& file, long long count)
{
    if (count <= kivLimits()->movieFrames)
        return 0;
    return recordError(ZV_ERROR_LIMIT, "'%s': more frames than movieFrames (%d)", file.name(),
                       kivLimits()->movieFrames);
}

// Compares both ends of the packet with the file: a head alone could be that of
// a neighbour, as pictures of one camera begin alike.
long long findData(const MovieFile& file, const AVPacket& packet)
{
    constexpr int window = 32, compared = 32;
    unsigned char near[window + compared], tail[compared];
    const int head = std::min(packet.size, compared);
    if (packet.pos < 0 || head == 0)
        return -1;
    const int got = file.readSome(packet.pos, sizeof near, near);
    const void* found = got < head ? nullptr : memmem(near, size_t(got), packet.data, size_t(head));
    if (found == nullptr)
        return -1;
    const long long data = packet.pos + (static_cast<const unsigned char*>(found) - near);
    if (file.readSome(data + packet.size - head, head, tail) != head)
        return -1;
    return memcmp(tail, packet.data + packet.size - head, size_t(head)) == 0 ? data : -1;
}

int scanPackets(Demuxer& demuxer, const MovieFile& file, PacketList& list)
{
    PacketPtr packet = newPacket();
    int result = 0;
    while ((result = demuxer.next(packet.get())) == 0) {
        if (!isWhole(*packet))
            continue;
        list.packets.push_back(describe(file, *packet));
        if (checkFrameCount(file, (long long)list.packets.size()) != 0)
            return -1;
    }
    if (wasStopped(result))
        return recordError(ZV_ERROR_STOPPED, "'%s': a stop request ended the opening", file.name());
    if (result == AVERROR(ENOMEM))
        throw std::bad_alloc();
    orderForPresentation(list);  // any other end: what came before it is the movie
    return 0;
}

int indexFromHeader(Demuxer& demuxer, const MovieFile& file, std::vector<StoredFrame>& frames,
                    std::vector<long long>& times)
{
    const int count = avformat_index_get_entries_count(demuxer.image());
    if (checkFrameCount(file, count) != 0)
        return -1;
    if (!isIndexWhole(file, demuxer.image(), count))
        return 1;
    const std::vector<HeaderEntry> entries = headerEntries(demuxer.image(), count);
    const long long offset = dataOffset(demuxer, file, entries);
    if (offset < 0)
        return 1;
    frames.reserve(entries.size());
    times.reserve(entries.size());
    for (const HeaderEntry& entry : entries) {
        frames.push_back({entry.position + offset, entry.size});
        times.push_back(entry.time);
    }
    return 0;
}

}  // namespace kiv::rk
