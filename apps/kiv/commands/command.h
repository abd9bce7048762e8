// command.h - the subcommands of kiv. One table: the command line, the help, completion
// and the manual page all read it.
#pragma once

#include <memory>
#include <span>
#include <string>

namespace CLI {
class App;
}

// One subcommand with what was given to it.
class Command {
public:
    virtual ~Command() = default;
    virtual void declare(CLI::App& line) = 0;  // its arguments and options
    virtual int run() = 0;  // returns an ExitCode
};

// One subcommand as people learn of it. A new one is such a record beside its class, and
// one line in commands.cpp.
struct CommandKind {
    const char* name;
    const char* help;  // one line
    const char* notes;  // what the options do not say, in whole paragraphs; "" for nothing
    std::span<const char* const> examples;  // whole command lines
    std::unique_ptr<Command> (*make)();
};

template <class Kind> std::unique_ptr<Command> makeCommand() { return std::make_unique<Kind>(); }

// Every subcommand, in the order of the help.
std::span<const CommandKind* const> commandKinds();

// For options; "" or what is wrong.
std::string checkFrames(const std::string& word);
std::string checkSeconds(const std::string& word);
