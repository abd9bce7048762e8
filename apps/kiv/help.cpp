// help.cpp - see help.h.
#include "apps/kiv/help.h"

#include "apps/kiv/commandLine.h"
#include "apps/kiv/grammar.h"
#include "apps/kiv/run.h"
#include "apps/kiv/text.h"

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
