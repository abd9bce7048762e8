// codec.h - what a kind of converter is: a few functions that the registry,
// the workers of an open converter and other services call. Hidden.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/zvic/zvic.h"

namespace kiv {

// One side of a converter. Rows lie without gaps, the top row of the picture first.
struct ImageFormat {
    bool jpeg = false;
    int width = 0;  // pixels
    int height = 0;  // pixels
    int packing = 0;  // ZVimagepacking; of the picture inside when it is a JPEG

    friend bool operator==(const ImageFormat&, const ImageFormat&) = default;
};

// Reads size, packing and compression of a list; -1, recorded, when they name
// no image or go over the limits.
int readImageFormat(const ZVparams* p, ImageFormat* format);

// Bytes that one image of this format takes at most; -1 when that is no int.
int imageBytesMax(const ImageFormat& format);

struct ConvertSettings {
    double quality = 0.75;  // 0 lowest to 1
    int speed = ZV_IC_SPEED_REALTIME;  // ZVicspeed
    bool fullRange = false;  // CbYCr levels are 0..255, not 16..235 and 16..240
    int bands = 0;  // restart intervals of a JPEG; 0 = by its height
};

// One image to convert. `stop` (may be null) ends a long conversion early.
struct ConvertJob {
    const uint8_t* in = nullptr;
    size_t inSize = 0;  // valid bytes
    uint8_t* out = nullptr;
    size_t outCapacity = 0;
    ConvertSettings settings;
    const std::atomic<bool>* stop = nullptr;

    bool stopped() const { return stop != nullptr && stop->load(std::memory_order_relaxed); }
};

// One image cut into bands of whole rows, which engines of the same formats may
// convert side by side.
struct BandPlan {
    static constexpr int most = 16;
    struct Band {
        int row = 0;  // the first, of the picture
        int rows = 0;
        size_t begin = 0;  // encoding: its room in the output; decoding: its bytes of the input
        size_t end = 0;
        int marker = 0;  // decoding: number, 0 to 7, of the first restart marker within
        size_t bytes = 0;  // encoding: written at `begin`
    };
    int count = 0;
    Band bands[most];
};

// What converts images of one pair of formats, one after the other: it keeps
// its library state and scratch rows between images. One thread at a time.
class ConvertEngine {
public:
    virtual ~ConvertEngine() = default;

    // How at most `most` engines could share the image; false, nothing recorded, when
    // it is better converted whole.
    virtual bool plan(const ConvertJob&, int /*most*/, BandPlan*) { return false; }
    // Converts one band of a plan. 0, or -1: then the image is converted whole, which
    // tells why it fails or does not.
    virtual int convertBand(const ConvertJob&, BandPlan::Band&) { return -1; }
    // When all bands are there: as convert.
    virtual int join(const ConvertJob&, const BandPlan&) { return -1; }

    // Returns the bytes written to job.out, never more than its capacity, or -1,
    // recorded. A failed image leaves nothing behind in the engine.
    virtual int convert(const ConvertJob& job) = 0;
};

struct ConverterKind {
    const char* name;
    bool (*match)(const ImageFormat& src, const ImageFormat& dst);
    // Null, recorded, when the library cannot be set up.
    std::unique_ptr<ConvertEngine> (*open)(const ImageFormat& src, const ImageFormat& dst);
};

extern const ConverterKind jpegEncoder;
extern const ConverterKind jpegDecoder;
extern const ConverterKind pixelConverter;

// The registry: ids are places in the order of search.
const ConverterKind* converterKind(int id);  // null, recorded, for no id
int chooseConverter(const ImageFormat& src, const ImageFormat& dst);

}  // namespace kiv
