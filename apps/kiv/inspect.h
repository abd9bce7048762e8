// inspect.h - "kiv inspect".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind inspectCommand;
