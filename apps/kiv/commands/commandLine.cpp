// commandLine.cpp - see commandLine.h.
#include "apps/kiv/commands/commandLine.h"

#include <algorithm>
#include <cstring>

#include "apps/kiv/graph/run.h"
#include "apps/kiv/graph/values.h"
#include "apps/kiv/support/text.h"

namespace {

constexpr const char* exitCodes[] = {
    "0  all went well",
    "1  something failed while it ran; one line says what",
    "2  the command line or the graph cannot be meant; one or two lines say where and what to write",
};

std::string footerOf(const CommandKind& kind)
{
    std::string footer;
    if (*kind.notes != '\0')
        footer += std::string(kind.notes) + "\n\n";
    footer += "Examples:\n";
    for (const char* example : kind.examples)
        footer += text("  %s\n", example);
    return footer;
}

std::string closing()
{
    std::string words
        = "'kiv COMMAND --help' has examples, 'kiv inspect' lists the nodes, 'kiv man graph' has the whole\n"
          "language. Exit codes:\n";
    for (const char* line : exitCodes)
        words += text("  %s\n", line);
    return words;
}

}  // namespace

std::span<const char* const> exitCodeLines() { return exitCodes; }

std::string checkFrames(const std::string& word)
{
    long long frames;
    return parseFrames(word, &frames) ? "" : "'" + word + "' is no number of frames; write 1 or more";
}

std::string checkSeconds(const std::string& word)
{
    double seconds;
    return parseSeconds(word, &seconds) ? "" : "'" + word + "' is no length of time; write 10 or 1m30s";
}

CommandLine::CommandLine() : app_("Runs graphs of media nodes.", "kiv")
{
    app_.set_version_flag("--version", std::string("kiv " KIV_VERSION));
    app_.require_subcommand(0, 1);
    app_.footer(closing());
    for (const CommandKind* kind : commandKinds()) {
        CLI::App* sub = app_.add_subcommand(kind->name, kind->help);
        commands_.push_back(kind->make());
        commands_.back()->declare(*sub);
        sub->footer(footerOf(*kind));
    }
}

int CommandLine::run(int argc, char** argv)
{
    auto isFirst = [&](const CommandKind* kind) { return strcmp(kind->name, argv[1]) == 0; };
    if (argc > 1 && argv[1][0] != '-' && std::ranges::none_of(commandKinds(), isFirst)) {
        say("there is no command '%s'; 'kiv --help' lists them", argv[1]);
        return exitUsage;
    }
    try {
        app_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == int(CLI::ExitCodes::Success))
            return app_.exit(error);
        const auto given = app_.get_subcommands();
        const std::string help = given.empty() ? "'kiv --help'" : "'kiv " + given.front()->get_name() + " --help'";
        say("%s; %s shows what there is", error.what(), help.c_str());
        return exitUsage;
    }
    for (size_t i = 0; i < commands_.size(); ++i)
        if (app_.got_subcommand(commandKinds()[i]->name))
            return commands_[i]->run();
    say("run, play, demo or what? 'kiv --help' shows what there is");
    return exitUsage;
}
