// top.h - "kiv top".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind topCommand;
