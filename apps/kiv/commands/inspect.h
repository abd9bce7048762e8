// inspect.h - "kiv inspect".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind inspectCommand;
