// What kiv says of itself: inspect, manual pages, completion and help, from one table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/apps/program.h"

using testing::HasSubstr;
using testing::IsSupersetOf;

namespace {

nlohmann::json inspect(const std::string& node)
{
    Program kiv({"inspect", "--json", node});
    EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    return nlohmann::json::parse(kiv.out);
}

nlohmann::json allNodes() { return nlohmann::json::parse(shell(KIV_PROGRAM " inspect --json")); }

TEST(commands, InspectDescribesANodeFromTheTable)
{
    const auto encoder = inspect("jpegenc");
    EXPECT_EQ(encoder["role"], "filter");
    EXPECT_EQ(encoder["members"][0]["name"], "quality");
    EXPECT_EQ(encoder["members"][0]["default"], "75");
    EXPECT_EQ(encoder["members"][0]["range"], nlohmann::json({0.0, 100.0}));
    EXPECT_EQ(encoder["gives"], "JPEG");
    EXPECT_THAT(encoder["above"], IsSupersetOf({"video", "jpegdec", "convert", "recv"}));
    EXPECT_THAT(encoder["below"], IsSupersetOf({"jpegdec", "send", "file", "null"}));
    EXPECT_EQ(inspect("videoout")["takes"], "CbYCrY");
    EXPECT_TRUE(inspect("movie")["members"][0]["required"]);
    for (const auto& node : allNodes())
        EXPECT_THAT(shell(KIV_PROGRAM " inspect " + node["name"].get<std::string>()),
                    HasSubstr(node["usage"].get<std::string>()));
}

// What cannot stand beside a node is not offered: the answer is tried with a graph.
TEST(commands, InspectNamesNeighboursThatWork)
{
    const auto camera = inspect("video");
    EXPECT_THAT(camera["below"], testing::Not(testing::Contains("jpegdec")));
    for (const std::string sink : {"null", "check", "videoout"}) {
        EXPECT_THAT(camera["below"], testing::Contains(sink));
        Program kiv(
            {"run", "video:pattern size=160x120 ! " + sink + (sink == "videoout" ? ":monitor" : ""), "--frames", "2"});
        EXPECT_EQ(kiv.wait(), 0) << kiv.err;
    }
}

TEST(commands, ManualPagesNameEveryCommandNodeAndMember)
{
    auto plain = [](std::string page) {
        std::erase(page, '\\');
        return page;
    };
    const std::string graph = plain(shell(KIV_PROGRAM " man graph"));
    for (const auto& node : allNodes())
        for (const auto& member : node["members"])
            EXPECT_THAT(graph, HasSubstr(member["name"].get<std::string>())) << node["name"];
    const std::string program = plain(shell(KIV_PROGRAM " man 1"));
    for (const char* word : {".SS kiv run", ".SS kiv inspect [NODE]", "--frames", ".SS kiv probe FILE", "EXIT STATUS"})
        EXPECT_THAT(program, HasSubstr(word));
    for (const std::string& page : {graph, program})
        for (size_t at = page.find("\n."); at != std::string::npos; at = page.find("\n.", at + 1))
            EXPECT_NE(std::string("TSPBnRfit").find(page[at + 2]), std::string::npos) << page.substr(at, 40);
}

TEST(commands, CompletionCompletesInBash)
{
    const std::string load = "eval \"$(" KIV_PROGRAM " completion bash)\"; ";
    auto complete = [&](const std::string& words, int at) {
        Program bash({"/bin/bash", "-c",
                      load + "COMP_WORDS=(kiv " + words + "); COMP_CWORD=" + std::to_string(at)
                          + "; _kiv; echo ${COMPREPLY[@]}"});
        EXPECT_EQ(bash.wait(), 0) << bash.err;
        return bash.out;
    };
    EXPECT_EQ(complete("insp", 1), "inspect\n");
    EXPECT_EQ(complete("inspect jpeg", 2), "jpegdec jpegenc\n");
    EXPECT_EQ(complete("run --fr", 2), "--frames\n");
    EXPECT_EQ(complete("devices --", 2), "--help --json\n");
    EXPECT_THAT(shell(KIV_PROGRAM " completion zsh"), HasSubstr("#compdef kiv"));
}

TEST(commands, EveryCommandHasHelpWithExamples)
{
    for (const char* command : {"run", "demo", "top", "inspect", "probe", "devices", "man", "completion", "help"}) {
        const std::string help = shell(std::string(KIV_PROGRAM " ") + command + " --help");
        EXPECT_THAT(help, HasSubstr("Usage: kiv " + std::string(command)));
        EXPECT_THAT(help, HasSubstr("Examples:\n  "));
        EXPECT_THAT(help, testing::Not(HasSubstr("\033"))) << "colours only on a terminal";
    }
}

}  // namespace
