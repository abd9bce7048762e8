// converterRig.h - an open converter with its two pools, for one pair of formats.
#pragma once

#include <memory>

#include "platform/zvic/zvic.h"
#include "tests/support/jpegReference.h"
#include "tests/support/poolFixture.h"

struct RigFormat {
    const char* compression;
    int packing;
};
constexpr RigFormat jpegFormat = {ZV_COMPRESSION_JPEG, ZV_IMAGE_PACKING_CbYCrY};
constexpr RigFormat cbycry = {ZV_COMPRESSION_UNCOMPRESSED, ZV_IMAGE_PACKING_CbYCrY};
constexpr RigFormat packed(int packing) { return {ZV_COMPRESSION_UNCOMPRESSED, packing}; }

// A parameter list that is destroyed with its scope.
struct List {
    List() { zvParamsCreate(&p); }
    ~List() { zvParamsDestroy(p); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;
    operator ZVparams*() const { return p; }
    ZVparams* p = nullptr;
};

void describe(ZVparams* p, int width, int height, RigFormat format);

// Pools are as large as the converter asks for, plus `extra` buffers; both must
// be full when the rig goes.
class ConverterRig {
public:
    struct Options {
        int workers = 2;
        int extra = 2;
        int srcCount = 0;  // 0: what the converter asks for
        int dstCount = 0;
    };

    ConverterRig(int width, int height, RigFormat src, RigFormat dst, Options options);
    ConverterRig(int width, int height, RigFormat src, RigFormat dst);
    ~ConverterRig();

    int set(const char* key, int value);  // an enum for the speed, else an int
    int setQuality(double quality);
    int send(const Bytes& image, long long msc = 0);  // -1 also when the source pool is empty
    void awaitResult();  // fails the test after 30 s without one
    int receive(Bytes* out, long long* msc = nullptr);  // the next result, waiting for it
    Bytes convert(const Bytes& image);  // empty when it fails

    ZVimageconverter ic = nullptr;
    std::unique_ptr<PoolFixture> src;
    std::unique_ptr<PoolFixture> dst;

private:
    std::unique_ptr<PoolFixture> makePool(int (*raise)(ZVimageconverter, ZVparams*), int count, int extra);
};
