// help.h - "kiv help".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind helpCommand;
