// kivUtilParamsTest.cpp - the list printers, byte for byte and stream by stream.
#include <gtest/gtest.h>

#include "core/kivUtil.h"
#include "tests/support/capture.h"

namespace {

const std::string header = "Contents of Parameter/Value List:\n";
const std::string dashes = "--------------------------------\n";

class ParamsPrinters : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(zvParamsCreate(&params), ZV_SUCCESS); }
    void TearDown() override { zvParamsDestroy(params); }
    ZVparams* params = nullptr;
};

TEST_F(ParamsPrinters, PrintAnEmptyList)
{
    Printed printed = capture([&] { printZVParams(params); });
    EXPECT_EQ(printed.err, header + dashes);
    EXPECT_EQ(printed.out, "");
    printed = capture([&] { oldPrintZVParams(params); });
    EXPECT_EQ(printed.err, " inside printZVParams:0\n");
    EXPECT_EQ(printed.out, "");
}

TEST_F(ParamsPrinters, PrintOneLineForEachElement)
{
    zvParamsSetInt(params, "count", -6);
    zvParamsSetLongLong(params, "long", 1ll << 40);
    zvParamsSetFloat(params, "half", 0.5);
    zvParamsSetString(params, "codec", "JPEG");
    zvParamsSetEnum(params, "packing", 1008);
    zvParamsSetFract(params, "rate", {30000, 1001});
    zvParamsSetIntRange(params, "span", 1, 2);
    zvParamsSetInt(params, "count", 7);
    const std::string expected = header
        + "7\t(int)\tcount\n1099511627776\t(longlong)\tlong\n0.500\t(float)\thalf\n"
          "JPEG\t(string)\tcodec\n1008\t(enum)\tpacking\ntype\t(104)\trate\n"
          "type\t(121)\tspan\n"
        + dashes;
    setTrace(0);  // a printer that somebody calls is no progress line
    const Printed printed = capture([&] { printZVParams(params); });
    const Printed traced = capture([&] { kivTraceZVParams(params); });
    setTrace(1);
    EXPECT_EQ(printed.err, expected);
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(traced.err, "");
    EXPECT_EQ(capture([&] { kivTraceZVParams(params); }).err, expected);
}

TEST_F(ParamsPrinters, LeaveTheScanAlone)
{
    zvParamsSetInt(params, "x", 1);
    int stop = 42;
    const Printed printed = capture([&] { EXPECT_EQ(PrintParam(params, "x", nullptr, &stop), 0); });
    EXPECT_EQ(printed.err, "1\t(int)\tx\n");
    EXPECT_EQ(stop, 42);
}

TEST_F(ParamsPrinters, ListEveryTypeTheOldWayOnTwoStreams)
{
    const int ints[] = {1, 2};
    const double floats[] = {0.5, 2};
    const char* const strings[] = {"a", "b c"};
    const ZVfract fracts[] = {{1, 2}, {3, 4}};
    ZVparams* nested = nullptr;
    zvParamsCreate(&nested);
    zvParamsSetInt(nested, "inner", 9);

    zvParamsSetEnum(params, "enum", 1100);
    zvParamsSetInt(params, "int", -3);
    zvParamsSetString(params, "string", "text");
    zvParamsSetFloat(params, "float", 0.25);
    zvParamsSetFract(params, "fract", {25, 1});
    zvParamsSetParams(params, "nested", nested);
    zvParamsSetEnumArray(params, "enums", ints, 2);
    zvParamsSetIntArray(params, "ints", ints, 2);
    zvParamsSetStringArray(params, "strings", strings, 2);
    zvParamsSetFloatArray(params, "floats", floats, 2);
    zvParamsSetFractArray(params, "fractions", fracts, 2);
    zvParamsSetIntRange(params, "irange", 1, 6);
    zvParamsSetFloatRange(params, "frange", 0, 1);
    zvParamsSetFractRange(params, "a long key", {1, 2}, {3, 4});
    zvParamsSetLongLong(params, "long", 5);

    const Printed printed = capture([&] { oldPrintZVParams(params); });
    EXPECT_EQ(printed.out,
              "    enum: 1100\n"
              "     int: -3\n"
              "  string: text\n"
              "   float: 0.250000\n"
              "   fract: 25/1\n"
              "  nested: \n**\n**\n\n"
              "   enums: 1 2 \n"
              "    ints: 1 2 \n"
              " strings: a b c \n"
              "  floats: 0.500000 2.000000 \n"
              "fractions: 1/2 3/4 \n"
              "  irange: 1 ... 6\n"
              "  frange: 0.000000 ... 1.000000\n"
              "a long key: 1/2 ... 3/4\n"
              "    long: UNKNOWN TYPE\n");
    EXPECT_EQ(printed.err, " inside printZVParams:15......" + header + "9\t(int)\tinner\n" + dashes + ".........\n");
    zvParamsDestroy(nested);
}

}  // namespace
