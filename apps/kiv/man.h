// man.h - "kiv man".
#pragma once

#include "apps/kiv/command.h"

extern const CommandKind manCommand;
