// probe.h - "kiv probe".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind probeCommand;
