// help.h - "kiv help".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind helpCommand;
