// commandLine.h - the whole command line: all subcommands with their options.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "apps/kiv/commands/command.h"

class CommandLine {
public:
    CommandLine();

    // Reads the arguments and runs what they ask for. Returns an ExitCode.
    int run(int argc, char** argv);
    CLI::App& app() { return app_; }
    // The subcommand of that name, which there is.
    CLI::App* subcommand(const std::string& name) { return app_.get_subcommand(name); }

private:
    CLI::App app_;
    std::vector<std::unique_ptr<Command>> commands_;  // in the order of the table
};

// The exit codes, one a line: "0  all went well".
std::span<const char* const> exitCodeLines();
