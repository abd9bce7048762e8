// grammar.cpp - see grammar.h.
#include "apps/kiv/grammar.h"

#include <algorithm>
#include <vector>

#include "apps/kiv/text.h"
#include "platform/zv/zv.h"

namespace {

constexpr Member flag(const char* name, const char* help)
{
    return {name, MemberType::flag, false, false, 0, 0, "", "", help};
}

constexpr Member place(const char* name, MemberType type, const char* help)
{
    return {name, type, true, true, 0, 0, "", "", help};
}

constexpr Member movieMembers[] = {
    place("FILE", MemberType::file, "the movie: QuickTime, MP4, AVI or Matroska"),
    flag("loop", "begin again at the end, for ever"),
    {"rate", MemberType::real, false, false, 0.01, 100.0, "times", "1", "speed of playing"},
    flag("every", "each frame exactly once, in order, as fast as the graph takes them"),
};
constexpr Member recvMembers[] = {
    place("URL", MemberType::url, "tcp://host:port or unix:path; tcp://:port means this machine only"),
    {"size", MemberType::size, false, true, 0, 0, "pixels", "", "of the pictures that come"},
    {"packing", MemberType::packing, false, false, 0, 0, "", "", "uncompressed pictures come; without it JPEG"},
    flag("connect", "call the sender instead of waiting for it; ends when it has gone"),
    flag("once", "end when the peer has gone, instead of waiting for the next"),
    flag("lossless", "take every frame; a slow graph then holds the sender up"),
};
constexpr Member videoMembers[] = {
    {"jack", MemberType::suffix, false, false, 0, 0, "", "", "part of an input's name; 'kiv devices' lists them"},
    {"size", MemberType::size, false, false, 0, 0, "pixels", "", "of the pictures; without it what the device has"},
    {"rate", MemberType::fraction, false, false, 0, 0, "frames/s", "", "without it what the device has"},
    flag("free", "built-in cameras: as fast as the graph takes pictures"),
    {"clip", MemberType::file, false, false, 0, 0, "", "",
     "movie, .y4m or .uyvy file that the built-in clip camera plays"},
    {"faults", MemberType::word, false, false, 0, 0, "", "", "fault script of a built-in camera, for tests"},
};
constexpr Member videooutMembers[] = {
    {"jack", MemberType::suffix, false, false, 0, 0, "", "", "part of an output's name; 'kiv devices' lists them"},
    {"record", MemberType::path, false, false, 0, 0, "", "", "built-in monitor: .y4m file of what was shown"},
    {"faults", MemberType::word, false, false, 0, 0, "", "", "fault script of the built-in monitor, for tests"},
};
constexpr Member checkMembers[] = {
    {"keep", MemberType::path, false, false, 0, 0, "", "", "a .png or .ppm of one picture in a hundred"},
};
constexpr Member jpegencMembers[] = {
    {"quality", MemberType::integer, false, false, 0, 100, "", "75", "0 smallest to 100 best"},
};
constexpr Member convertMembers[] = {
    {"packing", MemberType::packing, false, true, 0, 0, "", "", "what comes out"},
};
constexpr Member fileMembers[] = {
    place("PATH", MemberType::path,
          "its end says the format: .y4m .mjpeg, or one file a frame: .jpg .png .ppm, numbered from 1 where %d "
          "or %04d stands, else before the dot"),
    {"rate", MemberType::fraction, false, false, 0, 0, "frames/s", "", "written to .y4m; known from a movie, else 30"},
};
constexpr Member sendMembers[] = {
    place("URL", MemberType::url, "tcp://host:port or unix:path of the receiver"),
    flag("lossless", "wait for a slow receiver instead of dropping frames"),
    flag("listen", "wait for receivers instead of calling one; when one has gone, wait for the next"),
};

constexpr NodeKind kinds[] = {
    {"movie", NodeRole::source, movieMembers, "plays a movie file; its frames come out as JPEG"},
    {"recv", NodeRole::source, recvMembers, "receives what 'send' sends"},
    {"video", NodeRole::source, videoMembers, "captures from a camera; 'video:pattern' is the built-in one"},
    {"jpegdec", NodeRole::filter, {}, "JPEG to pictures, in the packing that the next node wants"},
    {"jpegenc", NodeRole::filter, jpegencMembers, "pictures to JPEG"},
    {"convert", NodeRole::filter, convertMembers, "pictures to another packing"},
    {"file", NodeRole::sink, fileMembers, "writes files"},
    {"send", NodeRole::sink, sendMembers, "sends to a 'recv', here or on another machine"},
    {"videoout", NodeRole::sink, videooutMembers,
     "plays out to a video output; 'videoout:monitor' is the built-in one"},
    {"check", NodeRole::sink, checkMembers,
     "reads the number in the built-in camera's picture: is each frame the right one?"},
    {"null", NodeRole::sink, {}, "takes frames and does nothing with them"},
};

struct PackingName {
    int packing;
    const char* name;
};
constexpr PackingName packings[] = {
    {ZV_IMAGE_PACKING_CbYCrY, "CbYCrY"},
    {ZV_IMAGE_PACKING_CbYCr, "CbYCr"},
    {ZV_IMAGE_PACKING_CbYCrA, "CbYCrA"},
    {ZV_IMAGE_PACKING_RGB, "RGB"},
    {ZV_IMAGE_PACKING_RGBA, "RGBA"},
    {ZV_IMAGE_PACKING_RGBX, "RGBX"},
    {ZV_IMAGE_PACKING_BGR, "BGR"},
    {ZV_IMAGE_PACKING_ABGR, "ABGR"},
    {ZV_IMAGE_PACKING_XBGR, "XBGR"},
    {ZV_IMAGE_PACKING_ARGB, "ARGB"},
    {ZV_IMAGE_PACKING_XRGB, "XRGB"},
    {ZV_IMAGE_PACKING_LUMINANCE, "LUMINANCE"},
    {ZV_IMAGE_PACKING_LUMINANCE_ALPHA, "LUMINANCE_ALPHA"},
};

// Edits (insert, delete, replace, swap of neighbours) that turn one word into the other.
int distance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<int>> d(a.size() + 1, std::vector<int>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); ++i)
        for (size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = int(i + j);
                continue;
            }
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[a.size()][b.size()];
}

template <class Named> std::string nearest(std::span<const Named> all, const std::string& name)
{
    std::string best;
    int bestDistance = int(name.size()) / 3 + 2;  // this far is no longer near
    for (const Named& one : all) {
        std::string known = one.name;
        int away = known.starts_with(name) && name.size() > 2 ? 1 : distance(name, known);
        if (away < bestDistance) {
            best = known;
            bestDistance = away;
        }
    }
    return best;
}

const char* valueWord(MemberType type)
{
    switch (type) {
    case MemberType::integer:
        return "N";
    case MemberType::real:
        return "X";
    case MemberType::fraction:
        return "N/D";
    case MemberType::size:
        return "WxH";
    case MemberType::packing:
        return "NAME";
    default:
        return "TEXT";
    }
}

std::string usageOf(const Member& member)
{
    if (member.type == MemberType::suffix)
        return text("[:%s]", member.name);
    std::string word = member.name;
    if (!member.positional && member.type != MemberType::flag)
        word += std::string("=") + valueWord(member.type);
    return member.required ? word : "[" + word + "]";
}

std::string helpOf(const Member& member)
{
    std::string line = text("      %-18s %s", usageOf(member).c_str(), member.help);
    std::string extra;
    if (member.low < member.high)
        extra = text("%g to %g", member.low, member.high);
    if (*member.unit != '\0')
        extra += (extra.empty() ? "" : " ") + std::string(member.unit);
    if (*member.fallback != '\0')
        extra += (extra.empty() ? "" : "; ") + std::string("default ") + member.fallback;
    return line + (extra.empty() ? "" : " (" + extra + ")") + "\n";
}

const PackingName* findPacking(int packing)
{
    for (const PackingName& one : packings)
        if (one.packing == packing)
            return &one;
    return nullptr;
}

}  // namespace

std::span<const NodeKind> nodeKinds() { return kinds; }

const NodeKind* findNodeKind(const std::string& name)
{
    for (const NodeKind& kind : kinds)
        if (kind.name == name)
            return &kind;
    return nullptr;
}

int findMember(const NodeKind& kind, const std::string& name)
{
    for (size_t i = 0; i < kind.members.size(); ++i)
        if (kind.members[i].name == name)
            return int(i);
    return -1;
}

std::string nearestNodeKind(const std::string& name) { return nearest(nodeKinds(), name); }
std::string nearestMember(const NodeKind& kind, const std::string& name) { return nearest(kind.members, name); }

std::string usageOf(const NodeKind& kind)
{
    std::string usage = kind.name;
    for (const Member& member : kind.members)
        usage += (member.type == MemberType::suffix ? "" : " ") + usageOf(member);
    return usage;
}

std::string grammarHelp()
{
    std::string help;
    for (NodeRole role : {NodeRole::source, NodeRole::filter, NodeRole::sink}) {
        help += role == NodeRole::source ? "Sources (first in a graph):\n"
            : role == NodeRole::filter   ? "\nBetween:\n"
                                         : "\nSinks (last in a graph):\n";
        for (const NodeKind& kind : kinds) {
            if (kind.role != role)
                continue;
            help += text("  %s\n      %s\n", usageOf(kind).c_str(), kind.help);
            for (const Member& member : kind.members)
                help += helpOf(member);
        }
    }
    return help + "\nPackings: " + packingNames() + "\n";
}

int packingByName(const std::string& name)
{
    for (const PackingName& one : packings)
        if (one.name == name)
            return one.packing;
    return 0;
}

const char* packingName(int packing)
{
    const PackingName* found = findPacking(packing);
    return found != nullptr ? found->name : "?";
}

std::string packingNames()
{
    std::string names;
    for (const PackingName& one : packings)
        names += (names.empty() ? "" : " ") + std::string(one.name);
    return names;
}
