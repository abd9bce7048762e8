// devices.h - "kiv devices".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind devicesCommand;
