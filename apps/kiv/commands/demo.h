// demo.h - "kiv demo".
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind demoCommand;
