// man.cpp - see man.h.
#include "apps/kiv/commands/man.h"

#include "apps/kiv/commands/commandLine.h"
#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/support/text.h"

namespace {

// Text for roff: no word of it is a request or an escape.
std::string roff(const std::string& words)
{
    std::string out;
    bool lineBegin = true;
    for (const char c : words) {
        if (lineBegin && (c == '.' || c == '\''))
            out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else if (c == '\'')
            out += "\\(aq";
        else
            out += c;
        lineBegin = c == '\n';
    }
    return out;
}

std::string heading(const char* words) { return text(".SH %s\n", words); }

// A term with what it means.
std::string entry(const std::string& term, const std::string& meaning)
{
    return ".TP\n.B " + roff(term) + "\n" + roff(meaning) + "\n";
}

std::string verbatim(std::span<const char* const> lines)
{
    std::string out = ".PP\n.nf\n.RS\n";
    for (const char* line : lines)
        out += roff(line) + "\n";
    return out + ".RE\n.fi\n";
}

std::string commandSection(const CommandKind& kind, const CLI::App& sub)
{
    std::string usage = std::string("kiv ") + kind.name;
    std::string options;
    for (const CLI::Option* option : sub.get_options()) {
        const std::string name = option->get_name(option->get_positional(), true);
        if (option->get_positional())
            usage += option->get_required() ? " " + name : " [" + name + "]";
        options += entry(name, option->get_description());
    }
    std::string section = ".SS " + roff(usage) + "\n" + roff(kind.help) + ".\n";
    if (*kind.notes != '\0')
        section += ".PP\n" + roff(kind.notes) + "\n";
    return section + options + verbatim(kind.examples);
}

std::string programPage()
{
    CommandLine line;
    std::string page = ".TH KIV 1 \"\" \"kiv " KIV_VERSION "\" \"User Commands\"\n";
    page += heading("NAME") + "kiv \\- run graphs of media nodes\n";
    page += heading("SYNOPSIS") + ".B kiv\nCOMMAND [OPTIONS] [ARGUMENTS]\n";
    page += heading("DESCRIPTION");
    page += roff(
        "A graph is a tree of nodes: a camera, a movie or a connection at its head, JPEG decoders, encoders and "
        "converters between, files, windows, a video output or a connection at its ends. Frames travel as "
        "reference-counted buffers from pools that the nodes negotiate; one loop drives the graph.\n");
    page += ".PP\nThe language of graphs has a page of its own:\n.BR kiv\\-graph (5).\n";
    page += heading("COMMANDS");
    for (const CommandKind* kind : commandKinds())
        page += commandSection(*kind, *line.subcommand(kind->name));
    page += heading("EXIT STATUS");
    for (const char* code : exitCodeLines())
        page += entry(std::string(code, 1), code + 3);
    page += heading("ENVIRONMENT") + entry("NO_COLOR", "when set, no words are emphasised on a terminal");
    page += heading("SIGNALS");
    page += entry("SIGINT, SIGTERM", "end a run in order, with its summary; a second one at once");
    page += entry("SIGUSR1", "prints what every pool of a running graph holds, to standard error");
    return page + heading("SEE ALSO") + ".BR kiv\\-graph (5)\n";
}

std::string nodeSection(const NodeKind& kind)
{
    std::string section = ".SS " + roff(usageOf(kind)) + "\n" + roff(kind.help) + ".\n";
    for (const Member& member : kind.members) {
        const std::string bounds = boundsOf(member);
        section += entry(usageOf(member),
                         member.help + std::string("; ") + typeName(member.type)
                             + (bounds.empty() ? "" : " (" + bounds + ")"));
    }
    if (kind.role != NodeRole::source)
        section += ".PP\nTakes " + roff(kind.takes().names()) + ".\n";
    if (kind.role != NodeRole::sink)
        section += ".PP\nGives " + roff(kind.gives().names()) + ".\n";
    const char* const example[] = {kind.example};
    return section + verbatim(example);
}

std::string graphPage()
{
    std::string page = ".TH KIV\\-GRAPH 5 \"\" \"kiv " KIV_VERSION "\" \"File Formats\"\n";
    page += heading("NAME") + "kiv\\-graph \\- the language of graphs\n";
    page += heading("SYNOPSIS") + verbatim(grammarRules());
    page += heading("DESCRIPTION");
    page
        += roff("A chain begins with a source; filters follow, and a sink ends it. Where frames go several ways, the "
                "branches stand in ( ) with , between, and may branch again; every branch gets every frame, in the "
                "order of the text. ; begins another graph beside the first. A NAME before a node stands in everything "
                "that is said of it.\n");
    page += ".PP\n"
        + roff("Members follow the node's kind: first what has no name (a file, a URL), then flags and name=value in "
               "any "
               "order. Quotes '...' and \"...\" keep blanks together. Marks may touch words; inside a word, and in "
               "quotes, they are letters. # begins a comment, line breaks are blanks. A graph is one word to the "
               "shell, "
               "or a file for kiv run -f.\n");
    page += heading("VALUES");
    for (const MemberType type : {MemberType::rate, MemberType::size, MemberType::seconds, MemberType::url})
        page += ".PP\n" + roff(typeName(type)) + "\n";
    page += ".PP\n" + roff("packings: " + packingNames()) + "\n";
    page += ".PP\nA number may carry its unit: 80%, 30fps, 2x.\n";
    page += heading("NODES");
    for (const NodeKind* kind : nodeKinds())
        page += nodeSection(*kind);
    static constexpr const char* example[] = {
        "# kiv run -f camera.kiv",
        "cam=video:pattern size=720p rate=29.97 ! (",
        "  enc=jpegenc quality=80% ! ( send tcp://localhost:5000, file out.mjpeg ),",
        "  convert packing=RGB ! file picture-%03d.png",
        ");",
        "movie clip.mov loop ! null",
    };
    page += heading("EXAMPLE") + verbatim(example);
    return page + heading("SEE ALSO") + ".BR kiv (1)\n";
}

class ManCommand : public Command {
public:
    void declare(CLI::App& line) override { line.add_option("PAGE", page_, "1: the program; graph: the language"); }
    int run() override;

private:
    std::string page_ = "1";
};

int ManCommand::run()
{
    if (page_ != "1" && page_ != "graph") {
        say("man: there is no page '%s'; write 1 or graph", page_.c_str());
        return exitUsage;
    }
    return printOut(page_ == "1" ? programPage() : graphPage()) ? exitGood : exitFailed;
}

constexpr const char* examples[] = {
    "kiv man 1 | man -l -",
    "kiv man graph | man -l -",
};

}  // namespace

const CommandKind manCommand = {
    .name = "man",
    .help = "print a manual page, for man -l -",
    .notes = "",
    .examples = examples,
    .make = makeCommand<ManCommand>,
};
