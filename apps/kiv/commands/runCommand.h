// runCommand.h - "kiv run".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind runCommand;
