// Wrong command lines: each ends with code 2 and at most two lines that say where.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/apps/program.h"

using testing::HasSubstr;
using testing::StartsWith;

class wrongLines : public testing::Test {
protected:
    void SetUp() override
    {
        shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=25 -frames:v 2 -c:v mjpeg " + clip);
        shell("head -c 100 " + clip + " > " + cut);
        shell("printf '\\357\\273\\277nulll' > " + marked);  // behind a byte order mark
    }

    Folder folder;
    const std::string clip = folder / "clip.mov", cut = folder / "cut.mov", marked = folder / "marked.kiv";
};

TEST_F(wrongLines, EachIsOneClearLineThatNamesThePlace)
{
    const std::string movie = "movie " + clip;
    const struct {
        std::vector<std::string> arguments;
        std::string message;
    } lines[] = {
        {{"run", movie + " ! jpegdecc ! null"}, "node 2 'jpegdecc': no such node; did you mean 'jpegdec'?"},
        {{"run", movie + " ! jpegenc quality=101 ! null"},
         "node 2 'jpegenc': quality '101' must lie between 0 and 100"},
        {{"run", "movie " + clip + "x ! null"}, "node 1 'movie': FILE '" + clip + "x' cannot be read"},
        {{"run", "movie " + cut + " ! null"}, "node 1 'movie': FILE '" + cut + "' cannot be played"},
        {{"run", "movie /etc/passwd ! null"}, "node 1 'movie': FILE '/etc/passwd' cannot be played"},
        {{"run", "movie /tmp ! null"}, "node 1 'movie': FILE '/tmp' cannot be played"},
        {{"run", movie + " ! file " + folder / "a.png"},
         "node 2 'file': wants format RGB, RGBA, LUMINANCE; node 1 'movie' offers JPEG 64x48; put jpegdec between "
         "them"},
        {{"run", movie + " ! jpegdec ! file a.jpg"},
         "node 3 'file': wants format JPEG; node 2 'jpegdec' offers CbYCrY 64x48; put jpegenc between them"},
        {{"run", movie + " ! jpegdec ! convert packing=BGR ! file a.png"},
         "node 4 'file': wants packing RGB, RGBA, LUMINANCE; node 3 'convert' offers BGR 64x48, set by node 3 "
         "'convert' "
         "with packing=BGR; put 'convert packing=RGB' between them"},
        {{"run", movie + " ! file a.avi"}, "node 2 'file': PATH 'a.avi' must end in .y4m"},
        {{"run", movie + " ! jpegdec ! file %s.png"}, "'%' in a path stands once"},
        {{"run", movie + " ! jpegenc ! null"},
         "node 2 'jpegenc': wants format pictures; node 1 'movie' offers JPEG 64x48; put jpegdec between them"},
        {{"run", movie + " ! convert packing=RGB ! null"}, "node 2 'convert': wants format pictures; node 1"},
        {{"run", movie + " ! jpegdec ! jpegdec ! null"},
         "node 3 'jpegdec': wants format JPEG; node 2 'jpegdec' offers CbYCrY 64x48; leave it out"},
        {{"run", movie + " ! null", "--frames", "0"}, "--frames: '0' is no number of frames"},
        {{"run", movie + " ! null", "--frames", "99999999999999999999"}, "is no number of frames"},
        {{"run", movie + " ! null", "--seconds", "1e30"}, "'1e30' is no length of time"},
        {{"run", movie + " ! null", "--seconds", "soon"}, "'soon' is no length of time"},
        {{"run", movie + " ! null", "--frmes", "1"}, "--frmes"},
        {{"run"}, "GRAPH is required"},
        {{"run", "-f", folder / "none.kiv"}, folder / "none.kiv: No such file or directory"},
        {{"run", "video ! null", "-f", clip}, "leave one out"},
        {{"run", "video:pattern ! send tcp://nowhere"}, "has no port"},
        {{"run", "video:pattern ! ( null"}, "put ')' behind the last"},
        {{"run", "video:pattern ! ( ( null ) )"}, "branches begin with '! ('"},
        {{"run", "video:pattern free!null"}, "does not know 'free!null'; put blanks around '!'"},
        {{"run", "video:pattern ! ( file a.y4m, file a.y4m )"}, "PATH 'a.y4m' is what node 2 'file' writes"},
        {{"run", "video clip=" + clip + " ! videoout:monitor record=" + clip}, "is what node 1 'video' reads"},
        {{"run", "-f", marked}, marked + ":1:1: nulll"},
        {{"run", "video:pattern size=4096x2160 ! display zoom=16"}, "a window of 65536 x 34560 pixels"},
        {{"play", clip, "--size", "64x48"}, "leave --size out"},
        {{"inspect", "jpgenc"}, "there is no node 'jpgenc'; did you mean 'jpegenc'?"},
        {{"completion", "fish"}, "write bash or zsh"},
        {{"man", "7"}, "write 1 or graph"},
        {{"fly", "away"}, "there is no command 'fly'"},
        {{"--json"}, "--json"},
        {{"probe"}, "FILE is required"},
        {{"probe", cut}, "probe: '" + cut + "'"},
    };
    for (const auto& [arguments, message] : lines) {
        Program kiv(arguments);
        EXPECT_EQ(kiv.wait(), 2) << arguments.back();
        EXPECT_EQ(kiv.out, "") << arguments.back();
        EXPECT_THAT(kiv.err, StartsWith("kiv: "));
        EXPECT_THAT(kiv.err, HasSubstr(message));
        EXPECT_LE(std::ranges::count(kiv.err, '\n'), 2) << kiv.err;
    }
}

TEST_F(wrongLines, FailuresWhileRunningEndWithOne)
{
    shell("ln -s /dev/full " + folder / "full.mjpeg");
    const struct {
        std::string graph, message;
    } runs[] = {
        {"movie " + clip + " every ! file " + folder / "full.mjpeg",
         "node 2 'file': " + folder / "full.mjpeg" + ": No space left on device"},
        {"movie " + clip + " every ! jpegdec ! file " + folder / "none/a.png",
         "none/a-0001.png: No such file or directory"},
        {"movie " + clip + " every ! file /nowhere/a.mjpeg",
         "node 2 'file': /nowhere/a.mjpeg: No such file or directory"},
        {"movie " + clip + " ! send unix:" + folder / "nobody", "node 2 'send': "},
    };
    for (const auto& [graph, message] : runs) {
        Program kiv({"run", "--json", graph});
        EXPECT_EQ(kiv.wait(), 1) << graph;
        EXPECT_THAT(kiv.err, HasSubstr(message));
        EXPECT_EQ(std::ranges::count(kiv.err, '\n'), 1) << kiv.err;
        const nlohmann::json summary = kiv.summary();
        EXPECT_EQ(summary.value("exit", -1), 1) << kiv.out;
        EXPECT_EQ(summary.value("errors", nlohmann::json::array()).size(), 1u) << kiv.out;
    }
}

// The index names frames that the end of the file would hold: those before it come,
// and nothing in place of the others.
TEST_F(wrongLines, AMovieThatWasCutBringsWhatItHolds)
{
    const std::string many = folder / "many.mov", few = folder / "few.mov";
    shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=25 -frames:v 30 -c:v mjpeg -movflags faststart " + many);
    shell("head -c $(($(stat -c %s " + many + ") / 2)) " + many + " > " + few);
    Program whole({"run", "movie " + many + " every ! file " + folder / "many.mjpeg"});
    EXPECT_EQ(whole.wait(), 0) << whole.err;
    Program cutOff({"run", "--json", "movie " + few + " every ! file " + folder / "few.mjpeg"});
    EXPECT_EQ(cutOff.wait(), 1);
    EXPECT_THAT(cutOff.err, HasSubstr("node 1 'movie': the file does not hold a frame"));
    EXPECT_EQ(std::ranges::count(cutOff.err, '\n'), 1) << cutOff.err;
    EXPECT_EQ(cutOff.summary()["frames"], 30 - cutOff.summary()["nodes"][0]["unreadable"].get<int>());
    EXPECT_GT(cutOff.summary()["frames"], 5);
    EXPECT_THAT(contents(folder / "many.mjpeg"), StartsWith(contents(folder / "few.mjpeg")));
}

// A file that is opened in place of a closed stream must not take its words.
TEST_F(wrongLines, ClosedStreamsHarmNoFile)
{
    const std::string run = std::string(KIV_PROGRAM) + " run 'movie " + clip + " every ! file ";
    shell(run + folder / "open.mjpeg" + "'");
    for (const char* closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        Program kiv({"/bin/sh", "-c", run + folder / "closed.mjpeg" + "' --status " + closed});
        EXPECT_EQ(kiv.wait(), std::string(closed).find(">&-") == std::string::npos || closed[0] == '2' ? 0 : 1);
        EXPECT_EQ(contents(folder / "closed.mjpeg"), contents(folder / "open.mjpeg")) << closed;
    }
    Program full({"/bin/sh", "-c", run + folder / "closed.mjpeg" + "' >/dev/full"});
    EXPECT_EQ(full.wait(), 1);
    EXPECT_EQ(full.err, "kiv: standard output: No space left on device\n");
}

TEST_F(wrongLines, HelpAndVersionAreNoErrors)
{
    for (const char* word : {"help", "--help", "--version"}) {
        Program kiv({word});
        EXPECT_EQ(kiv.wait(), 0);
        EXPECT_THAT(kiv.out, HasSubstr("kiv"));
        EXPECT_EQ(kiv.err, "");
    }
}
