// The graph language: what is read from a text, and what is said of a wrong one.
#include "apps/kiv/graph/graphText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "apps/kiv/graph/link.h"
#include "apps/kiv/graph/values.h"
#include "platform/zv/zv.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

static const char* const thisFile = "/proc/self/exe";  // any file that can be read

// "movie<0 null<1": each node with the number of the one above it.
static std::vector<std::string> shapeOf(const std::string& graph)
{
    std::vector<std::string> shape;
    for (const NodeText& node : parseGraph(graph))
        shape.push_back(node.title() + "<" + std::to_string(node.parent + 1));
    return shape;
}

TEST(graphText, ReadsNodesMembersAndDefaults)
{
    const std::vector<NodeText> nodes = parseGraph(std::string("movie ") + thisFile
                                                   + " every rate=0.5 ! jpegdec ! jpegenc ! send tcp://h:1 lossless");
    ASSERT_EQ(nodes.size(), 4u);
    EXPECT_EQ(nodes[0].value("FILE").text, thisFile);
    EXPECT_TRUE(nodes[0].has("every"));
    EXPECT_FALSE(nodes[0].has("loop"));
    EXPECT_EQ(nodes[0].value("rate").number, 0.5);
    EXPECT_EQ(nodes[2].value("quality").number, 75);
    EXPECT_FALSE(nodes[2].has("quality"));
    EXPECT_EQ(nodes[3].number, 4);
    EXPECT_TRUE(nodes[3].has("lossless"));
}

TEST(graphText, ReadsPackingsAndQuotes)
{
    const std::vector<NodeText> nodes
        = parseGraph("recv unix:/tmp/x size=1280x720 packing=RGB\n!\tfile \"a b!.y4m\" rate=30000/1001");
    EXPECT_EQ(nodes[0].value("packing").number, packingByName("RGB"));
    EXPECT_EQ(nodes[1].value("PATH").text, "a b!.y4m");
}

TEST(graphText, ReadsBranchesSeveralGraphsAndNames)
{
    EXPECT_THAT(shapeOf("video ! enc=jpegenc ! ( send tcp://a:5000, file out.mjpeg )"),
                ElementsAre("video<0", "enc=jpegenc<1", "send<2", "file<2"));
    EXPECT_THAT(shapeOf("video ! (null, jpegenc ! (null, jpegdec ! null), null); cam=video:pattern ! null;"),
                ElementsAre("video<0", "null<1", "jpegenc<1", "null<3", "jpegdec<3", "null<5", "null<1", "cam=video<0",
                            "null<8"));
    const std::vector<NodeText> nodes = parseGraph("video ! ( null, null )");
    EXPECT_EQ(nodesBelow(nodes, nodes[0]), (std::vector<const NodeText*>{&nodes[1], &nodes[2]}));
    EXPECT_TRUE(nodesBelow(nodes, nodes[2]).empty());
}

// Marks may touch words; within a word, in quotes and in comments they are letters.
TEST(graphText, TellsMarksFromLetters)
{
    EXPECT_THAT(shapeOf("# a camera; twice!\nvideo:pattern !jpegenc! ( # (\n null, # , )\n file x )\n#"),
                ElementsAre("video<0", "jpegenc<1", "null<2", "file<2"));
    const std::vector<NodeText> nodes
        = parseGraph("video ! (file a,b(1).png, file 'c;', file \"d,\", file e#f!g) ; video ! file h(2)");
    std::vector<std::string> paths;
    for (const NodeText& node : nodes)
        if (node.kind->role == NodeRole::sink)
            paths.push_back(node.value("PATH").text);
    EXPECT_THAT(paths, ElementsAre("a,b(1).png", "c;", "d,", "e#f!g", "h(2)"));
}

TEST(graphText, ReadsValuesWithTheirUnits)
{
    const struct {
        const char* member;
        double number, second;
    } values[] = {{"rate=30", 30, 1},           {"rate=30fps", 30, 1},
                  {"rate=29.97", 30000, 1001},  {"rate=23.976fps", 24000, 1001},
                  {"rate=12.5", 12500, 1000},   {"rate=30000/1001", 30000, 1001},
                  {"size=1280x720", 1280, 720}, {"size=1080p", 1920, 1080},
                  {"seconds=1m30s", 90, 0}};
    for (const auto& [member, number, second] : values) {
        const NodeText node = parseGraph(std::string("video ") + member + " ! null")[0];
        const Value& value = node.value(std::string(member, strcspn(member, "=")).c_str());
        EXPECT_EQ(value.number, number) << member;
        EXPECT_EQ(value.second, second) << member;
    }
    EXPECT_EQ(parseGraph("video ! jpegenc quality=80% ! null")[1].value("quality").number, 80);
    EXPECT_EQ(parseGraph(std::string("movie ") + thisFile + " rate=2x ! null")[0].value("rate").number, 2);
}

// Every error names the node's place and says what to write; the mark stands below the
// words in question.
TEST(graphText, SaysWhatIsWrongAndWhere)
{
    const std::string movie = std::string("movie ") + thisFile;
    const struct {
        std::string graph, message, marked;
    } wrong[] = {
        {"", "node 1 is missing", ""},
        {"! null", "node 1 is missing", "!"},
        {movie + " ! ! null", "node 2 is missing", "!"},
        {movie + " ! null !", "node 2 'null': is a sink", "null"},
        {movie + " ! jpegdec !", "node 3 is missing", ""},
        {movie + " ! jpgdec ! null", "node 2 'jpgdec': no such node; did you mean 'jpegdec'?", "jpgdec"},
        {movie + " ! zzzzzz ! null", "no such node; 'kiv inspect'", "zzzzzz"},
        {movie + " ! (null,null)", "node 2 'null,null': no such node; put blanks around ','", "null,null"},
        {movie + " evry ! null", "node 1 'movie': does not know 'evry'; did you mean 'every'?", "evry"},
        {movie + " jpegdec ! null", "does not know 'jpegdec'; '!' stands between two nodes", "jpegdec"},
        {movie + " every every ! null", "'every' is given twice", "every"},
        {movie + " every=1 ! null", "'every' takes no value", "every=1"},
        {movie + " rate ! null", "'rate' needs a value", "rate"},
        {movie + " rate=0 ! null", "rate '0' must lie between 0.01 and 100", "rate=0"},
        {movie + " rate=nan ! null", "must be a number", "rate=nan"},
        {"movie ! null", "node 1 'movie': needs FILE; it is written: movie FILE [loop]", "movie"},
        {"movie /nowhere/at.all ! null", "'/nowhere/at.all' cannot be read: No such file", "/nowhere/at.all"},
        {"recv tcp://:1 ! null", "node 1 'recv': needs size", "recv tcp://:1"},
        {"recv tcp://:1 size=12 ! null", "size '12' must be WIDTHxHEIGHT", "size=12"},
        {"recv tcp://:1 size=0x5 ! null", "must be WIDTHxHEIGHT", "size=0x5"},
        {"recv tcp://:1 size=99999x5 ! null", "is larger than 16384 x 16384", "size=99999x5"},
        {"recv http://x size=1x1 ! null", "must be tcp://host:port or unix:path", "http://x"},
        {"recv tcp://x size=1x1 ! null", "has no port; write 'tcp://x:5000'", "tcp://x"},
        {"recv tcp://x:70000 size=1x1 ! null", "lies between 0 and 65535", "tcp://x:70000"},
        {"recv tcp://::1:5 size=1x1 ! null", "needs brackets", "tcp://::1:5"},
        {"recv unix: size=1x1 ! null", "has no path", "unix:"},
        {"recv tcp://:1 size=8x8 packing=YUV ! null", "is no packing; there are CbYCrY", "packing=YUV"},
        {"video rate=fast ! null", "must be a rate, as 30, 29.97", "rate=fast"},
        {"video seconds=soon ! null", "is no length of time", "seconds=soon"},
        {movie + " ! jpegenc quality=7.5 ! null", "quality '7.5' must be a whole number", "quality=7.5"},
        {movie + " ! file a.y4m rate=1/0 ! null", "must be a rate", "rate=1/0"},
        {"jpegdec ! null", "node 1 'jpegdec': a graph begins with a source: movie, recv", "jpegdec"},
        {movie + " ! jpegdec", "node 2 'jpegdec': a graph ends with a sink: file, send", "jpegdec"},
        {movie + " ! null ! null", "node 2 'null': is a sink; nothing can stand behind it", "null"},
        {movie + " ! video ! null", "node 2 'video': is a source", "video"},
        {movie + " ! file 'a.y4m", "a quote is opened and never closed", "'a.y4m"},
        {"video ! ( null", "never closed; put ')' behind the last", "("},
        {"video ! ( null, )", "node 3 is missing", ")"},
        {"video ! ( null ) ! null", "nothing can stand behind branches", "!"},
        {"video ! ( null; null )", "close the branches before it", ";"},
        {"video ! null )", "closes nothing", ")"},
        {"video ! null, null", "',' stands between branches in ( )", ","},
        {"video ( null )", "branches begin with '! ('", "("},
        {"a=video ! a=null", "node 2: node 1 has the name 'a' already", "a=null"},
        {"1=video ! null", "'1' is no name", "1=video"},
        {"video\n  ! jpegenc\n  ! jpegdek ! null", "did you mean 'jpegdec'?", "jpegdek"},
    };
    for (const auto& [graph, message, marked] : wrong) {
        try {
            parseGraph(graph);
            ADD_FAILURE() << "taken: " << graph;
        } catch (const GraphError& error) {
            EXPECT_THAT(error.what(), HasSubstr(message)) << graph;
            const std::string two = error.describe(graph, "graph", 0);
            const size_t end = two.find('\n');
            const std::string mark = two.substr(end + 1);
            const size_t length = mark.find(' ', mark.find('^')) - mark.find('^');
            EXPECT_EQ(two.substr(mark.find('^'), std::min(length, end - std::min(end, mark.find('^')))), marked) << two;
            EXPECT_THAT(mark, HasSubstr(" " + std::string(error.what())));
        }
    }
}

TEST(graphText, CountsLinesAndColumnsAndShortensLongLines)
{
    auto describe = [](const std::string& graph, int indent) {
        try {
            parseGraph(graph);
        } catch (const GraphError& error) {
            return error.describe(graph, "g.kiv", indent);
        }
        return std::string("taken");
    };
    EXPECT_THAT(describe("video:ä\n\t! nul", 5), StartsWith("g.kiv:2:4:  ! nul\n" + std::string(5 + 14, ' ') + "^~~ "));
    EXPECT_THAT(describe("video:ä ! nul", 0),
                StartsWith("g.kiv:1:11: video:ä ! nul\n" + std::string(22, ' ') + "^~~ "));
    std::string filters;
    for (int i = 0; i < 20; ++i)
        filters += "jpegenc ! jpegdec ! ";
    const std::string cut = describe("video ! " + filters + "nul", 0);
    EXPECT_LT(cut.find('\n'), 100u);
    EXPECT_THAT(cut.substr(0, cut.find('\n')), EndsWith("! nul"));
}

// Whatever stands in a text, it is a graph or one error of two lines that point into it.
TEST(graphText, AnyTextIsAGraphOrAnError)
{
    static const char* const pieces[]
        = {"video",       "null",        "jpegenc",    "jpegdec",  "! ", " !",         "(",
           ")",           ",",           ";",          " ",        "\n", "a=",         "size=",
           "64x48",       "quality=80%", "'",          "\"",       "#",  ":",          "=",
           "\xc3\xa4",    "\xff",        "rate=29.97", "seconds=", "1m", "file x.y4m", "send tcp://h:1",
           "99999999999", "-",           "\t"};
    std::mt19937 random(7);
    int graphs = 0, errors = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string graph = i % 2 != 0 ? "video ! " : "";
        for (int left = int(random() % 24); left > 0; --left)
            graph += pieces[random() % std::size(pieces)];
        if (i % 4 == 1)
            graph += " ! null";
        try {
            graphs += parseGraph(graph).empty() ? 0 : 1;
        } catch (const GraphError& error) {
            ++errors;
            const std::string two = error.describe(graph, "graph", 5);
            ASSERT_EQ(std::ranges::count(two, '\n'), 1) << graph;
            ASSERT_NE(two.find('^', two.find('\n')), std::string::npos);
            ASSERT_LT(two.find('\n'), 200u) << graph;
        }
    }
    EXPECT_GT(graphs, 30);
    EXPECT_GT(errors, 1000);
}

// Who wants what, who offers what, who has set it, and what to write.
TEST(graphText, NamesBothSidesOfALinkThatDoesNotFit)
{
    PictureFormat offered;
    offered.packing = ZV_IMAGE_PACKING_BGR;
    offered.width = 8, offered.height = 4;
    offered.kindBy = "node 2 'convert' with packing=BGR";
    auto said = [&](const std::string& graph) -> std::string {
        const std::vector<NodeText> nodes = parseGraph(graph);
        try {
            checkLink(nodes[nodes.size() - 2], nodes.back(), offered);
        } catch (const GraphError& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(said("video ! convert packing=BGR ! c=jpegenc ! file a.png"),
              "node 4 'file': wants packing RGB, RGBA, LUMINANCE; node 3 'c=jpegenc' offers BGR 8x4, set by node 2 "
              "'convert' with packing=BGR; put 'convert packing=RGB' between them");
    EXPECT_THAT(said("video ! file a.jpg"), HasSubstr("wants format JPEG; node 1 'video' offers BGR 8x4"));
    EXPECT_THAT(said("video ! file a.jpg"), EndsWith("put jpegenc between them"));
    EXPECT_EQ(said("video ! null"), "");
    offered.jpeg = true;
    EXPECT_THAT(said("video ! videoout"), HasSubstr("wants format CbYCrY; node 1 'video' offers JPEG 8x4"));
    EXPECT_EQ(said("video ! file a.jpg"), "");
}

TEST(graphText, ReadsLengthsOfTime)
{
    const struct {
        const char* word;
        double seconds;  // 0: refused
    } words[] = {{"10", 10}, {"2.5", 2.5}, {"90s", 90}, {"1m30s", 90}, {"1h", 3600}, {"1h1s", 3601}, {"0", 0},
                 {"", 0},    {"-1", 0},    {"1x", 0},   {"1s1m", 0},   {"m", 0},     {"inf", 0},     {"1m30", 0}};
    for (const auto& [word, expected] : words) {
        double seconds = 0;
        EXPECT_EQ(parseSeconds(word, &seconds), expected > 0) << word;
        EXPECT_DOUBLE_EQ(expected > 0 ? seconds : 0, expected) << word;
    }
}

// The help comes from the table that the parser reads: no kind and no member is missing,
// and every example is a graph.
TEST(grammar, HelpNamesEveryNodeAndMember)
{
    const std::string help = grammarHelp();
    for (const NodeKind* kind : nodeKinds()) {
        EXPECT_THAT(help, HasSubstr("  " + usageOf(*kind) + "\n"));
        for (const Member& member : kind->members)
            EXPECT_THAT(help, HasSubstr(member.help)) << kind->name << " " << member.name;
        std::string example = kind->example;
        if (const size_t clip = example.find("clip.mov"); clip != std::string::npos)
            example.replace(clip, 8, thisFile);
        EXPECT_THAT(shapeOf(example), testing::Contains(StartsWith(kind->name + std::string("<")))) << example;
    }
}
