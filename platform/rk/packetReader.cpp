// packetReader.cpp - seeks, and finds out where the demuxer has landed.
#include "platform/rk/packetReader.h"

#include <algorithm>

namespace kiv::rk {

PacketReader::PacketReader(std::unique_ptr<Demuxer> demuxer, PacketList list)
    : demuxer_(std::move(demuxer)), list_(std::move(list))
{
}

// By time of presentation: that is what the demuxers look up.
int PacketReader::seek(int at)
{
    const int result = demuxer_->seek(list_.packets[size_t(at)].time);
    expected_ = result < 0 ? -1 : at;
    return result;
}

// Searches outward from where it should be. A file that shows a packet twice has
// it in the list twice; the nearer one is meant.
int PacketReader::place(const AVPacket& packet) const
{
    const int count = int(list_.packets.size());
    const auto is = [&](int i) {
        return i >= 0 && i < count && list_.packets[size_t(i)].position == packet.pos
            && list_.packets[size_t(i)].size == packet.size;
    };
    for (int distance = 0; distance < count; ++distance) {
        if (is(expected_ + distance))
            return expected_ + distance;
        if (is(expected_ - distance))
            return expected_ - distance;
    }
    return -1;
}

int PacketReader::next(AVPacket* packet, int& at)
{
    for (;;) {
        const int result = demuxer_->next(packet);
        at = result < 0 ? -1 : place(*packet);
        if (result < 0) {
            expected_ = -1;
            return result;
        }
        if (at >= 0) {  // else a chunk without bytes, which the list leaves out
            expected_ = at + 1;
            return 0;
        }
    }
}

}  // namespace kiv::rk
