// top.h - "kiv top".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind topCommand;
