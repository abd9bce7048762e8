// play.h - kiv play: a movie, a camera or what a peer sends, in a window.
#pragma once

#include "apps/kiv/commands/command.h"

extern const CommandKind playCommand;
