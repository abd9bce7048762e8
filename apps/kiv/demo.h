// demo.h - "kiv demo".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind demoCommand;
