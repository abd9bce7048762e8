// commands.cpp - the table of all subcommands. Each stands in a file of its own.
#include "apps/kiv/command.h"
#include "apps/kiv/completion.h"
#include "apps/kiv/demo.h"
#include "apps/kiv/devices.h"
#include "apps/kiv/help.h"
#include "apps/kiv/inspect.h"
#include "apps/kiv/man.h"
#include "apps/kiv/play.h"
#include "apps/kiv/probe.h"
#include "apps/kiv/runCommand.h"
#include "apps/kiv/top.h"

static constexpr const CommandKind* kinds[] = {
    &runCommand,   &playCommand,    &demoCommand, &topCommand,        &inspectCommand,
    &probeCommand, &devicesCommand, &manCommand,  &completionCommand, &helpCommand,
};

std::span<const CommandKind* const> commandKinds() { return kinds; }
