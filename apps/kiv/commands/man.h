// man.h - "kiv man".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind manCommand;
