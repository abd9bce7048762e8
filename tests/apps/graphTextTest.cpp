// The graph language: what is read from a text, and what is said of a wrong one.
#include "apps/kiv/graphText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

static const char* const thisFile = "/proc/self/exe";  // any file that can be read

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

TEST(graphText, ReadsSizesPackingsFractionsAndQuotes)
{
    const std::vector<NodeText> nodes
        = parseGraph("recv unix:/tmp/x size=1280x720 packing=RGB\n!\tfile \"a b!.y4m\" rate=30000/1001");
    EXPECT_EQ(nodes[0].value("size").number, 1280);
    EXPECT_EQ(nodes[0].value("size").second, 720);
    EXPECT_EQ(nodes[0].value("packing").number, packingByName("RGB"));
    EXPECT_EQ(nodes[1].value("PATH").text, "a b!.y4m");
    EXPECT_EQ(nodes[1].value("rate").number, 30000);
    EXPECT_EQ(nodes[1].value("rate").second, 1001);
}

// Every error names the node's place and says what to write; the text is marked there.
TEST(graphText, SaysWhatIsWrongAndWhere)
{
    const std::string movie = std::string("movie ") + thisFile;
    const struct {
        std::string graph, message, marked;
    } wrong[] = {
        {"", "node 1 is missing", ">>>  <<<"},
        {"! null", "node 1 is missing", ">>> ! <<<"},
        {movie + " ! ! null", "node 2 is missing", "! >>> ! <<<"},
        {movie + " ! null !", "node 3 is missing", "!>>>  <<<"},
        {movie + " ! jpgdec ! null", "node 2 'jpgdec': no such node; did you mean 'jpegdec'?", ">>> jpgdec <<<"},
        {movie + " ! zzzzzz ! null", "no such node; 'kiv help'", ">>> zzzzzz <<<"},
        {movie + " evry ! null", "node 1 'movie': does not know 'evry'; did you mean 'every'?", ">>> evry <<<"},
        {movie + " every every ! null", "'every' is given twice", "every >>> every <<<"},
        {movie + " every=1 ! null", "'every' takes no value", ">>> every=1 <<<"},
        {movie + " rate ! null", "'rate' needs a value", ">>> rate <<<"},
        {movie + " rate=0 ! null", "rate '0' must lie between 0.01 and 100", ">>> rate=0 <<<"},
        {movie + " rate=nan ! null", "must be a number", ">>> rate=nan <<<"},
        {"movie ! null", "node 1 'movie': needs FILE; it is written: movie FILE [loop]", ">>> movie <<<"},
        {"movie /nowhere/at.all ! null", "'/nowhere/at.all' cannot be read: No such file", ">>> /nowhere/at.all <<<"},
        {"recv tcp://:1 ! null", "node 1 'recv': needs size", ">>> recv tcp://:1 <<<"},
        {"recv tcp://:1 size=12 ! null", "size '12' must be WIDTHxHEIGHT", ">>> size=12 <<<"},
        {"recv tcp://:1 size=0x5 ! null", "must be WIDTHxHEIGHT", ">>> size=0x5 <<<"},
        {"recv tcp://:1 size=99999x5 ! null", "is larger than 16384 x 16384", ">>> size=99999x5 <<<"},
        {"recv http://x size=1x1 ! null", "must be tcp://host:port or unix:path", ">>> http://x <<<"},
        {"recv tcp://:1 size=8x8 packing=YUV ! null", "is no packing; there are CbYCrY", ">>> packing=YUV <<<"},
        {movie + " ! jpegenc quality=7.5 ! null", "node 2 'jpegenc': quality '7.5' must be a whole number",
         "quality=7.5 <<<"},
        {movie + " ! file a.y4m rate=1/0 ! null", "must be N or N/D", ">>> rate=1/0 <<<"},
        {"jpegdec ! null", "node 1 'jpegdec': a graph begins with a source", ">>> jpegdec <<<"},
        {movie + " ! jpegdec", "node 2 'jpegdec': a graph ends with a sink", ">>> jpegdec <<<"},
        {movie + " ! null ! null", "node 2 'null': is a sink; nothing can stand behind it", ">>> null <<<"},
        {movie + " ! " + movie + " ! null", "node 2 'movie': is a source", "! >>> movie"},
        {movie + " ! file 'a.y4m", "a quote is opened and never closed", "file >>> 'a.y4m <<<"},
    };
    for (const auto& [graph, message, marked] : wrong) {
        try {
            parseGraph(graph);
            ADD_FAILURE() << "taken: " << graph;
        } catch (const GraphError& error) {
            EXPECT_THAT(error.what(), HasSubstr(message)) << graph;
            EXPECT_THAT(error.describe(graph), HasSubstr(marked)) << graph;
        }
    }
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

// The help comes from the table that the parser reads: no kind and no member is missing.
TEST(grammar, HelpNamesEveryNodeAndMember)
{
    const std::string help = grammarHelp();
    for (const NodeKind& kind : nodeKinds()) {
        EXPECT_THAT(help, HasSubstr("  " + usageOf(kind) + "\n"));
        for (const Member& member : kind.members)
            EXPECT_THAT(help, HasSubstr(member.help)) << kind.name << " " << member.name;
    }
}
