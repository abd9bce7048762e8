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

// What converts images of one pair of formats, one after the other: it keeps
// its library state and scratch rows between images. One thread at a time.
class ConvertEngine {
public:
    virtual ~ConvertEngine() = default;

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
