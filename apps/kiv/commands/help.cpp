// help.cpp - see help.h.
#include "apps/kiv/commands/help.h"

#include "apps/kiv/commands/commandLine.h"
#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/support/text.h"

namespace {

class HelpCommand : public Command {
public:
    void declare(CLI::App&) override { }
    int run() override;
};

int HelpCommand::run()
{
    CommandLine line;
    const std::string usage = line.app().get_formatter()->make_help(&line.app(), "kiv", CLI::AppFormatMode::All);
    std::string rules = "A graph is written so, one word to the shell:\n";
    for (const char* rule : grammarRules())
        rules += text("  %s\n", rule);
    std::string examples = "\nExamples:\n";
    for (const CommandKind* kind : commandKinds())
        for (const char* example : kind->examples)
            examples += text("  %s\n", example);
    return printOut(usage + "\n" + rules + "\n" + grammarHelp() + examples) ? exitGood : exitFailed;
}

constexpr const char* examples[] = {"kiv help | less"};

}  // namespace

const CommandKind helpCommand = {
    .name = "help",
    .help = "everything on one page: commands, nodes, members, examples",
    .notes = "",
    .examples = examples,
    .make = makeCommand<HelpCommand>,
};
