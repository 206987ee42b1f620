#include "commands/EntityArgument.h"

void addEntityArgument(CLI::App& command, WantedEntity& entity) {
  command.add_option("ENTITY", entity.text, "The managing group's name, exactly as stored")->required()->type_name("");
  command.add_flag("--id", entity.isId, "ENTITY is the managing group's identifier");
}
