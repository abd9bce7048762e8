// completion.h - "kiv completion".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind completionCommand;
