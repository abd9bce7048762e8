// atoms.cpp - walks atoms by position, reading only their heads.
#include "platform/rk/file/atoms.h"

#include <cstdint>
#include <cstring>

#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

constexpr int atomsTried = 4096;

uint32_t bigEndian32(const unsigned char* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// The atoms that lie one after the other in a part of the file.
class AtomWalk {
public:
    AtomWalk(const MovieFile& file, long long begin, long long end) : file_(file), next_(begin), end_(end) { }
    AtomWalk inside() const { return AtomWalk(file_, body_, next_); }

    bool next()
    {
        unsigned char head[16] = {};
        if (++tried_ > atomsTried || next_ + 8 > end_ || file_.readSome(next_, sizeof head, head) < 8)
            return false;
        const uint64_t shortSize = bigEndian32(head);
        const bool isLong = shortSize == 1, isLast = shortSize == 0;
        const uint64_t longSize = uint64_t(bigEndian32(head + 8)) << 32 | bigEndian32(head + 12);
        const uint64_t size = isLong ? longSize : isLast ? uint64_t(end_ - next_) : shortSize;
        if (size < (isLong ? 16u : 8u))
            return false;
        memcpy(type_, head + 4, sizeof type_);
        body_ = next_ + (isLong ? 16 : 8);
        next_ = size > uint64_t(end_ - next_) ? end_ : next_ + (long long)size;
        return true;
    }

    // Goes to the next atom of that type.
    bool find(const char* type)
    {
        while (next()) {
            if (is(type))
                return true;
        }
        return false;
    }

    bool is(const char* type) const { return memcmp(type_, type, sizeof type_) == 0; }
    bool gaveUp() const { return tried_ > atomsTried; }

    // Four bytes of the body; 0 where there are none.
    uint32_t word(int offset) const
    {
        unsigned char bytes[4] = {};
        return file_.readSome(body_ + offset, 4, bytes) == 4 ? bigEndian32(bytes) : 0;
    }

private:
    const MovieFile& file_;
    long long body_ = 0, next_, end_;
    int tried_ = 0;
    char type_[4] = {};
};

AtomWalk wholeFile(const MovieFile& file) { return AtomWalk(file, 0, file.bytes()); }

bool isImageMedia(AtomWalk media) { return media.find("hdlr") && media.word(8) == 0x76696465; }  // "vide"

// What the sample table of one track counts.
uint32_t claimedFrames(AtomWalk track)
{
    if (!track.find("mdia") || !isImageMedia(track.inside()))
        return 0;
    AtomWalk media = track.inside();
    if (!media.find("minf"))
        return 0;
    AtomWalk information = media.inside();
    if (!information.find("stbl"))
        return 0;
    AtomWalk table = information.inside();
    while (table.next()) {
        if (table.is("stsz") || table.is("stz2"))
            return table.word(8);
    }
    return 0;
}

}  // namespace

bool isFragmented(const MovieFile& file)
{
    AtomWalk atoms = wholeFile(file);
    return atoms.find("moof") || atoms.gaveUp();
}

int checkClaimedFrames(const MovieFile& file)
{
    AtomWalk atoms = wholeFile(file);
    if (!atoms.find("moov"))
        return 0;
    for (AtomWalk tracks = atoms.inside(); tracks.find("trak");) {
        const uint32_t frames = claimedFrames(tracks.inside());
        if (frames > uint32_t(kivLimits()->movieFrames))
            return recordError(ZV_ERROR_LIMIT, "'%s': %u frames, more than movieFrames (%d)", file.name(), frames,
                               kivLimits()->movieFrames);
    }
    return 0;
}

}  // namespace kiv::rk
