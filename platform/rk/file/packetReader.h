// packetReader.h - the packets of a track from any place in it.
#pragma once

#include "platform/rk/file/demuxer.h"
#include "platform/rk/file/packetList.h"

namespace kiv::rk {

// Reads on from a packet that is named by its place in the list. Not thread-safe.
class PacketReader {
public:
    PacketReader(std::unique_ptr<Demuxer> demuxer, PacketList list);

    // Goes to packet `at` or, where the container has no mark there, to one
    // before it. 0 or an AVERROR.
    int seek(int at);
    // The next packet, and its place in the list. 0 or an AVERROR.
    int next(AVPacket* packet, int& at);
    // The next one's place, the list's length at the end; -1 = seek first.
    int expected() const { return expected_; }

    const PacketList& list() const { return list_; }
    Demuxer& demuxer() { return *demuxer_; }

private:
    int place(const AVPacket& packet) const;
    long long position(int place) const { return list_.packets[size_t(place)].position; }

    std::unique_ptr<Demuxer> demuxer_;
    PacketList list_;
    std::vector<int> byPosition_;  // places in the list, by position in the file
    int expected_ = -1;
};

}  // namespace kiv::rk
