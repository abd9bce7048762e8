// devices.h - "kiv devices".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind devicesCommand;
