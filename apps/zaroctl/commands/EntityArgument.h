// The managing group that a command is about, on its command line.
#pragma once

#include "commands/CommandTree.h"
#include "store/Administration.h"

void addEntityArgument(CLI::App& command, WantedEntity& entity);
