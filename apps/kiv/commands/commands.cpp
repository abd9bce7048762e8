// commands.cpp - the table of all subcommands. Each stands in a file of its own.
#include "apps/kiv/commands/command.h"
#include "apps/kiv/commands/completion.h"
#include "apps/kiv/commands/demo.h"
#include "apps/kiv/commands/devices.h"
#include "apps/kiv/commands/help.h"
#include "apps/kiv/commands/inspect.h"
#include "apps/kiv/commands/man.h"
#include "apps/kiv/commands/play.h"
#include "apps/kiv/commands/probe.h"
#include "apps/kiv/commands/runCommand.h"
#include "apps/kiv/commands/top.h"

static constexpr const CommandKind* kinds[] = {
    &runCommand,   &playCommand,    &demoCommand, &topCommand,        &inspectCommand,
    &probeCommand, &devicesCommand, &manCommand,  &completionCommand, &helpCommand,
};

std::span<const CommandKind* const> commandKinds() { return kinds; }
