// jpeg.cpp - the JPEG converters against a bare loop over libjpeg, 1080p, quality 75.
//
// The same frames for both, alternating in one run; CPU time of the whole
// process, so that queues, wake-ups and buffers of the service are in it. The
// ratio is the median of those of single rounds. Usage:
// bench_jpeg [rounds] [all|limit|scale|quality] [file of 8 raw frames]
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "bench/jpegBare.h"
#include "platform/zvic/zvic.h"

namespace {

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int numFrames = 8;
constexpr int quality = 75;

double seconds(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

uint32_t hash(uint32_t x, uint32_t y, uint32_t z)
{
    uint32_t h = x * 374761393u + y * 668265263u + z * 2246822519u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return h ^ (h >> 16);
}

// Value noise of one grid size, -1..1.
double noiseAt(double x, double y, uint32_t seed)
{
    const auto grid
        = [seed](int gx, int gy) { return double(hash(uint32_t(gx), uint32_t(gy), seed) & 0xffff) / 32768 - 1; };
    const int gx = int(x);
    const int gy = int(y);
    const double fx = x - gx;
    const double fy = y - gy;
    return (grid(gx, gy) * (1 - fx) + grid(gx + 1, gy) * fx) * (1 - fy)
        + (grid(gx, gy + 1) * (1 - fx) + grid(gx + 1, gy + 1) * fx) * fy;
}

// Octaves falling off as those of photographs do, hard edges, and sensor noise.
Bytes makeFrame(int index)
{
    Bytes frame(size_t(width) * height * 2);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            double level = 0;
            double weight = 52;
            for (int cell = 256; cell >= 4; cell /= 4, weight /= 2.1)
                level += weight * noiseAt(double(x + 9 * index) / cell, double(y) / cell, uint32_t(cell));
            if (noiseAt(double(x + 9 * index) / 90, double(y) / 70, 7) > 0.25)
                level += 45;
            const double grain = double(hash(uint32_t(x), uint32_t(y), uint32_t(index)) & 0xff) / 255 - 0.5;
            const double chroma = 40 * noiseAt(double(x / 2 + 5 * index) / 60, double(y) / 60, 11 + (x & 1));
            uint8_t* pixel = &frame[(size_t(y) * width + size_t(x)) * 2];
            pixel[0] = uint8_t(std::clamp(128 + chroma + 2 * grain, 0.0, 255.0));
            pixel[1] = uint8_t(std::clamp(118 + level + 14 * grain, 0.0, 255.0));
        }
    }
    return frame;
}

void describe(ZVparams* list, int packing, bool jpeg)
{
    zvSetImageDefaults(list, width, height, packing);
    if (jpeg)
        zvParamsSetString(list, ZV_IMAGE_COMPRESSION, ZV_COMPRESSION_JPEG);
}

void check(int result, const char* what)
{
    if (result >= 0)
        return;
    char detail[ZV_ERROR_DETAIL_MAX];
    fprintf(stderr, "%s: %s", what, zvGetError(nullptr, detail));
    fprintf(stderr, " (%s)\n", detail);
    exit(1);
}

// An open converter whose input lies ready in buffers of its source pool.
class Service {
public:
    Service(int packing, bool encode, int workers, const std::vector<Bytes>& images, int speed = ZV_IC_SPEED_REALTIME)
    {
        ZVparams *src, *dst, *conv, *pool;
        for (ZVparams** list : {&src, &dst, &conv, &pool})
            zvParamsCreate(list);
        describe(src, packing, !encode);
        describe(dst, packing, encode);
        zvParamsSetFloat(conv, ZV_IMAGE_QUALITY_SPATIAL, quality / 100.0);
        zvParamsSetInt(conv, ZV_IC_WORKERS, workers);
        zvParamsSetEnum(conv, ZV_IC_SPEED, speed);
        check(zvICCreate(zvICChooseConverter(src, dst, conv), &ic_), "zvICCreate");
        check(zvICSetSrcParams(ic_, src), "zvICSetSrcParams");
        check(zvICSetDstParams(ic_, dst), "zvICSetDstParams");
        check(zvICSetConvParams(ic_, conv), "zvICSetConvParams");
        check(zvICGetSrcPoolParams(ic_, pool), "zvICGetSrcPoolParams");
        zvParamsSetInt(pool, ZV_BUFFER_COUNT, int(images.size()));
        check(zvBufferCreatePool(pool, &srcPool_), "source pool");
        zvParamsSetInt(pool, ZV_BUFFER_COUNT, 2);
        check(zvICGetDstPoolParams(ic_, pool), "zvICGetDstPoolParams");
        check(zvBufferCreatePool(pool, &dstPool_), "destination pool");
        check(zvICSetDstPool(ic_, dstPool_), "zvICSetDstPool");
        for (ZVparams* list : {src, dst, conv, pool})
            zvParamsDestroy(list);
        for (const Bytes& image : images) {
            ZVbuffer buffer = nullptr;
            check(zvBufferAllocate(srcPool_, &buffer), "source buffer");
            memcpy(zvBufferMapData(buffer), image.data(), image.size());
            zvBufferSetSize(buffer, int(image.size()));
            inputs_.push_back(buffer);
        }
    }

    ~Service()
    {
        zvICDestroy(ic_);
        for (ZVbuffer buffer : inputs_)
            zvBufferFree(buffer);
        zvBufferDestroyPool(srcPool_);
        zvBufferDestroyPool(dstPool_);
    }

    // All images `times` times, as a loop drives it: send what comes, receive when readable.
    void run(int times, const std::function<void(const uint8_t*, int)>& look = {})
    {
        const int fd = zvICGetDstQueueFD(ic_);
        const int total = times * int(inputs_.size());
        for (int sent = 0, received = 0; received < total;) {
            for (; sent < total && sent - received < 4; ++sent)
                check(zvICSend(ic_, inputs_[size_t(sent) % inputs_.size()], 0, nullptr), "zvICSend");
            pollfd ready = {fd, POLLIN, 0};
            poll(&ready, 1, -1);
            ZVbuffer out = nullptr;
            check(zvICReceive(ic_, &out), "zvICReceive");
            if (look)
                look(static_cast<const uint8_t*>(zvBufferMapData(out)), zvBufferGetSize(out));
            zvBufferFree(out);
            ++received;
        }
    }

private:
    ZVimageconverter ic_ = nullptr;
    ZVbufferpool srcPool_ = nullptr;
    ZVbufferpool dstPool_ = nullptr;
    std::vector<ZVbuffer> inputs_;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double cpuMs(const std::function<void()>& work)
{
    const double before = seconds(CLOCK_PROCESS_CPUTIME_ID);
    work();
    return (seconds(CLOCK_PROCESS_CPUTIME_ID) - before) * 1e3 / numFrames;
}

void compare(const char* what, int rounds, const std::function<void()>& bare, Service& service)
{
    std::vector<double> bareMs, serviceMs, ratios;
    bare();
    service.run(1);
    for (int i = 0; i < rounds; ++i) {
        bareMs.push_back(cpuMs(bare));
        serviceMs.push_back(cpuMs([&service] { service.run(1); }));
        ratios.push_back(serviceMs.back() / bareMs.back());
    }
    const auto least = [](const std::vector<double>& ms) { return *std::min_element(ms.begin(), ms.end()); };
    printf("%-22s bare %6.2f ms CPU/frame   service %6.2f   ratio %.3f   (least: %.2f, %.2f, %.3f)\n", what,
           median(bareMs), median(serviceMs), median(ratios), least(bareMs), least(serviceMs),
           least(serviceMs) / least(bareMs));
}

// Frames a second of one and of two workers, wall time, alternating.
void scale(const char* what, int rounds, int packing, bool encode, const std::vector<Bytes>& images)
{
    Service one(packing, encode, 1, images);
    Service two(packing, encode, 2, images);
    const auto wall = [](Service& service) {
        const double before = seconds(CLOCK_MONOTONIC);
        service.run(4);
        return 4 * numFrames / (seconds(CLOCK_MONOTONIC) - before);
    };
    wall(one);
    wall(two);
    std::vector<double> single, both, ratios;
    for (int i = 0; i < rounds; ++i) {
        single.push_back(wall(one));
        both.push_back(wall(two));
        ratios.push_back(both.back() / single.back());
    }
    printf("%-22s one worker %5.0f frames/s   two %5.0f   ratio %.2f (best %.2f)\n", what, median(single), median(both),
           median(ratios),
           *std::max_element(both.begin(), both.end()) / *std::max_element(single.begin(), single.end()));
}

// PSNR of every `step`-th byte from `first`, in dB.
double psnr(const uint8_t* a, const uint8_t* b, size_t size, size_t first, size_t step)
{
    double sum = 0;
    size_t n = 0;
    for (size_t i = first; i < size; i += step, ++n)
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    return 10 * std::log10(255.0 * 255.0 * double(n) / sum);
}

// What the faster integer transform would cost and gain in the encoder.
void transforms(const std::vector<Bytes>& frames)
{
    for (const auto& [name, transform] : {std::pair{"accurate", JDCT_ISLOW}, {"fast", JDCT_IFAST}}) {
        BareEncoder encoder(width, height, quality, transform);
        BareDecoder decoder(width, height);
        Bytes out(frames[0].size());
        double luma = 0, chroma = 0;
        std::vector<double> ms;
        size_t size = 0;
        for (const Bytes& frame : frames) {
            const size_t bytes = encoder.encode(frame.data());
            decoder.toCbYCrY(encoder.jpeg(), bytes, out.data());
            size += bytes / numFrames;
            luma += psnr(out.data(), frame.data(), out.size(), 1, 2) / numFrames;
            chroma += psnr(out.data(), frame.data(), out.size(), 0, 2) / numFrames;
        }
        for (int i = 0; i < 9; ++i)
            ms.push_back(cpuMs([&] {
                for (const Bytes& frame : frames)
                    encoder.encode(frame.data());
            }));
        printf("transform %-9s %.2f ms, %zu bytes, luma %.2f dB, chroma %.2f dB\n", name, median(ms), size, luma,
               chroma);
    }
}

// 4:2:0 JPEG of the frames; chroma of the rows between is what is lost.
std::vector<Bytes> halved(const std::vector<Bytes>& frames)
{
    std::vector<Bytes> jpegs;
    for (const Bytes& frame : frames) {
        jpeg_error_mgr errors;
        jpeg_compress_struct cinfo = {};
        cinfo.err = jpeg_std_error(&errors);
        jpeg_create_compress(&cinfo);
        unsigned char* memory = nullptr;
        unsigned long size = 0;
        jpeg_mem_dest(&cinfo, &memory, &size);
        cinfo.image_width = width;
        cinfo.image_height = height;
        cinfo.input_components = 3;
        cinfo.in_color_space = JCS_YCbCr;
        jpeg_set_defaults(&cinfo);
        jpeg_set_quality(&cinfo, quality, TRUE);
        jpeg_start_compress(&cinfo, TRUE);
        Bytes row(width * 3);
        for (int y = 0; y < height; ++y) {
            const uint8_t* pixel = &frame[size_t(y) * width * 2];
            for (size_t x = 0; x < width; ++x) {
                row[3 * x] = pixel[2 * x + 1];
                row[3 * x + 1] = pixel[4 * (x / 2)];
                row[3 * x + 2] = pixel[4 * (x / 2) + 2];
            }
            JSAMPROW rows = row.data();
            jpeg_write_scanlines(&cinfo, &rows, 1);
        }
        jpeg_finish_compress(&cinfo);
        jpegs.emplace_back(memory, memory + size);
        jpeg_destroy_compress(&cinfo);
        free(memory);
    }
    return jpegs;
}

// Chroma of 4:2:0 against that of the frame it was made from, and the time it takes.
void filters(const std::vector<Bytes>& frames)
{
    const std::vector<Bytes> jpegs = halved(frames);
    for (const auto& [name, speed] :
         {std::pair{"each row twice", ZV_IC_SPEED_REALTIME}, {"smooth", ZV_IC_SPEED_NONREALTIME}}) {
        Service service(ZV_IMAGE_PACKING_CbYCrY, false, 1, jpegs, speed);
        double chroma = 0;
        size_t next = 0;
        service.run(1, [&](const uint8_t* out, int size) {
            chroma += psnr(out, frames[next++].data(), size_t(size), 0, 2) / numFrames;
        });
        std::vector<double> ms;
        for (int i = 0; i < 9; ++i)
            ms.push_back(cpuMs([&service] { service.run(1); }));
        printf("4:2:0 to CbYCrY, %-15s %.2f ms, chroma %.2f dB\n", name, median(ms), chroma);
    }
}

// The same pictures as frames and as JPEG.
struct Clip {
    std::vector<Bytes> frames;
    std::vector<Bytes> jpegs;
};

// Raw frames that another program made.
Bytes readFrame(FILE* from)
{
    Bytes frame(size_t(width) * height * 2);
    if (fread(frame.data(), 1, frame.size(), from) == frame.size())
        return frame;
    fprintf(stderr, "the file of frames holds fewer than %d\n", numFrames);
    exit(1);
}

Clip makeClip(FILE* from)
{
    Clip clip;
    BareEncoder encoder(width, height, quality, JDCT_ISLOW);
    size_t total = 0;
    for (int i = 0; i < numFrames; ++i) {
        clip.frames.push_back(from != nullptr ? readFrame(from) : makeFrame(i));
        const size_t size = encoder.encode(clip.frames.back().data());
        clip.jpegs.emplace_back(encoder.jpeg(), encoder.jpeg() + size);
        total += size;
    }
    printf("%d frames of %dx%d 4:2:2 at quality %d, %zu bytes each\n", numFrames, width, height, quality,
           total / numFrames);
    return clip;
}

void compareWithLimits(const Clip& clip, int rounds)
{
    BareEncoder encoder(width, height, quality, JDCT_ISLOW);
    BareDecoder decoder(width, height);
    Bytes out(size_t(width) * height * 4);
    const auto encode = [&] {
        for (const Bytes& frame : clip.frames)
            encoder.encode(frame.data());
    };
    const auto toCbYCrY = [&] {
        for (const Bytes& jpeg : clip.jpegs)
            decoder.toCbYCrY(jpeg.data(), jpeg.size(), out.data());
    };
    const auto toRgba = [&] {
        for (const Bytes& jpeg : clip.jpegs)
            decoder.toRgba(jpeg.data(), jpeg.size(), out.data());
    };
    Service encoding(ZV_IMAGE_PACKING_CbYCrY, true, 1, clip.frames);
    compare("encode CbYCrY", rounds, encode, encoding);
    Service decoding(ZV_IMAGE_PACKING_CbYCrY, false, 1, clip.jpegs);
    compare("decode to CbYCrY", rounds, toCbYCrY, decoding);
    Service colouring(ZV_IMAGE_PACKING_RGBA, false, 1, clip.jpegs);
    compare("decode to RGBA", rounds, toRgba, colouring);
}

}  // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? atoi(argv[1]) : 15;
    const auto asked = [argc, argv](const char* part) {
        return argc < 3 || strcmp(argv[2], "all") == 0 || strcmp(argv[2], part) == 0;
    };
    FILE* const from = argc > 3 ? fopen(argv[3], "rb") : nullptr;
    if (argc > 3 && from == nullptr) {
        perror(argv[3]);
        return 1;
    }
    const Clip clip = makeClip(from);
    if (asked("limit"))
        compareWithLimits(clip, rounds);
    if (asked("scale")) {
        scale("encode CbYCrY", rounds, ZV_IMAGE_PACKING_CbYCrY, true, clip.frames);
        scale("decode to CbYCrY", rounds, ZV_IMAGE_PACKING_CbYCrY, false, clip.jpegs);
        scale("decode to RGBA", rounds, ZV_IMAGE_PACKING_RGBA, false, clip.jpegs);
    }
    if (asked("quality")) {
        transforms(clip.frames);
        filters(clip.frames);
    }
    return 0;
}
