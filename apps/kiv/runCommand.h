// runCommand.h - "kiv run".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind runCommand;
