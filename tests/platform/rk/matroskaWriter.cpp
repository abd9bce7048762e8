// matroskaWriter.cpp - see matroskaWriter.h.
#include "tests/platform/rk/matroskaWriter.h"

namespace {

std::string bigEndian(unsigned long long value, int bytes)
{
    std::string out;
    for (int i = bytes - 1; i >= 0; --i)
        out += char(value >> (8 * i));
    return out;
}

std::string element(unsigned id, const std::string& body)
{
    const int idBytes = id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1;
    return bigEndian(id, idBytes) + bigEndian(1ull << 56 | body.size(), 8) + body;
}

std::string number(unsigned id, unsigned long long value) { return element(id, bigEndian(value, 4)); }

std::string stripping(const std::string& header)
{
    const std::string compression = number(0x4254, 3) + element(0x4255, header);
    return element(
        0x6D80,
        element(0x6240, number(0x5031, 0) + number(0x5032, 1) + number(0x5033, 0) + element(0x5034, compression)));
}

}  // namespace

std::string matroskaMovie(const std::vector<std::string>& packets, int width, int height, size_t stripped)
{
    const std::string picture = element(0xE0, number(0xB0, unsigned(width)) + number(0xBA, unsigned(height)));
    const std::string track = number(0xD7, 1) + number(0x73C5, 1) + number(0x83, 1) + element(0x86, "V_MJPEG")
        + number(0x23E383, 40'000'000) + picture + (stripped > 0 ? stripping(packets[0].substr(0, stripped)) : "");
    std::string clusters;
    for (size_t i = 0; i < packets.size(); ++i) {
        const std::string block = std::string("\x81\0\0\x80", 4) + packets[i].substr(stripped);
        clusters += element(0x1F43B675, number(0xE7, 40 * i) + element(0xA3, block));
    }
    const std::string segment
        = element(0x1549A966, number(0x2AD7B1, 1'000'000)) + element(0x1654AE6B, element(0xAE, track)) + clusters;
    return element(0x1A45DFA3, element(0x4282, "matroska")) + element(0x18538067, segment);
}
