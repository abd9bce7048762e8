// completion.cpp - see completion.h.
#include "apps/kiv/commands/completion.h"

#include "apps/kiv/commands/commandLine.h"
#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/graph/run.h"
#include "apps/kiv/support/text.h"

namespace {

// "run demo ..."
std::string commandNames()
{
    std::string names;
    for (const CommandKind* kind : commandKinds())
        names += (names.empty() ? "" : " ") + std::string(kind->name);
    return names;
}

// The options of a subcommand, separated by blanks.
std::string optionsOf(const CLI::App& sub)
{
    std::string names;
    for (const CLI::Option* option : sub.get_options())
        for (const std::string& name : option->get_lnames())
            names += (names.empty() ? "--" : " --") + name;
    return names;
}

std::string nodeNames()
{
    std::string names;
    for (const NodeKind* kind : nodeKinds())
        names += (names.empty() ? "" : " ") + std::string(kind->name);
    return names;
}

std::string bashScript(CommandLine& line)
{
    std::string cases;
    for (const CommandKind* kind : commandKinds())
        cases += text("    %s) words='%s' ;;\n", kind->name, optionsOf(*line.subcommand(kind->name)).c_str());
    return text(R"(# Completion for bash: source <(kiv completion bash)
_kiv()
{
  local now=${COMP_WORDS[COMP_CWORD]} words= more=
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W '%s --help --version' -- "$now"))
    return
  fi
  case ${COMP_WORDS[1]} in
%s  esac
  case ${COMP_WORDS[1]} in
    inspect) more=' %s' ;;
    completion) more=' bash zsh' ;;
    man) more=' 1 graph' ;;
  esac
  case $now in
    -*) COMPREPLY=($(compgen -W "$words" -- "$now")) ;;
    *) COMPREPLY=($(compgen -W "$more" -- "$now") $(compgen -f -- "$now")) ;;
  esac
}
complete -F _kiv kiv
)",
                commandNames().c_str(), cases.c_str(), nodeNames().c_str());
}

// What stands in '...' of zsh's descriptions.
std::string described(const std::string& words)
{
    std::string out;
    for (const char c : words) {
        if (c == '\'')
            out += "'\\''";
        else if (c == '[' || c == ']' || c == ':')
            out += std::string("\\") + c;
        else
            out += c;
    }
    return out;
}

std::string zshScript(CommandLine& line)
{
    std::string commands, cases;
    for (const CommandKind* kind : commandKinds()) {
        commands += text("    '%s:%s'\n", kind->name, described(kind->help).c_str());
        cases += text("    %s) _arguments", kind->name);
        for (const CLI::Option* option : line.subcommand(kind->name)->get_options())
            for (const std::string& name : option->get_lnames())
                cases += text(" \\\n      '--%s[%s]%s'", name.c_str(), described(option->get_description()).c_str(),
                              option->get_type_size() != 0 ? ":value:_files" : "");
        const std::string kindName = kind->name;
        const std::string more = kindName == "inspect" ? "(" + nodeNames() + ")"
            : kindName == "completion"                 ? "(bash zsh)"
            : kindName == "man"                        ? "(1 graph)"
                                                       : "_files";
        cases += " \\\n      '*:argument:" + more + "' ;;\n";
    }
    return text(R"(#compdef kiv
# Completion for zsh: kiv completion zsh > _kiv, in a folder of $fpath
_kiv()
{
  local -a commands
  commands=(
%s  )
  if (( CURRENT == 2 )); then
    _describe command commands
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
%s  esac
}
_kiv "$@"
)",
                commands.c_str(), cases.c_str());
}

class CompletionCommand : public Command {
public:
    void declare(CLI::App& line) override { line.add_option("SHELL", shell_, "bash or zsh")->required(); }
    int run() override;

private:
    std::string shell_;
};

int CompletionCommand::run()
{
    CommandLine line;
    if (shell_ != "bash" && shell_ != "zsh") {
        say("completion: there is none for '%s'; write bash or zsh", shell_.c_str());
        return exitUsage;
    }
    return printOut(shell_ == "bash" ? bashScript(line) : zshScript(line)) ? exitGood : exitFailed;
}

constexpr const char* examples[] = {
    "source <(kiv completion bash)",
    "kiv completion zsh > ~/.zsh/_kiv",
};

}  // namespace

const CommandKind completionCommand = {
    .name = "completion",
    .help = "print the completion for a shell: bash or zsh",
    .notes = "",
    .examples = examples,
    .make = makeCommand<CompletionCommand>,
};
