// Every command of the program. A new one is a file of its own, a declaration here and a line in Commands.cpp.
#pragma once

class CommandTree;

void addAdminId(CommandTree& tree);
void addCheck(CommandTree& tree);
void addInit(CommandTree& tree);
void addLint(CommandTree& tree);
void addMatch(CommandTree& tree);

void addAllCommands(CommandTree& tree);
