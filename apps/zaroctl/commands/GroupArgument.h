// The address group that a command is about, and for whom, on its command line.
#pragma once

#include <optional>
#include <string>

#include "commands/CommandTree.h"
#include "store/AddressGroups.h"

// The administrator for whom a command works, if it names one.
struct WantedActor {
  std::optional<std::string> admin;

  Actor find() const;
};

// A group as the command line names it.
struct WantedGroup {
  WantedActor as;
  std::string text;
  bool isId = false;

  StoredGroup find(const Actor& actor) const;
};

void addActorOption(CLI::App& command, WantedActor& as);
void addGroupArgument(CLI::App& command, WantedGroup& group);
