#include "commands/GroupArgument.h"

#include "store/Administration.h"

Actor WantedActor::find() const {
  return admin ? Actor(findViewer(*admin)) : std::nullopt;
}

StoredGroup WantedGroup::find(const Actor& actor) const {
  return isId ? findGroup(idArgument("GROUP", text), actor) : findGroup(text, actor);
}

void addActorOption(CLI::App& command, WantedActor& as) {
  command.add_option("--as", as.admin, "The administrator who asks; otherwise every group is in reach")->type_name("ADMIN");
}

void addGroupArgument(CLI::App& command, WantedGroup& group) {
  command.add_option("GROUP", group.text, "The group's name, exactly as stored")->required()->type_name("");
  command.add_flag("--id", group.isId, "GROUP is the group's identifier");
  addActorOption(command, group.as);
}
