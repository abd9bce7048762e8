// Cameras and video outputs in a graph: the built-in ones, which every machine has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/apps/program.h"

using testing::HasSubstr;

namespace {

class video : public testing::Test {
protected:
    Folder folder;

    // The summary of a run that must end well.
    nlohmann::json run(const std::string& graph, const std::vector<std::string>& options = {})
    {
        std::vector<std::string> arguments = {"run", "--json", graph};
        arguments.insert(arguments.end(), options.begin(), options.end());
        Program kiv(arguments);
        EXPECT_EQ(kiv.wait(), 0) << kiv.err;
        const nlohmann::json summary = kiv.summary();
        for (const auto& pool : summary["pools"])
            EXPECT_EQ(pool["lost"], 0) << pool;
        return summary;
    }
};

// Two cameras, branches below branches, from a file: every sink gets every frame, in order.
TEST_F(video, BranchesAllGetEveryFrame)
{
    std::ofstream(folder / "graph.kiv") << "# a camera, twice encoded\n"
                                           "cam=video:pattern size=160x120 free ! enc=jpegenc quality=80% ! (\n"
                                           "  jpegdec ! ( check, convert packing=RGB ! null ),  # seen again\n"
                                           "  file "
                                        << folder / "seen.mjpeg"
                                        << "\n);\nvideo:pattern size=160x120 free ! check\n";
    Program kiv({"run", "--json", "--frames", "50", "-f", folder / "graph.kiv"});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    const auto summary = kiv.summary();
    EXPECT_EQ(summary["frames"], 200);
    EXPECT_EQ(summary["nodes"][3]["right"], 50);
    EXPECT_EQ(summary["nodes"][6]["written"], 50);
    EXPECT_EQ(summary["nodes"][8]["right"], 50);
    EXPECT_EQ(summary["nodes"][8]["wrong"], 0);
    for (const auto& pool : summary["pools"])
        EXPECT_EQ(pool["lost"], 0) << pool;

    // A branch that ends early holds nobody up.
    const auto early = run("video:pattern size=160x120 rate=100 seconds=0.2s ! null; "
                           "video:pattern size=160x120 free ! ( check, null )",
                           {"--frames", "300"});
    EXPECT_EQ(early["nodes"][3]["right"], 300);
    EXPECT_LT(early["frames"], 640);
}

TEST_F(video, AFreeRunningCameraLosesNoPictureOnItsWay)
{
    const auto summary = run("video:pattern size=320x240 free ! jpegenc ! jpegdec ! check", {"--frames", "200"});
    EXPECT_EQ(summary["nodes"][3]["right"], 200);
    EXPECT_EQ(summary["nodes"][3]["wrong"], 0);
    EXPECT_EQ(summary["nodes"][3]["missing"], 0);
}

TEST_F(video, TheDemoShowsTheRightPicturesAndLeavesSome)
{
    Program demo({"demo", "--json", "--seconds", "3", "--out", folder / "demo"});
    EXPECT_EQ(demo.wait(), 0) << demo.err << contents(folder / "demo/demo-sender.log");
    const auto summary = demo.summary();
    EXPECT_GT(summary["nodes"][2]["right"], 10);
    EXPECT_EQ(summary["nodes"][2]["wrong"], 0);
    EXPECT_THAT(shell("ffprobe -v error -show_entries stream=width,height -of csv=p=0 " + folder / "demo/demo-1.png"),
                HasSubstr("1280,720"));
}

// What the monitor recorded is what it was handed, and no more than a picture a period.
TEST_F(video, TheMonitorRecordsWhatItShows)
{
    const std::string seen = folder / "seen.y4m";
    const auto summary
        = run("video:pattern size=160x120 rate=50 ! videoout:monitor record=" + seen, {"--frames", "40"});
    const int shown = summary["nodes"][1]["shown"];
    const int recorded
        = std::stoi(shell("ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 " + seen));
    EXPECT_GT(recorded, 0);
    EXPECT_LE(recorded, shown);
    EXPECT_GE(recorded, shown - 2);  // the last ones may still wait when the run ends
    // Played as a camera again, the pictures still carry their numbers.
    const auto again = run("video clip=" + seen + " free ! convert packing=CbYCrY ! null", {"--frames", "5"});
    EXPECT_EQ(again["frames"], 5);
}

TEST_F(video, AClipCameraPlaysAMovieForEver)
{
    const std::string movie = folder / "clip.mov";
    shell("ffmpeg -v error -f lavfi -i testsrc2=s=64x48:r=25 -frames:v 3 -c:v mjpeg " + movie);
    const auto summary = run("video clip=" + movie + " free ! jpegenc ! null", {"--frames", "10"});
    EXPECT_EQ(summary["frames"], 10);
}

TEST_F(video, LostPicturesAreCountedAndALostDeviceEndsTheRun)
{
    const auto summary = run("video:pattern size=160x120 free 'faults=drop 5 3' ! check", {"--frames", "20"});
    EXPECT_EQ(summary["nodes"][0]["lost"], 3);
    EXPECT_EQ(summary["nodes"][1]["missing"], 3);

    Program unplugged({"run", "--json", "video:pattern size=160x120 free 'faults=unplug 20' ! check"});
    EXPECT_EQ(unplugged.wait(), 1);
    EXPECT_THAT(unplugged.err, HasSubstr("node 1 'video': the device is gone"));
    EXPECT_EQ(unplugged.summary()["nodes"][1]["right"], 20);

    Program output({"run", "video:pattern size=160x120 ! videoout:monitor 'faults=unplug 5'"});
    EXPECT_EQ(output.wait(), 1);
    EXPECT_THAT(output.err, HasSubstr("node 2 'videoout': the device is gone"));
}

TEST_F(video, DevicesAreListed)
{
    Program kiv({"devices", "--json"});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    std::vector<std::string> names;
    for (const auto& device : nlohmann::json::parse(kiv.out))
        for (const auto& jack : device["jacks"])
            names.push_back(std::string(jack["direction"]) + ": " + std::string(jack["name"]));
    EXPECT_THAT(names, testing::IsSupersetOf({"out: builtin monitor out", "in: builtin pattern in"}));
}

TEST_F(video, WrongGraphsNameThePlaceAndTheRemedy)
{
    const struct {
        std::string graph, message;
    } lines[] = {
        {"video:nowhere ! null", "node 1 'video': no video input has 'nowhere' in its name; 'kiv devices' lists them"},
        {"video:monitor ! null", "node 1 'video': no video input has 'monitor'"},
        {"video:pattern size=63x48 ! null", "node 1 'video': size: "},
        {"video:pattern rate=2000 ! null", "node 1 'video': rate: "},
        {"video:pattern faults=bang ! null", "node 1 'video': faults: "},
        {"video:pattern ! videoout:monitor faults=bang", "node 2 'videoout': faults: "},
        {"video:clip ! null", "node 1 'video': the clip camera plays a file; write clip=FILE"},
        {"video:pattern ! file a.mjpeg", "put jpegenc between them"},
        {"video:pattern ! jpegenc ! videoout", "node 3 'videoout': wants format CbYCrY; node 2 'jpegenc' offers JPEG"},
        {"video:pattern ! convert packing=RGB ! videoout:monitor", "put 'convert packing=CbYCrY' between them"},
        {"video:pattern ! null:x", "node 2 'null': takes no name behind a colon"},
    };
    for (const auto& [graph, message] : lines) {
        Program kiv({"run", graph});
        EXPECT_EQ(kiv.wait(), 2) << graph;
        EXPECT_THAT(kiv.err, HasSubstr(message)) << graph;
        EXPECT_LE(std::ranges::count(kiv.err, '\n'), 2) << kiv.err;
    }
}

}  // namespace
