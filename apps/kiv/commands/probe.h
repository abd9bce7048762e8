// probe.h - "kiv probe".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind probeCommand;
