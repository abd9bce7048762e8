// dot.cpp - see dot.h.
#include "apps/kiv/report/dot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "apps/kiv/files/frameWriter.h"
#include "apps/kiv/graph/link.h"
#include "apps/kiv/support/text.h"

namespace {

// A label in quotes.
std::string quoted(const std::string& words)
{
    std::string out = "\"";
    for (const char c : words) {
        if (c == '"' || c == '\\')
            out += '\\';
        if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out + "\"";
}

std::string labelOf(const NodeText& node)
{
    std::string label = text("%d  %s", node.number, node.title().c_str());
    for (size_t i = 0; i < node.values.size(); ++i) {
        const Member& member = node.kind->members[i];
        if (!node.values[i].given)
            continue;
        const bool bare = member.positional || member.type == MemberType::flag;
        label += "\n" + (bare ? "" : std::string(member.name) + "=") + node.values[i].text;
    }
    return label;
}

std::string save(const std::string& path, const std::string& words)
{
    OutputFile file;
    std::string wrong = file.open(path);
    if (wrong.empty())
        wrong = file.write(words.data(), words.size());
    return wrong.empty() ? file.close() : wrong;
}

// Graphviz reads the text from a file of its own and writes the picture.
std::string draw(const std::string& path, const std::string& source)
{
    const char* const arguments[] = {"dot", "-Tsvg", "-o", path.c_str(), source.c_str(), nullptr};
    pid_t child = -1;
    const int error = posix_spawnp(&child, "dot", nullptr, nullptr, const_cast<char* const*>(arguments), environ);
    if (error != 0)
        return text("'dot' of Graphviz cannot be run: %s; the graph as text is in %s", strerror(error), source.c_str());
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) { }
    if (status != 0)
        return "'dot' of Graphviz failed; the graph as text is in " + source;
    unlink(source.c_str());
    return "";
}

}  // namespace

std::string dotOf(Graph& graph, const StatsFeed* feed)
{
    std::string dot = "digraph kiv {\n  rankdir=LR;\n  node [shape=box, style=rounded, fontname=\"sans-serif\"];\n"
                      "  edge [fontname=\"sans-serif\", fontsize=10];\n";
    for (const auto& part : graph.parts())
        dot += text("  n%d [label=%s];\n", part->nodeText().number, quoted(labelOf(part->nodeText())).c_str());
    for (const auto& part : graph.parts()) {
        const GraphPart* above = graph.above(*part);
        if (above == nullptr)
            continue;
        std::string label = describeLink(graph.formatOf(*above));
        if (const long long frames = feed != nullptr ? feed->of(*part).in : 0; frames > 0)
            label += text("\n%lld frames", frames);
        dot += text("  n%d -> n%d [label=%s];\n", above->nodeText().number, part->nodeText().number,
                    quoted(label).c_str());
    }
    return dot + "}\n";
}

std::string writeDot(const std::string& path, const std::string& dot)
{
    if (!path.ends_with(".svg"))
        return save(path, dot);
    const std::string source = path.substr(0, path.size() - 4) + ".dot";
    const std::string wrong = save(source, dot);
    return wrong.empty() ? draw(path, source) : wrong;
}
