// kivICTest.cpp - the converter node's ids, calls and printed blocks.
//
// Each service function fails in turn: the table says at which call, with which id.
#include <gmock/gmock.h>

#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"
#include "tests/core/slots.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"
#include "tests/support/replace.h"

using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

bool createStoresNothing = false;
std::vector<double> qualities;  // as the service was told
int numQueueFD = 0;

}  // namespace

// clang-format off
int zvParamsCreate(ZVparams** p) { return replaced("zvParamsCreate", zvParamsCreate, p); }
int zvParamsDestroy(ZVparams* p) { return replaced("zvParamsDestroy", zvParamsDestroy, p); }
int zvParamsSetInt(ZVparams* p, const char* k, int v) { return replaced("zvParamsSetInt", zvParamsSetInt, p, k, v); }
int zvParamsSetEnum(ZVparams* p, const char* k, int v) { return replaced("zvParamsSetEnum", zvParamsSetEnum, p, k, v); }
int zvParamsSetString(ZVparams* p, const char* k, const char* v) { return replaced("zvParamsSetString", zvParamsSetString, p, k, v); }
int zvParamsSetFloat(ZVparams* p, const char* k, double v) { return replaced("zvParamsSetFloat", zvParamsSetFloat, p, k, v); }
int zvSetImageDefaults(ZVparams* p, int w, int h, int k) { return replaced("zvSetImageDefaults", zvSetImageDefaults, p, w, h, k); }
int zvImageFrameSize(const ZVparams* p) { return replaced("zvImageFrameSize", zvImageFrameSize, p); }
int zvBufferSetPoolDefaults(ZVparams* p, int n, int s, int c, int m) { return replaced("zvBufferSetPoolDefaults", zvBufferSetPoolDefaults, p, n, s, c, m); }
int zvBufferCreatePool(const ZVparams* p, ZVbufferpool* pool) { return replaced("zvBufferCreatePool", zvBufferCreatePool, p, pool); }
int zvBufferFree(ZVbuffer b) { return replaced("zvBufferFree", zvBufferFree, b); }
int zvICChooseConverter(const ZVparams* s, const ZVparams* d, const ZVparams* c) { return replaced("zvICChooseConverter", zvICChooseConverter, s, d, c); }
int zvICSetSrcParams(ZVimageconverter ic, const ZVparams* p) { return replaced("zvICSetSrcParams", zvICSetSrcParams, ic, p); }
int zvICSetDstParams(ZVimageconverter ic, const ZVparams* p) { return replaced("zvICSetDstParams", zvICSetDstParams, ic, p); }
int zvICGetSrcPoolParams(ZVimageconverter ic, ZVparams* p) { return replaced("zvICGetSrcPoolParams", zvICGetSrcPoolParams, ic, p); }
int zvICGetDstPoolParams(ZVimageconverter ic, ZVparams* p) { return replaced("zvICGetDstPoolParams", zvICGetDstPoolParams, ic, p); }
int zvICSetDstPool(ZVimageconverter ic, ZVbufferpool p) { return replaced("zvICSetDstPool", zvICSetDstPool, ic, p); }
int zvICSend(ZVimageconverter ic, ZVbuffer b, int n, void* d) { return replaced("zvICSend", zvICSend, ic, b, n, d); }
int zvICReceive(ZVimageconverter ic, ZVbuffer* b) { return replaced("zvICReceive", zvICReceive, ic, b); }
int zvICGetStats(ZVimageconverter ic, ZVicStats* s) { return replaced("zvICGetStats", zvICGetStats, ic, s); }
int zvICDestroy(ZVimageconverter ic) { return replaced("zvICDestroy", zvICDestroy, ic); }
int zvICGetDstQueueFD(ZVimageconverter ic) { return ++numQueueFD, replaced("zvICGetDstQueueFD", zvICGetDstQueueFD, ic); }
// clang-format on

int zvICCreate(int id, ZVimageconverter* ic)
{
    if (createStoresNothing)
        return ZV_SUCCESS;
    return replaced("zvICCreate", zvICCreate, id, ic);
}

int zvICSetConvParams(ZVimageconverter ic, const ZVparams* p)
{
    if (zvParamsGetType(p, ZV_IMAGE_QUALITY_SPATIAL) == ZV_TYPE_FLOAT) {
        qualities.push_back(zvParamsGetFloat(p, ZV_IMAGE_QUALITY_SPATIAL));
        EXPECT_EQ(zvParamsGetNumElems(p), 1);
    }
    return replaced("zvICSetConvParams", zvICSetConvParams, ic, p);
}

const char* zvGetError(int* number, char* detail)
{
    *number = 42;
    snprintf(detail, ZV_ERROR_DETAIL_MAX, "the detail");
    return "the description";
}

namespace {

constexpr int width = 32, height = 16;

// The six lines for one id.
std::string block(int id, const char* file = "kivIC", int error = EIO)
{
    const std::string errorText = std::to_string(error);
    return "kivIC error:" + std::to_string(id) + " \\(line:[0-9]+ file:" + file + "\\) errno:" + errorText
        + "\nError description:the description\n   kiv errorNum:42\n   detail:the detail\n   object:conv\n   errno:"
        + errorText + "\n";
}

// Runs `code`, which is to return `id`, at each setting of the node's flag.
template <class Node, class Code> void expectFailure(Node& node, int id, const std::string& expectedBlocks, Code code)
{
    node.setName("conv");
    const std::string failing = Replacements::instance().failing;
    const int skip = Replacements::instance().skip;
    for (const int flag : {0, 2, 1}) {
        Replacements::fail(failing.c_str(), skip);
        node.setPrintReturnErr(flag);
        errno = 0;
        const Printed printed = capture([&] { EXPECT_EQ(code(), id) << failing << " " << skip; });
        if (flag == 1)
            EXPECT_THAT(printed.err, MatchesRegex(expectedBlocks)) << failing;
        else
            EXPECT_EQ(printed.err, "") << failing;
    }
    Replacements::reset();
}

class kivICTest : public testing::Test {
protected:
    kivICTest() { setTrace(0); }
    ~kivICTest() override
    {
        Replacements::reset();
        createStoresNothing = false;
        setTrace(1);
    }
};

struct Failure {
    const char* function;
    int skip;  // calls of it that succeed first
    int id;
};

TEST_F(kivICTest, SetsUpInOrder)
{
    kivICjdecoder node(width, height);
    Replacements::record();
    EXPECT_EQ(node.setup(), 0);
    EXPECT_THAT(Replacements::instance().calls,
                ElementsAre("zvParamsCreate", "zvParamsCreate", "zvParamsCreate", "zvSetImageDefaults",
                            "zvParamsSetString", "zvParamsSetEnum", "zvSetImageDefaults", "zvParamsSetString",
                            "zvParamsSetEnum", "zvParamsSetEnum", "zvICChooseConverter", "zvICCreate",
                            "zvImageFrameSize", "zvICSetSrcParams", "zvICSetDstParams", "zvICSetConvParams",
                            "zvParamsDestroy", "zvParamsDestroy", "zvParamsDestroy"));
    EXPECT_EQ(node.bufferSize, width * height * 2);
}

TEST_F(kivICTest, NamesEachFailureOfSetup)
{
    for (const Failure& f :
         {Failure{"zvParamsCreate", 0, 5}, Failure{"zvParamsCreate", 1, 5}, Failure{"zvParamsCreate", 2, 5},
          Failure{"zvSetImageDefaults", 0, 2013}, Failure{"zvSetImageDefaults", 1, 2013},
          Failure{"zvParamsSetString", 0, 2015}, Failure{"zvParamsSetString", 1, 2015},
          Failure{"zvParamsSetEnum", 0, 2016}, Failure{"zvParamsSetEnum", 1, 2016}, Failure{"zvParamsSetEnum", 2, 2016},
          Failure{"zvICChooseConverter", 0, 2009}, Failure{"zvICCreate", 0, 2008}, Failure{"zvICSetSrcParams", 0, 2001},
          Failure{"zvICSetDstParams", 0, 2002}, Failure{"zvICSetConvParams", 0, 2003}}) {
        const bool opened = f.id >= 2001 && f.id <= 2003;
        for (const int flag : {0, 1}) {
            kivICjdecoder node(width, height);  // a fresh one each time: setup runs once in a life
            node.setName("conv");
            node.setPrintReturnErr(flag);
            Replacements::fail(f.function, f.skip);
            const Printed printed = capture([&] { EXPECT_EQ(node.setup(), f.id) << f.function << " " << f.skip; });
            EXPECT_THAT(printed.err, MatchesRegex(flag == 1 ? block(f.id) : "")) << f.function;
            EXPECT_EQ(node.imgConvCtx != nullptr, opened) << f.function;
            EXPECT_THAT(Replacements::instance().calls, testing::Not(testing::Contains("zvParamsDestroy")));
        }
    }
}

TEST_F(kivICTest, RefusesAConverterThatIsNone)
{
    createStoresNothing = true;
    kivICjdecoder node(width, height);
    EXPECT_EQ(node.setup(), 2000);
}

TEST_F(kivICTest, AnswersWithoutAConverter)
{
    PoolFixture pool(1);
    ZVbuffer buffer = pool.take();
    kivICjencoder node(width, height);
    fd_set set;
    FD_ZERO(&set);
    ZVicStats stats;
    EXPECT_EQ(node.receive(nullptr), 8);
    EXPECT_EQ(node.receive(buffer), 0);
    node.start(0);
    Replacements::instance().failing = "";
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.receive(buffer); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.handleEvents(set); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.init(nullptr); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.getFD(); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.addSrcConstraints(nullptr); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.addDstConstraints(nullptr); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.setQueueMax(1); });
    expectFailure(node, 2000, block(2000, "kivIC", 0), [&] { return node.getStats(&stats); });
    expectFailure(node, 2000, block(2000, "kivICjencoder", 0), [&] { return node.setQuality(50); });
    EXPECT_FLOAT_EQ(node.quality, 0.75f);
}

TEST_F(kivICTest, NamesEachFailureOfInit)
{
    for (const Failure& f : {Failure{"zvParamsCreate", 0, 5}, Failure{"zvBufferSetPoolDefaults", 0, 6},
                             Failure{"zvICGetDstPoolParams", 0, 4}, Failure{"zvBufferCreatePool", 0, 7},
                             Failure{"zvICSetDstPool", 0, 2012}}) {
        kivICjencoder node(width, height);
        ASSERT_EQ(node.setup(), 0);
        Replacements::fail(f.function);
        expectFailure(node, f.id, (f.id == 4 ? block(2011) : "") + block(f.id), [&] { return node.init(nullptr); });
        EXPECT_FALSE(node.isInitialized());
    }
}

TEST_F(kivICTest, NamesTheFailuresOfConstraintsAndSettings)
{
    kivICjencoder node(width, height);
    ASSERT_EQ(node.setup(), 0);
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    ZVicStats stats = {};
    const auto check = [&](const char* function, int id, const std::string& blocks, auto code) {
        Replacements::fail(function);
        expectFailure(node, id, blocks, code);
    };
    check("", 8, block(8, "kivIC", 0), [&] { return node.addSrcConstraints(nullptr); });
    check("", 8, block(8, "kivIC", 0), [&] { return node.addDstConstraints(nullptr); });
    check("zvICGetSrcPoolParams", 2010, block(2010), [&] { return node.addSrcConstraints(params); });
    check("zvICGetDstPoolParams", 2011, block(2011), [&] { return node.addDstConstraints(params); });
    check("zvParamsCreate", 5, block(5), [&] { return node.setQueueMax(1); });
    check("zvParamsSetInt", 2015, block(2015), [&] { return node.setQueueMax(1); });
    check("zvICSetConvParams", 2007, block(2007), [&] { return node.setQueueMax(1); });
    check("", 8, block(8, "kivIC", 0), [&] { return node.setQueueMax(-1); });
    check("", 8, block(8, "kivIC", 0), [&] { return node.getStats(nullptr); });
    check("zvICGetStats", 1, block(1), [&] { return node.getStats(&stats); });
    check("", 2004, block(2004, "kivICjencoder", 0), [&] { return node.setQuality(101); });
    check("", 2004, block(2004, "kivICjencoder", 0), [&] { return node.setQuality(-1); });
    EXPECT_FLOAT_EQ(node.quality, 0.75f);
    check("zvParamsCreate", 5, block(5, "kivICjencoder"), [&] { return node.setQuality(10); });
    check("zvParamsSetFloat", 2015, block(2015, "kivICjencoder"), [&] { return node.setQuality(20); });
    check("zvICSetConvParams", 2007, block(2007, "kivICjencoder"), [&] { return node.setQuality(30); });
    EXPECT_FLOAT_EQ(node.quality, 0.3f) << "the member changes before the service is told";
    EXPECT_EQ(node.addSrcConstraints(params), 0);
    EXPECT_EQ(node.addDstConstraints(params), 0);
    EXPECT_GE(zvParamsGetInt(params, ZV_BUFFER_SIZE), width * height * 2);
    zvParamsDestroy(params);
}

TEST_F(kivICTest, NamesTheFailuresOfReceiveAndHandleEvents)
{
    PoolFixture pool(1, width * height * 2);
    ZVbuffer buffer = pool.take();
    kivICjencoder node(width, height);
    ASSERT_EQ(node.setup(), 0);
    ASSERT_EQ(node.init(nullptr), 0);
    node.start(0);
    Replacements::fail("zvICSend");
    expectFailure(node, 2005, block(2005), [&] { return node.receive(buffer); });
    EXPECT_EQ(node.receive(buffer), 0);

    fd_set ready, none;
    FD_ZERO(&none);
    node.setPrintReturnErr(1);
    EXPECT_EQ(capture([&] { EXPECT_EQ(node.handleEvents(none), 9); }).err, "");
    numQueueFD = 0;
    const int fd = node.getFD();
    EXPECT_EQ(node.getFD(), fd);
    EXPECT_EQ(numQueueFD, 1) << "asked for once and kept";
    FD_ZERO(&ready);
    kivFdAdd(fd, &ready);
    fd_set wait = ready;
    ASSERT_EQ(select(fd + 1, &wait, nullptr, nullptr, nullptr), 1);

    node.stop();
    EXPECT_EQ(capture([&] { EXPECT_EQ(node.handleEvents(ready), 9); }).err, "");
    node.start(0);
    Replacements::fail("zvICReceive");
    expectFailure(node, 2006, block(2006), [&] { return node.handleEvents(ready); });
    Replacements::fail("zvBufferFree");
    const Printed printed = capture([&] { EXPECT_EQ(node.handleEvents(ready), 2017); });
    EXPECT_THAT(printed.err, MatchesRegex(block(2017)));
    Replacements::reset();
    EXPECT_EQ(poolReferences(node.bufferPool), 1) << "the failed free has not freed it";
}

TEST_F(kivICTest, PrintsThePoolListAsProgress)
{
    kivICjencoder on(width, height), off(width, height);
    on.setName("loud");
    for (kivIC* node : {static_cast<kivIC*>(&on), static_cast<kivIC*>(&off)})
        ASSERT_EQ(node->setup(), 0);
    EXPECT_EQ(capture([&] { EXPECT_EQ(off.init(nullptr), 0); }).err, "");
    setTrace(1);
    const Printed printed = capture([&] { EXPECT_EQ(on.init(nullptr), 0); });
    EXPECT_THAT(printed.err,
                MatchesRegex("loud::init: pool creation params\nContents of Parameter/Value List:\n"
                             "[0-9]+\t\\(int\\)\tZV_BUFFER_COUNT\n(.*\n)+-{32}\n"));
}

TEST_F(kivICTest, TellsTheServiceTheQualityAsAFraction)
{
    qualities.clear();
    kivICjencoder node(width, height);
    ASSERT_EQ(node.setup(), 0);
    EXPECT_THAT(qualities, ElementsAre(0.75));
    EXPECT_EQ(node.setQuality(100), 0);
    EXPECT_EQ(node.quality, 1.0f);
    EXPECT_EQ(node.setQuality(0), 0);
    EXPECT_EQ(node.quality, 0.0f);
    EXPECT_EQ(node.setQuality(33), 0);
    EXPECT_THAT(qualities, ElementsAre(0.75, 1.0, 0.0, double(0.33f)));

    struct Case {
        float quality;
        int setup;
        float after;
    };
    for (const Case& c : {Case{0.999f, 0, 0.99f}, Case{0.29f, 0, 0.29f}, Case{-0.004f, 0, 0.0f}, Case{1.02f, 1, 1.02f},
                          Case{1e30f, 1, 1e30f}}) {
        kivICjencoder encoder(width, height);
        encoder.quality = c.quality;
        EXPECT_EQ(encoder.setup(), c.setup) << c.quality;
        EXPECT_EQ(encoder.quality, c.after) << c.quality;
    }
}

TEST_F(kivICTest, ReportsAnEncodersSetupAsOne)
{
    kivICjencoder node(width, height);
    node.dstCompression = "no such thing";
    node.setName("conv");
    node.setPrintReturnErr(1);
    Replacements::fail("zvICChooseConverter");
    const Printed printed = capture([&] { EXPECT_EQ(node.setup(), 1); });
    EXPECT_THAT(printed.err, MatchesRegex(block(2009) + block(1, "kivICjencoder")));
    EXPECT_EQ(node.imgConvCtx, nullptr);
}

TEST_F(kivICTest, HasItsPresetsAndSlots)
{
    kivICjdecoder decoder(3, 4);
    kivICjencoder encoder;
    kivIC plain;
    EXPECT_EQ(decoder.imageSizeX, 3);
    EXPECT_EQ(decoder.imageSizeY, 4);
    EXPECT_EQ(decoder.direction, ZV_IC_CODE_DIRECTION_DECODE);
    EXPECT_STREQ(decoder.srcCompression, "JPEG");
    EXPECT_STREQ(decoder.dstCompression, "Uncompressed Video");
    EXPECT_EQ(encoder.direction, ZV_IC_CODE_DIRECTION_ENCODE);
    EXPECT_STREQ(encoder.srcCompression, "Uncompressed Video");
    EXPECT_STREQ(encoder.dstCompression, "JPEG");
    EXPECT_EQ(plain.direction, ZV_IC_CODE_DIRECTION_UNDEFINED);
    EXPECT_EQ(plain.speed, ZV_IC_SPEED_REALTIME);
    EXPECT_EQ(plain.srcPacking, 1008);
    EXPECT_EQ(plain.dstPacking, 1008);
    EXPECT_EQ(plain.fd, -1);
    EXPECT_EQ(plain.bufferSize, 0);
    EXPECT_EQ(slotOf(&kivIC::setup), 16);
    EXPECT_EQ(slotOf(&kivICjencoder::setup), 16);
    plain.imageSizeX = width, plain.imageSizeY = height, plain.dstPacking = ZV_IMAGE_PACKING_RGB;
    plain.bufferSize = 123;
    EXPECT_EQ(plain.setup(), 0);
    EXPECT_EQ(plain.bufferSize, 123) << "no direction: left as it was";
}

}  // namespace
