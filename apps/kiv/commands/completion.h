// completion.h - "kiv completion".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind completionCommand;
