// converterRig.cpp - see converterRig.h.
#include "tests/platform/zvic/converterRig.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>

void describe(ZVparams* p, int width, int height, RigFormat format)
{
    zvSetImageDefaults(p, width, height, format.packing);
    zvParamsSetString(p, ZV_IMAGE_COMPRESSION, format.compression);
}

ConverterRig::ConverterRig(int width, int height, RigFormat srcFormat, RigFormat dstFormat)
    : ConverterRig(width, height, srcFormat, dstFormat, Options())
{
}

ConverterRig::ConverterRig(int width, int height, RigFormat srcFormat, RigFormat dstFormat, Options options)
{
    List from, to;
    describe(from, width, height, srcFormat);
    describe(to, width, height, dstFormat);
    EXPECT_EQ(zvICCreate(zvICChooseConverter(from, to, nullptr), &ic), 0) << zvGetError(nullptr, nullptr);
    EXPECT_EQ(zvICSetSrcParams(ic, from), 0);
    EXPECT_EQ(zvICSetDstParams(ic, to), 0);
    EXPECT_EQ(set(ZV_IC_WORKERS, options.workers), 0);
    src = makePool(zvICGetSrcPoolParams, options.srcCount, options.extra);
    dst = makePool(zvICGetDstPoolParams, options.dstCount, options.extra);
    EXPECT_EQ(zvICSetDstPool(ic, dst->pool), 0);
}

ConverterRig::~ConverterRig() { EXPECT_EQ(zvICDestroy(ic), 0); }

std::unique_ptr<PoolFixture> ConverterRig::makePool(int (*raise)(ZVimageconverter, ZVparams*), int count, int extra)
{
    List list;
    EXPECT_EQ(raise(ic, list), 0);
    if (count == 0)
        count = zvParamsGetInt(list, ZV_BUFFER_COUNT) + extra;
    return std::make_unique<PoolFixture>(count, zvParamsGetInt(list, ZV_BUFFER_SIZE));
}

int ConverterRig::set(const char* key, int value)
{
    List list;
    zvParamsSetInt(list, key, value);
    if (strcmp(key, ZV_IC_SPEED) == 0)
        zvParamsSetEnum(list, key, value);
    return zvICSetConvParams(ic, list);
}

int ConverterRig::setQuality(double quality)
{
    List list;
    zvParamsSetFloat(list, ZV_IMAGE_QUALITY_SPATIAL, quality);
    return zvICSetConvParams(ic, list);
}

int ConverterRig::send(const Bytes& image, long long msc)
{
    ZVbuffer buffer = nullptr;
    if (zvBufferAllocate(src->pool, &buffer) != 0)
        return -1;
    EXPECT_EQ(zvBufferSetSize(buffer, int(image.size())), 0);
    if (!image.empty())
        memcpy(zvBufferMapData(buffer), image.data(), image.size());
    zvBufferSetUSTMSCpair(buffer, {msc * 1000, msc});
    const int result = zvICSend(ic, buffer, 0, nullptr);
    zvBufferFree(buffer);
    return result;
}

void ConverterRig::awaitResult()
{
    pollfd ready = {zvICGetDstQueueFD(ic), POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 30000), 1) << "no result";
}

int ConverterRig::receive(Bytes* out, long long* msc)
{
    awaitResult();
    ZVbuffer buffer = nullptr;
    out->clear();
    if (zvICReceive(ic, &buffer) != 0) {
        EXPECT_EQ(buffer, nullptr);
        return -1;
    }
    const uint8_t* data = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    out->assign(data, data + zvBufferGetSize(buffer));
    const USTMSCpair stamp = zvBufferGetUSTMSCpair(buffer);
    EXPECT_EQ(stamp.ust, stamp.msc * 1000);
    if (msc != nullptr)
        *msc = stamp.msc;
    return zvBufferFree(buffer);
}

Bytes ConverterRig::convert(const Bytes& image)
{
    Bytes out;
    EXPECT_EQ(send(image), 0);
    receive(&out);
    return out;
}
