// What is shown of a running graph: top, picture, trace, ledger, explanations. They are
// counted in different places and must agree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <sstream>

#include "tests/apps/program.h"

using testing::HasSubstr;

namespace {

constexpr char twelve[] = "a=video:pattern size=160x120 rate=50 ! e1=jpegenc ! ( d1=jpegdec ! s1=check, s2=null );\n"
                          "b=video:pattern size=160x120 rate=25 ! c1=convert packing=RGB ! c2=convert packing=CbYCrY\n"
                          "  ! e2=jpegenc ! ( d2=jpegdec ! s3=check, s4=null )";
constexpr int nodes = 12;

nlohmann::json lastLine(const std::string& lines)
{
    const size_t end = lines.rfind('\n');
    const size_t begin = end == 0 || end == std::string::npos ? std::string::npos : lines.rfind('\n', end - 1);
    return nlohmann::json::parse(lines.substr(begin == std::string::npos ? 0 : begin + 1), nullptr, false);
}

// Slices of each node.
std::map<int, long long> slicesIn(const std::string& trace)
{
    std::map<int, long long> slices;
    for (const auto& event : nlohmann::json::parse(trace))
        if (event["ph"] == "X") {
            EXPECT_GE(event["dur"].get<double>(), 0);
            ++slices[event["args"]["node"]];
        }
    return slices;
}

// What came to a node, by the label of its link.
long long framesInDot(const std::string& dot, int node)
{
    const size_t link = dot.find("-> n" + std::to_string(node) + " ");
    const size_t count = dot.find("\\n", link);
    return link == std::string::npos || count == std::string::npos ? -1 : std::stoll(dot.substr(count + 2));
}

class seeing : public testing::Test {
protected:
    Folder folder;
};

TEST_F(seeing, TopPictureAndTraceAgreeAboutEveryFrame)
{
    Program kiv({"run", "--json", "--seconds", std::to_string(KIV_SEEING_SECONDS), "--dot", folder / "g.dot",
                 "--trace-file", folder / "t.json", "--stats", "unix:" + folder / "stats", twelve});
    for (int tries = 0; access((folder / "stats").c_str(), F_OK) != 0 && tries < 2000; ++tries)
        usleep(5000);
    Program byPid({"top", std::to_string(kiv.pid()), "--json", "--interval", "0.5"});
    Program bySocket({"top", "unix:" + folder / "stats", "--json", "--interval", "0.5"});
    EXPECT_EQ(kiv.wait((KIV_SEEING_SECONDS + 60) * 1000), 0) << kiv.err;
    EXPECT_EQ(byPid.wait(), 0) << byPid.err;
    EXPECT_EQ(bySocket.wait(), 0) << bySocket.err;

    const auto summary = kiv.summary();
    const auto top = lastLine(byPid.out)["nodes"];
    const auto other = lastLine(bySocket.out)["nodes"];
    ASSERT_EQ(top.size(), size_t(nodes));
    ASSERT_EQ(other.size(), size_t(nodes));
    const auto slices = slicesIn(contents(folder / "t.json"));
    const std::string dot = contents(folder / "g.dot");
    for (int i = 0; i < nodes; ++i) {
        const auto& node = top[size_t(i)];
        const auto& counted = summary["nodes"][size_t(i)];  // by the node itself
        const std::string kind = node["kind"];
        SCOPED_TRACE(node["name"].get<std::string>());
        EXPECT_EQ(other[size_t(i)]["in"], node["in"]);
        EXPECT_EQ(slices.at(i + 1), kind == "check" || kind == "null" ? node["in"] : node["out"]);
        EXPECT_EQ(kind == "video" ? counted["captured"].get<long long>() : framesInDot(dot, i + 1),
                  kind == "video" ? node["out"] : node["in"]);
        if (counted.contains("converted")) {
            EXPECT_EQ(node["out"], counted["converted"]);
            EXPECT_EQ(node["in"], counted["converted"].get<int>() + counted["dropped"].get<int>());
            EXPECT_EQ(node["dropped"], counted["dropped"]);
        }
        if (kind == "check") {
            EXPECT_EQ(node["in"], counted["right"]);
        }
    }
    // Nothing stood still, however busy the machine was.
    for (const int sink : {3, 4, 10, 11})
        EXPECT_GT(top[size_t(sink)]["in"], 2 * KIV_SEEING_SECONDS);
}

TEST_F(seeing, ExplainsEveryLinkAndPrintsTheLedgerWhenAsked)
{
    Program kiv({"run", "--explain", "--ledger",
                 "recv unix:" + folder / "s size=160x120 packing=CbYCrY once ! enc=jpegenc ! null"});
    ASSERT_NE(kiv.waitForLine("listening on"), "");
    EXPECT_THAT(kiv.err,
                HasSubstr("1 recv -> 2 enc=jpegenc: CbYCrY 160x120, live\n    packing: node 1 'recv' with "
                          "packing=CbYCrY; size: node 1 'recv' with size=160x120; "));
    EXPECT_THAT(kiv.err, HasSubstr("2 enc=jpegenc -> 3 null: JPEG 160x120, live\n    format: node 2 'enc=jpegenc'; "));
    kiv.signal(SIGUSR1);
    EXPECT_NE(kiv.waitForLine("node 1 'recv'     "), "") << kiv.err;
    Program sender({"run", "video:pattern size=160x120 free ! send lossless unix:" + folder / "s", "--frames", "20"});
    EXPECT_EQ(sender.wait(), 0) << sender.err;
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    std::istringstream ledger(kiv.err.substr(kiv.err.rfind("node 1 'recv'") + 13));
    long long buffers = 0, bytes = 0, inUse = -1, peak = 0;
    ledger >> buffers >> bytes >> inUse >> peak;
    EXPECT_GE(buffers, 2);
    EXPECT_EQ(bytes, 160 * 120 * 2);
    EXPECT_EQ(inUse, 0);
    EXPECT_GE(peak, 1);
}

// Through Graphviz where it is; else one line says where the text is.
TEST_F(seeing, DrawsAPicture)
{
    Program kiv({"run", "video:pattern size=64x48 ! 'a=null'", "--dot", folder / "g.svg", "--frames", "3"});
    const int code = kiv.wait();
    if (Program({"/bin/sh", "-c", "command -v dot"}).wait() == 0) {
        EXPECT_EQ(code, 0) << kiv.err;
        EXPECT_THAT(contents(folder / "g.svg"), HasSubstr("<svg"));
        EXPECT_THAT(contents(folder / "g.svg"), HasSubstr("3 frames"));
    } else {
        EXPECT_EQ(code, 1);
        EXPECT_THAT(kiv.err, HasSubstr("the graph as text is in " + folder / "g.dot"));
        EXPECT_THAT(contents(folder / "g.dot"), HasSubstr("n1 -> n2 [label=\"CbYCrY 64x48"));
    }
}

// A peer that has come and reads nothing.
TEST_F(seeing, TellsASlowPeerAndWhatWasDropped)
{
    const int door = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {AF_UNIX, ""};
    (folder / "slow").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(door, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(door, 1), 0);
    Program kiv({"run", "--json", "video:pattern size=1280x720 rate=50 ! out=send unix:" + folder / "slow"});
    const int peer = accept(door, nullptr, nullptr);
    EXPECT_THAT(kiv.waitForLine("has taken nothing for"), HasSubstr("node 2 'out=send': "));
    EXPECT_THAT(kiv.err, HasSubstr("1 newer frame waits"));
    kiv.signal(SIGINT);
    EXPECT_EQ(kiv.wait(), 1) << "the last frames did not go out";
    const auto summary = kiv.summary();
    const auto drops = summary["drops"];
    ASSERT_FALSE(drops.empty());  // a busy machine may make the camera drop, too
    const auto sends = drops.back();
    EXPECT_EQ(sends["name"], "out=send") << drops;
    EXPECT_GT(sends["dropped"], 0);
    EXPECT_LT(sends["sinceSeconds"], summary["seconds"].get<double>() + 5);
    EXPECT_THAT(sends["remedy"].get<std::string>(), HasSubstr("'lossless'"));
    close(peer);
    close(door);
}

TEST_F(seeing, WhatCannotBeShownIsSaid)
{
    const std::string graph = "video:pattern size=64x48 ! null";
    const struct {
        std::vector<std::string> arguments;
        std::string message;
        int code;
    } lines[] = {
        {{"run", graph, "--dot", "/nowhere/g.dot"}, "--dot /nowhere/g.dot: No such file or directory", 1},
        {{"run", graph, "--trace-file", "/nowhere/t"}, "--trace-file /nowhere/t: No such file or directory", 1},
        {{"run", graph, "--stats", "unix:/nowhere/s"}, "--stats /nowhere/s: No such file or directory", 1},
        {{"run", graph, "--stats", "on"}, "--stats 'on' must be unix:PATH or off", 2},
        {{"top", "soon"}, "top: soon: is neither a process nor unix:PATH", 2},
        {{"top", "1"}, "top: 1: ", 2},
        {{"top", "unix:" + folder / "none"}, "No such file or directory", 2},
    };
    for (const auto& [arguments, message, code] : lines) {
        Program kiv(arguments);
        EXPECT_EQ(kiv.wait(), code) << kiv.err;
        EXPECT_THAT(kiv.err, HasSubstr(message));
        EXPECT_EQ(std::ranges::count(kiv.err, '\n'), 1) << kiv.err;
    }
    Program off({"run", graph, "--stats", "off", "--seconds", "30"});
    Program top({"top", std::to_string(off.pid()), "--count", "1"});
    EXPECT_EQ(top.wait(), 2);
}

}  // namespace
