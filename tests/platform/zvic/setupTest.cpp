// setupTest.cpp - choosing, handles, pool requirements, and what is refused.
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include "platform/limits.h"
#include "tests/platform/zvic/converterRig.h"

namespace {

int choose(int width, int height, RigFormat from, RigFormat to)
{
    List src, dst;
    describe(src, width, height, from);
    describe(dst, width, height, to);
    return zvICChooseConverter(src, dst, nullptr);
}

int lastError()
{
    int number = 0;
    zvGetError(&number, nullptr);
    return number;
}

TEST(zvicSetup, OnlyWhatCanBeConvertedIsChosen)
{
    EXPECT_GE(choose(64, 48, cbycry, jpegFormat), 0);
    EXPECT_GE(choose(64, 48, jpegFormat, packed(ZV_IMAGE_PACKING_LUMINANCE)), 0);
    EXPECT_GE(choose(64, 48, cbycry, packed(ZV_IMAGE_PACKING_RGB)), 0);
    EXPECT_GE(choose(16384, 16384, cbycry, jpegFormat), 0);

    EXPECT_LT(choose(0, 48, cbycry, jpegFormat), 0);
    EXPECT_LT(choose(64, 0, cbycry, jpegFormat), 0);
    EXPECT_LT(choose(64, 48, jpegFormat, jpegFormat), 0);
    EXPECT_LT(choose(64, 48, {"MPEG", ZV_IMAGE_PACKING_CbYCrY}, cbycry), 0);
    EXPECT_LT(choose(64, 48, cbycry, packed(ZV_IMAGE_PACKING_RGB332)), 0);
    EXPECT_LT(choose(64, 48, packed(ZV_IMAGE_PACKING_CbYCrYYY), jpegFormat), 0);
    EXPECT_EQ(lastError(), ZV_ERROR_UNSUPPORTED);

    List small, large, unknown;
    describe(small, 64, 48, cbycry);
    describe(large, 64, 50, jpegFormat);
    describe(unknown, 64, 48, cbycry);
    zvParamsSetEnum(unknown, ZV_IMAGE_PACKING, 4711);
    EXPECT_LT(zvICChooseConverter(small, large, nullptr), 0);
    EXPECT_LT(zvICChooseConverter(unknown, small, nullptr), 0);
    zvParamsSetInt(small, ZV_IMAGE_WIDTH, 16385);
    zvParamsSetInt(large, ZV_IMAGE_WIDTH, 16385);
    EXPECT_LT(zvICChooseConverter(small, large, nullptr), 0);
    EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
    EXPECT_LT(zvICChooseConverter(nullptr, large, nullptr), 0);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
}

TEST(zvicSetup, PoolParamsAreRaisedAndAddedTo)
{
    List image, jpeg, workers;
    describe(image, 128, 100, cbycry);
    describe(jpeg, 128, 100, jpegFormat);
    ZVimageconverter ic = nullptr;
    ASSERT_EQ(zvICCreate(zvICChooseConverter(image, jpeg, nullptr), &ic), 0);
    List empty, full;
    EXPECT_EQ(zvICGetDstPoolParams(ic, empty), -1) << "no image is set";
    EXPECT_EQ(lastError(), ZV_ERROR_STATE);
    ASSERT_EQ(zvICSetSrcParams(ic, image), 0);
    ASSERT_EQ(zvICSetDstParams(ic, jpeg), 0);
    zvParamsSetInt(workers, ZV_IC_WORKERS, 3);
    ASSERT_EQ(zvICSetConvParams(ic, workers), 0);

    ASSERT_EQ(zvICGetSrcPoolParams(ic, empty), 0);
    EXPECT_EQ(zvParamsGetInt(empty, ZV_BUFFER_COUNT), 4);
    EXPECT_EQ(zvParamsGetInt(empty, ZV_BUFFER_SIZE), 128 * 100 * 2);
    zvBufferSetPoolDefaults(full, 5, 30000000, 0, 0);
    ASSERT_EQ(zvICGetDstPoolParams(ic, full), 0);
    EXPECT_EQ(zvParamsGetInt(full, ZV_BUFFER_COUNT), 9);
    EXPECT_EQ(zvParamsGetInt(full, ZV_BUFFER_SIZE), 30000000);
    zvParamsSetInt(full, ZV_BUFFER_COUNT, INT_MAX);
    zvParamsSetInt(full, ZV_BUFFER_SIZE, 0);
    ASSERT_EQ(zvICGetDstPoolParams(ic, full), 0);
    EXPECT_EQ(zvParamsGetInt(full, ZV_BUFFER_COUNT), INT_MAX);
    EXPECT_GT(zvParamsGetInt(full, ZV_BUFFER_SIZE), 128 * 100 * 2);
    EXPECT_EQ(zvICDestroy(ic), 0);
}

TEST(zvicSetup, NothingWorksBeforeItIsSetUp)
{
    PoolFixture pool(2, 64 * 48 * 2);
    List image, jpeg, other;
    describe(image, 64, 48, cbycry);
    describe(jpeg, 64, 48, jpegFormat);
    describe(other, 64, 48, packed(ZV_IMAGE_PACKING_RGB332));
    ZVimageconverter ic = nullptr;
    ASSERT_EQ(zvICCreate(zvICChooseConverter(image, jpeg, nullptr), &ic), 0);
    ZVbuffer buffer = pool.take();
    ZVbuffer out = buffer;
    EXPECT_EQ(zvICSend(ic, buffer, 0, nullptr), -1);
    EXPECT_EQ(zvICSetSrcParams(ic, image), 0);
    EXPECT_EQ(zvICSetDstParams(ic, other), -1) << "another pair of formats than the one chosen";
    EXPECT_EQ(zvICSetDstParams(ic, jpeg), 0);
    EXPECT_EQ(zvICSend(ic, buffer, 0, nullptr), -1) << "no pool";
    EXPECT_EQ(lastError(), ZV_ERROR_STATE);
    EXPECT_EQ(zvICReceive(ic, &out), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(lastError(), ZV_ERROR_EMPTY);
    EXPECT_EQ(zvICSetDstPool(ic, nullptr), -1);
    EXPECT_EQ(zvICSetDstPool(ic, pool.pool), 0);
    EXPECT_EQ(zvICSend(ic, nullptr, 0, nullptr), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    EXPECT_EQ(zvICSend(ic, buffer, 0, nullptr), 0);
    EXPECT_EQ(zvICSetDstParams(ic, jpeg), -1) << "it runs";
    EXPECT_EQ(zvICDestroy(ic), 0);
}

TEST(zvicSetup, DeadHandlesFailEveryCall)
{
    List list;
    PoolFixture pool(1);
    ZVbuffer buffer = pool.take();
    ZVbuffer out = nullptr;
    ZVicStats stats = {};
    ZVimageconverter dead = nullptr;
    EXPECT_EQ(zvICCreate(-1, &dead), -1);
    EXPECT_EQ(zvICCreate(99, &dead), -1);
    ASSERT_EQ(zvICCreate(0, &dead), 0);
    ASSERT_EQ(zvICDestroy(dead), 0);
    for (ZVimageconverter ic : {ZVimageconverter(nullptr), dead, ZVimageconverter(pool.pool)}) {
        EXPECT_EQ(zvICDestroy(ic), -1);
        EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
        EXPECT_EQ(zvICSetSrcParams(ic, list), -1);
        EXPECT_EQ(zvICSetConvParams(ic, list), -1);
        EXPECT_EQ(zvICGetSrcPoolParams(ic, list), -1);
        EXPECT_EQ(zvICSetDstPool(ic, pool.pool), -1);
        EXPECT_EQ(zvICGetDstQueueFD(ic), -1);
        EXPECT_EQ(zvICSend(ic, buffer, 0, nullptr), -1);
        EXPECT_EQ(zvICReceive(ic, &out), -1);
        EXPECT_EQ(zvICGetSrcQueueFilled(ic), -1);
        EXPECT_EQ(zvICGetStats(ic, &stats), -1);
    }
    ZVimageconverter ic = nullptr;
    ASSERT_EQ(zvICCreate(0, &ic), 0);
    EXPECT_EQ(zvICSetConvParams(ic, nullptr), -1);
    EXPECT_EQ(zvICDestroy(ic), 0);
}

int entries(const char* directory)
{
    int n = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory))
        ++n;
    return n;
}

TEST(zvicSetup, AThousandConvertersLeaveNoDescriptorAndNoThread)
{
    const Bytes picture(16 * 16 * 2, 99);
    const auto cycle = [&picture](int i) {
        ConverterRig rig(16, 16, cbycry, jpegFormat, {.workers = 1 + i % 3});
        ASSERT_EQ(rig.send(picture), 0);
        if (i % 2 == 0)
            rig.awaitResult();
    };
    cycle(0);
    const int descriptors = entries("/proc/self/fd");
    const int threads = entries("/proc/self/task");
    for (int i = 0; i < 1000; ++i)
        cycle(i);
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
    EXPECT_EQ(entries("/proc/self/task"), threads);
}

TEST(zvicSetup, WorkersAreBoundedByTheLimit)
{
    const int before = kivLimits()->converterWorkers;
    kivLimits()->converterWorkers = 2;
    ConverterRig rig(16, 16, cbycry, jpegFormat, {.workers = 1000});
    EXPECT_EQ(rig.dst != nullptr, true);
    const int threads = entries("/proc/self/task");
    EXPECT_EQ(rig.send(Bytes(16 * 16 * 2)), 0);
    EXPECT_LE(entries("/proc/self/task"), threads + 2);
    rig.awaitResult();
    kivLimits()->converterWorkers = before;
}

}  // namespace
