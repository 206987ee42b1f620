#include "Commands.h"

namespace {

// In the order of the help text.
constexpr void (*kCommands[])(CommandTree&) = {
    addInit,
    addCheck,
    addAdminId,
};

}  // namespace

void addAllCommands(CommandTree& tree) {
  for (const auto add : kCommands) {
    add(tree);
  }
}
