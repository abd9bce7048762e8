// jpegBands.h - where a JPEG can be cut: its segments, and the restart intervals of its scan.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/zvic/codec.h"

namespace kiv {

constexpr uint8_t jpegMarker = 0xff;
constexpr uint8_t jpegSoi = 0xd8;
constexpr uint8_t jpegEoi = 0xd9;
constexpr uint8_t jpegRst0 = 0xd0;  // to RST7

// What the head of a baseline JPEG of one scan says, and where it says it.
struct JpegHead {
    int width = 0;
    int height = 0;
    size_t heightAt = 0;  // of the two bytes of the height
    int components = 0;
    int mcuWidth = 0;  // pixels
    int mcuHeight = 0;
    bool fullRows = false;  // chroma has as many rows as luma
    int restartInterval = 0;  // MCUs; 0: none
    size_t dataAt = 0;  // the coded data begins

    int mcusPerRow() const { return (width + mcuWidth - 1) / mcuWidth; }
    int mcuRows() const { return (height + mcuHeight - 1) / mcuHeight; }
};

// False for all that cannot be cut: progressive, several scans, damaged, no JPEG.
bool readJpegHead(const uint8_t* jpeg, size_t size, JpegHead* head);

// Where the next marker after `at` stands, stuffed zeros and fill bytes passed
// over; `size` when there is none.
size_t nextJpegMarker(const uint8_t* jpeg, size_t size, size_t at);

// Cuts at restart markers into at most `most` bands of whole rows of MCUs, as even
// as they go. False when the intervals are no whole rows, or the markers are not
// all there in their order with the end of the image behind them.
bool planJpegBands(const uint8_t* jpeg, size_t size, const JpegHead& head, int most, BandPlan* plan);

// True when one more picture lies behind the first, perhaps after some padding.
bool anotherJpegFollows(const uint8_t* rest, size_t size);

}  // namespace kiv
