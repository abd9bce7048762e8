// packetList.h - what the image track holds, packet by packet and frame by frame.
#pragma once

#include <vector>

#include "platform/rk/file/demuxer.h"

namespace kiv::rk {

// Where one frame's bytes lie in the file.
struct StoredFrame {
    long long position;
    int size;
};

// One packet of the track. The arrays below are in the order of the file, which is the order of decoding.
struct PacketEntry {
    long long position;  // what the demuxer calls its place; tells packets apart
    long long data;  // where its bytes lie in the file; -1: nowhere in one piece
    long long time;  // of presentation, in the track's unit
    int size;  // bytes
    bool key;  // decoding can begin here
    bool shown;  // false: an edit list hides it
    bool timed;  // the file says when to show it; else `time` is that of decoding
};

struct PacketList {
    std::vector<PacketEntry> packets;
    std::vector<int> shown;  // index into packets of frame i, in order of presentation
};

// Reads all packets once. 0, or -1 with an error recorded.
int scanPackets(Demuxer& demuxer, const MovieFile& file, PacketList& list);

// The frames of a track whose packets are whole pictures, by the index in the
// file's header, in order of presentation, with their times. 0 and nothing read
// but the first packet; 1 when the header's index is missing, not whole or does
// not lead to the packets; -1 with an error recorded.
int indexFromHeader(Demuxer& demuxer, const MovieFile& file, std::vector<StoredFrame>& frames,
                    std::vector<long long>& times);

// Where the packet's bytes lie in the file, at its place or a few header bytes behind; -1 if they do not.
long long findData(const MovieFile& file, const AVPacket& packet);

// -1, with an error recorded that names the limit, for too many frames.
int checkFrameCount(const MovieFile& file, long long count);

}  // namespace kiv::rk
