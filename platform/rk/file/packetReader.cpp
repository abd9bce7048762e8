// packetReader.cpp - seeks, and finds out where the demuxer has landed.
#include "platform/rk/file/packetReader.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>

namespace kiv::rk {

PacketReader::PacketReader(std::unique_ptr<Demuxer> demuxer, PacketList list)
    : demuxer_(std::move(demuxer)), list_(std::move(list)), byPosition_(list_.packets.size())
{
    std::iota(byPosition_.begin(), byPosition_.end(), 0);
    std::stable_sort(byPosition_.begin(), byPosition_.end(),
                     [this](int a, int b) { return position(a) < position(b); });
}

// By time of presentation: that is what the demuxers look up.
int PacketReader::seek(int at)
{
    const int result = demuxer_->seek(list_.packets[size_t(at)].time);
    expected_ = result < 0 ? -1 : at;
    return result;
}

// Where the packet stands in the list; -1 for one that the list leaves out. A
// file that shows a packet twice has it in the list twice: the one nearest to
// where the reader should be is meant.
int PacketReader::place(const AVPacket& packet) const
{
    int best = -1;
    auto it = std::lower_bound(byPosition_.begin(), byPosition_.end(), packet.pos,
                               [this](int place, long long wanted) { return position(place) < wanted; });
    for (; it != byPosition_.end() && position(*it) == packet.pos; ++it) {
        if (best < 0 || std::abs(*it - expected_) < std::abs(best - expected_))
            best = *it;
    }
    return best >= 0 && list_.packets[size_t(best)].size == packet.size ? best : -1;
}

int PacketReader::next(AVPacket* packet, int& at)
{
    for (;;) {
        const int result = demuxer_->next(packet);
        at = result < 0 ? -1 : place(*packet);
        if (result < 0) {
            expected_ = result == AVERROR_EOF ? int(list_.packets.size()) : -1;
            return result;
        }
        if (at >= 0) {
            expected_ = at + 1;
            return 0;
        }
    }
}

}  // namespace kiv::rk
