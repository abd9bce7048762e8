// paramsTest.cpp - parameter lists: order, types, ownership of what is handed out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/limits.h"
#include "platform/zv/zv.h"
#include "tests/platform/zv/poolTools.h"

namespace {

class Params : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(zvParamsCreate(&list), ZV_SUCCESS); }
    void TearDown() override { EXPECT_EQ(zvParamsDestroy(list), ZV_SUCCESS); }

    std::vector<std::string> keys() const
    {
        std::vector<std::string> all;
        for (int i = 0; i < zvParamsGetNumElems(list); ++i)
            all.push_back(zvParamsGetElem(list, i));
        return all;
    }
    ZVparams* list = nullptr;
};

TEST_F(Params, KeepsTheOrderOfFirstSettingAndReplacesInPlace)
{
    zvParamsSetInt(list, "b", 1);
    zvParamsSetString(list, "a", "one");
    zvParamsSetFloat(list, "c", 0.5);
    EXPECT_EQ(zvParamsSetEnum(list, "a", 7), ZV_SUCCESS);
    EXPECT_THAT(keys(), testing::ElementsAre("b", "a", "c"));
    EXPECT_EQ(zvParamsGetElemType(list, 1), ZV_TYPE_ENUM);
    EXPECT_EQ(zvParamsGetType(list, "a"), ZV_TYPE_ENUM);
    EXPECT_EQ(zvParamsGetEnum(list, "a"), 7);
    EXPECT_EQ(zvParamsGetString(list, "a"), nullptr);
    EXPECT_EQ(zvParamsGetInt(list, "a"), 0) << "an enum is not an int";
    EXPECT_EQ(zvParamsGetElem(list, 3), nullptr);
    EXPECT_EQ(zvParamsGetElem(list, -1), nullptr);
    EXPECT_EQ(zvParamsGetElemType(list, 3), ZV_TYPE_NONE);
    EXPECT_EQ(zvParamsGetType(list, "d"), ZV_TYPE_NONE);
}

TEST_F(Params, HoldsEveryTypeAsItsOwn)
{
    const int ints[] = {3, 1, 2};
    const double floats[] = {1.5, -2.5};
    const ZVfract fracts[] = {{30000, 1001}, {25, 1}};
    const char* texts[] = {"x", "a longer text than any small string keeps inside"};
    zvParamsSetLongLong(list, "long", -(1LL << 40));
    zvParamsSetFract(list, "fract", {30000, 1001});
    zvParamsSetIntArray(list, "ints", ints, 3);
    zvParamsSetEnumArray(list, "enums", ints, 2);
    zvParamsSetFloatArray(list, "floats", floats, 2);
    zvParamsSetFractArray(list, "fracts", fracts, 2);
    zvParamsSetStringArray(list, "texts", texts, 2);
    zvParamsSetIntRange(list, "intRange", -1, 9);
    zvParamsSetFloatRange(list, "floatRange", 0.25, 4);
    zvParamsSetFractRange(list, "fractRange", {1, 2}, {3, 4});

    EXPECT_EQ(zvParamsGetLongLong(list, "long"), -(1LL << 40));
    EXPECT_EQ(zvParamsGetFract(list, "fract").denominator, 1001);
    int n = -1;
    EXPECT_THAT(std::vector<int>(zvParamsGetIntArray(list, "ints", nullptr), zvParamsGetIntArray(list, "ints", &n) + 3),
                testing::ElementsAreArray(ints));
    EXPECT_EQ(n, 3);
    EXPECT_EQ(zvParamsGetIntArray(list, "enums", &n), nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(zvParamsGetEnumArray(list, "enums", &n)[1], 1);
    EXPECT_EQ(zvParamsGetFloatArray(list, "floats", &n)[1], -2.5);
    EXPECT_EQ(zvParamsGetFractArray(list, "fracts", &n)[0].numerator, 30000);
    EXPECT_EQ(n, 2);
    EXPECT_STREQ(zvParamsGetStringArray(list, "texts", &n)[1], texts[1]);

    int low = 5, high = 5;
    EXPECT_EQ(zvParamsGetIntRange(list, "ints", &low, &high), ZV_FAILURE);
    EXPECT_EQ(low, 5);
    EXPECT_EQ(zvParamsGetIntRange(list, "intRange", &low, &high), ZV_SUCCESS);
    EXPECT_EQ(low, -1);
    EXPECT_EQ(high, 9);
    double from = 0, to = 0;
    EXPECT_EQ(zvParamsGetFloatRange(list, "floatRange", &from, &to), ZV_SUCCESS);
    EXPECT_EQ(to, 4);
    ZVfract least = {}, most = {};
    EXPECT_EQ(zvParamsGetFractRange(list, "fractRange", &least, &most), ZV_SUCCESS);
    EXPECT_EQ(most.denominator, 4);
    EXPECT_EQ(zvParamsGetIntArray(list, "intRange", &n), nullptr) << "a range is not an array";

    const int types[] = {107, 104, 111, 110, 113, 114, 112, 121, 123, 124};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(zvParamsGetElemType(list, i), types[i]) << zvParamsGetElem(list, i);
}

TEST_F(Params, WhatAGetterReturnsStandsWhileOthersAreAdded)
{
    char text[] = "short";
    zvParamsSetString(list, "first", text);
    text[0] = 'S';
    const char* value = zvParamsGetString(list, "first");
    const char* key = zvParamsGetElem(list, 0);
    for (int i = 0; i < 500; ++i)
        zvParamsSetInt(list, ("k" + std::to_string(i)).c_str(), i);
    EXPECT_EQ(zvParamsGetString(list, "first"), value);
    EXPECT_STREQ(value, "short");
    EXPECT_STREQ(key, "first");
    EXPECT_EQ(zvParamsSetString(list, "first", value), ZV_SUCCESS) << "its own text again";
    EXPECT_STREQ(zvParamsGetString(list, "first"), "short");
}

TEST_F(Params, NestedListsAreDeepCopiesThatBelongToTheOuterList)
{
    ZVparams* inner = nullptr;
    zvParamsCreate(&inner);
    zvParamsSetInt(inner, "n", 1);
    EXPECT_EQ(zvParamsSetParams(inner, "self", inner), ZV_SUCCESS);
    EXPECT_EQ(zvParamsSetParams(list, "inner", inner), ZV_SUCCESS);
    zvParamsSetInt(inner, "n", 2);
    EXPECT_EQ(zvParamsDestroy(inner), ZV_SUCCESS);

    ZVparams* copy = zvParamsGetParams(list, "inner");
    EXPECT_EQ(zvParamsGetInt(copy, "n"), 1);
    ZVparams* deeper = zvParamsGetParams(copy, "self");
    EXPECT_EQ(zvParamsGetInt(deeper, "n"), 1);
    EXPECT_EQ(zvParamsGetNumElems(deeper), 1) << "the copy was made before the key was set";
    EXPECT_EQ(zvParamsDestroy(copy), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_STATE);
    EXPECT_EQ(zvParamsGetInt(copy, "n"), 1);

    zvParamsSetInt(list, "inner", 5);
    EXPECT_EQ(zvParamsGetNumElems(copy), 0) << "replaced, so its handle is stale";
    EXPECT_EQ(zvParamsGetInt(deeper, "n"), 0);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
}

TEST_F(Params, NestingEndsAtALimitHoweverItIsReached)
{
    zvParamsSetInt(list, "n", 1);
    int depth = 0;
    while (depth < 100 && zvParamsSetParams(list, "in", list) == ZV_SUCCESS)
        ++depth;
    EXPECT_LT(depth, 100);
    ZVparams* deepest = list;
    while (zvParamsGetParams(deepest, "in") != nullptr)
        deepest = zvParamsGetParams(deepest, "in");
    EXPECT_EQ(zvParamsSetParams(deepest, "in", list), ZV_FAILURE);
    EXPECT_EQ(zvParamsGetNumElems(deepest), 1);
}

TEST_F(Params, RefusesWhatCannotBeMeantAndChangesNothing)
{
    const char* hole[] = {"a", nullptr};
    const int one = 1;
    EXPECT_EQ(zvParamsSetInt(list, nullptr, 1), ZV_FAILURE);
    EXPECT_EQ(zvParamsSetInt(list, "", 1), ZV_FAILURE);
    EXPECT_EQ(zvParamsSetString(list, "s", nullptr), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(zvParamsSetStringArray(list, "s", hole, 2), ZV_FAILURE);
    EXPECT_EQ(zvParamsSetStringArray(list, "s", nullptr, 1), ZV_FAILURE);
    EXPECT_EQ(zvParamsSetIntArray(list, "s", &one, -1), ZV_FAILURE);
    EXPECT_EQ(zvParamsSetFloatArray(list, "s", nullptr, 1), ZV_FAILURE);
    EXPECT_EQ(zvParamsSetParams(list, "s", nullptr), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    EXPECT_EQ(zvParamsGetIntRange(list, "s", nullptr, nullptr), ZV_FAILURE);
    EXPECT_EQ(zvParamsCreate(nullptr), ZV_FAILURE);
    EXPECT_EQ(zvParamsGetInt(list, nullptr), 0);
    EXPECT_EQ(zvParamsGetNumElems(list), 0);
    EXPECT_EQ(zvParamsSetIntArray(list, "empty", nullptr, 0), ZV_SUCCESS);
    int n = 9;
    zvParamsGetIntArray(list, "empty", &n);
    EXPECT_EQ(n, 0);
}

TEST_F(Params, TheLimitStopsNewKeysOnly)
{
    const int before = std::exchange(kivLimits()->paramsElements, 2);
    zvParamsSetInt(list, "a", 1);
    zvParamsSetInt(list, "b", 2);
    EXPECT_EQ(zvParamsSetInt(list, "c", 3), ZV_FAILURE);
    char detail[ZV_ERROR_DETAIL_MAX];
    int number = 0;
    zvGetError(&number, detail);
    EXPECT_EQ(number, ZV_ERROR_LIMIT);
    EXPECT_THAT(detail, testing::HasSubstr("paramsElements"));
    EXPECT_EQ(zvParamsSetInt(list, "a", 4), ZV_SUCCESS);
    EXPECT_THAT(keys(), testing::ElementsAre("a", "b"));
    kivLimits()->paramsElements = before;
}

struct Walk {
    std::vector<std::string> seen;
    std::string stopAt;
    int result = 0;
};

int visit(const ZVparams* p, const char* key, void* arg, int* stop)
{
    Walk& walk = *static_cast<Walk*>(arg);
    walk.seen.push_back(key + std::to_string(zvParamsGetInt(p, key)));
    EXPECT_EQ(*stop, 0);
    if (walk.stopAt == key) {
        *stop = walk.result == 0;
        return walk.result;
    }
    return zvParamsSetInt(const_cast<ZVparams*>(p), key, zvParamsGetInt(p, key) + 10);
}

TEST_F(Params, ScanCallsInOrderWithoutALockAndStopsWhenTold)
{
    for (const char* key : {"c", "a", "b"})
        zvParamsSetInt(list, key, 1);
    Walk all;
    EXPECT_EQ(zvParamsScan(list, visit, &all), 0);
    EXPECT_THAT(all.seen, testing::ElementsAre("c1", "a1", "b1"));
    Walk stopped{{}, "a", 0};
    EXPECT_EQ(zvParamsScan(list, visit, &stopped), 0);
    EXPECT_THAT(stopped.seen, testing::ElementsAre("c11", "a11"));
    Walk failed{{}, "c", 42};
    EXPECT_EQ(zvParamsScan(list, visit, &failed), 42);
    EXPECT_EQ(failed.seen.size(), 1u);
    EXPECT_EQ(zvParamsScan(list, nullptr, nullptr), ZV_FAILURE);
    EXPECT_EQ(zvParamsScan(nullptr, visit, &all), ZV_FAILURE);
}

TEST_F(Params, AStaleHandleIsRefusedAlsoWhenItsSlotIsUsedAgain)
{
    ZVparams* gone = nullptr;
    zvParamsCreate(&gone);
    EXPECT_EQ(zvParamsDestroy(gone), ZV_SUCCESS);
    ZVparams* next = nullptr;
    zvParamsCreate(&next);
    zvParamsSetInt(next, "k", 3);
    ZVbuffer foreign = reinterpret_cast<ZVbuffer>(next);
    for (ZVparams* bad : {gone, static_cast<ZVparams*>(nullptr), reinterpret_cast<ZVparams*>(&lastError)}) {
        EXPECT_EQ(zvParamsSetInt(bad, "k", 1), ZV_FAILURE);
        EXPECT_EQ(zvParamsGetInt(bad, "k"), 0);
        EXPECT_EQ(zvParamsGetString(bad, "k"), nullptr);
        EXPECT_EQ(zvParamsGetNumElems(bad), 0);
        EXPECT_EQ(zvParamsGetElem(bad, 0), nullptr);
        EXPECT_EQ(zvParamsGetElemType(bad, 0), ZV_TYPE_NONE);
        EXPECT_EQ(zvParamsDestroy(bad), ZV_FAILURE);
        EXPECT_EQ(zvImageFrameSize(bad), -1);
        EXPECT_EQ(zvSetImageDefaults(bad, 1, 1, ZV_IMAGE_PACKING_RGB), ZV_FAILURE);
        EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    }
    EXPECT_EQ(zvBufferFree(foreign), ZV_FAILURE);
    EXPECT_EQ(zvParamsGetInt(next, "k"), 3);
    EXPECT_EQ(zvParamsDestroy(next), ZV_SUCCESS);
}

TEST_F(Params, TwoThreadsSetAndReadOneList)
{
    zvParamsSetInt(list, "n", 0);
    std::thread setter([this] {
        for (int i = 1; i <= 2000; ++i) {
            zvParamsSetInt(list, "n", i);
            zvParamsSetParams(list, "in", list);
            zvParamsSetInt(list, "in", 0);
        }
    });
    int last = 0;
    while (last < 2000) {
        const int n = zvParamsGetInt(list, "n");
        EXPECT_GE(n, last);
        last = n;
        EXPECT_LE(zvParamsGetInt(zvParamsGetParams(list, "in"), "n"), 2000);
    }
    setter.join();
}

TEST_F(Params, ImageDefaultsDescribeAFrame)
{
    EXPECT_EQ(zvSetImageDefaults(list, 5, 3, ZV_IMAGE_PACKING_CbYCrY), ZV_SUCCESS);
    EXPECT_THAT(keys(),
                testing::ElementsAre("ZV_IMAGE_WIDTH", "ZV_IMAGE_HEIGHT", "ZV_IMAGE_PACKING", "ZV_IMAGE_COMPRESSION",
                                     "ZV_IMAGE_ORIENTATION", "ZV_IMAGE_LAYOUT"));
    EXPECT_EQ(zvParamsGetEnum(list, ZV_IMAGE_ORIENTATION), 1100);
    EXPECT_EQ(zvParamsGetEnum(list, ZV_IMAGE_LAYOUT), 1);
    EXPECT_STREQ(zvParamsGetString(list, ZV_IMAGE_COMPRESSION), "Uncompressed Video");
    zvParamsSetString(list, ZV_IMAGE_COMPRESSION, ZV_COMPRESSION_JPEG);
    EXPECT_EQ(zvImageFrameSize(list), 30);

    const struct {
        int packing, bytes;
    } frames[] = {{1000, 45}, {1002, 60}, {1005, 15}, {1006, 45}, {1009, 36}, {1010, 15}, {1011, 30},
                  {1090, 60}, {1092, 30}, {2000, 45}, {2001, 60}, {2002, 60}, {2005, 30}};
    for (const auto& frame : frames) {
        EXPECT_EQ(zvSetImageDefaults(list, 5, 3, frame.packing), ZV_SUCCESS);
        EXPECT_EQ(zvImageFrameSize(list), frame.bytes) << frame.packing;
    }
    EXPECT_EQ(zvSetImageDefaults(list, 5, 3, 1234), ZV_FAILURE);
    EXPECT_EQ(zvSetImageDefaults(list, -1, 3, 2000), ZV_FAILURE);
    EXPECT_EQ(zvSetImageDefaults(list, 16385, 3, 2000), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
    EXPECT_EQ(zvImageFrameSize(list), 30) << "a refused call changes nothing";
}

TEST_F(Params, AFrameThatDoesNotFitAnIntHasNoSize)
{
    zvParamsSetInt(list, ZV_IMAGE_WIDTH, 46341);
    EXPECT_EQ(zvImageFrameSize(list), -1);
    zvParamsSetInt(list, ZV_IMAGE_HEIGHT, 46341);
    EXPECT_EQ(zvImageFrameSize(list), -1);
    zvParamsSetEnum(list, ZV_IMAGE_PACKING, ZV_IMAGE_PACKING_LUMINANCE);
    EXPECT_EQ(zvImageFrameSize(list), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
    zvParamsSetInt(list, ZV_IMAGE_HEIGHT, 46340);
    EXPECT_EQ(zvImageFrameSize(list), 2147441940);
    zvParamsSetInt(list, ZV_IMAGE_WIDTH, 1 << 30);
    zvParamsSetInt(list, ZV_IMAGE_HEIGHT, 1 << 30);
    zvParamsSetEnum(list, ZV_IMAGE_PACKING, ZV_IMAGE_PACKING_RGBA);
    EXPECT_EQ(zvImageFrameSize(list), -1);
    zvParamsSetInt(list, ZV_IMAGE_HEIGHT, 0);
    EXPECT_EQ(zvImageFrameSize(list), 0);
    zvParamsSetInt(list, ZV_IMAGE_HEIGHT, -1);
    EXPECT_EQ(zvImageFrameSize(list), -1);
}

TEST_F(Params, PoolParamsGrowToWhatGlNeeds)
{
    ZVparams* pool = nullptr;
    zvParamsCreate(&pool);
    zvSetImageDefaults(list, 10, 10, ZV_IMAGE_PACKING_RGBA);
    EXPECT_EQ(zvBufferGetGLPoolParams(list, pool), ZV_SUCCESS);
    EXPECT_EQ(zvParamsGetInt(pool, ZV_BUFFER_COUNT), 1);
    EXPECT_EQ(zvParamsGetInt(pool, ZV_BUFFER_SIZE), 400);
    EXPECT_EQ(zvBufferSetPoolDefaults(pool, 3, 1000, 1, 0), ZV_SUCCESS);
    EXPECT_EQ(zvBufferGetGLPoolParams(list, pool), ZV_SUCCESS);
    EXPECT_EQ(zvParamsGetInt(pool, ZV_BUFFER_COUNT), 3);
    EXPECT_EQ(zvParamsGetInt(pool, ZV_BUFFER_SIZE), 1000);
    EXPECT_EQ(zvBufferSetPoolDefaults(pool, -1, 1000, 1, 0), ZV_FAILURE);
    EXPECT_EQ(zvBufferSetPoolDefaults(pool, 1, -1, 1, 0), ZV_FAILURE);
    EXPECT_EQ(zvBufferGetGLPoolParams(pool, list), ZV_FAILURE);
    EXPECT_EQ(zvParamsGetInt(pool, ZV_BUFFER_COUNT), 3);
    EXPECT_EQ(zvBufferSetPoolDefaults(pool, 0, 0, 0, 0), ZV_SUCCESS);
    zvParamsDestroy(pool);
}

}  // namespace
