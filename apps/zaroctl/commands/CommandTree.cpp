#include "commands/CommandTree.h"

#include <sstream>
#include <utility>

#include "console/Text.h"
#include "store/Administration.h"

namespace {

struct GroupRow {
  const char* word;
  const char* description;
};

// clang-format off
constexpr GroupRow kGroups[] = {
    {"action", "Rule actions"},
    {"admin", "Administrators"},
    {"base64", "Base64 as the gateway stores it"},
    {"blob", "Stored records"},
    {"entity", "Managing groups"},
    {"filter", "Rule filters"},
    {"group", "Address groups"},
    {"object", "Named objects"},
    {"policy", "Policies that policy servers hand out"},
    {"quarantine", "Quarantine areas"},
    {"rule", "Rules that decide mail"},
    {"rules", "The order of rule filters"},
    {"schema", "The version of the database's schema"},
    {"servers", "Registered policy servers"},
    {"settings", "Settings of policy servers, their clients and the mail filter"},
};
// clang-format on

const char* groupDescription(const std::string& word) {
  for (const GroupRow& group : kGroups) {
    if (word == group.word) {
      return group.description;
    }
  }
  return "";
}

CLI::App* group(CLI::App& parent, const std::string& word) {
  const auto known = parent.get_subcommands([&](const CLI::App* app) { return app->get_name() == word; });
  if (!known.empty()) {
    return known.front();
  }
  CLI::App* made = parent.add_subcommand(word, groupDescription(word));
  made->require_subcommand(1);
  return made;
}

}  // namespace

CLI::App* CommandTree::add(const std::string& words, const std::string& description,
                           const std::vector<std::string>& examples, Action action) {
  std::istringstream rest(words);
  CLI::App* parent = &m_root;
  std::string word;
  std::string next;
  rest >> word;
  while (rest >> next) {
    parent = group(*parent, word);
    word = std::exchange(next, {});
  }
  CLI::App* command = parent->add_subcommand(word, description);
  command->footer(examplesText(examples));
  command->callback([this, action = std::move(action)] { m_chosen = action; });
  return command;
}

Action tellingNotThere(const Action& action) {
  return [action](Output& out) {
    try {
      return action(out);
    } catch (const NotThere& notThere) {
      diagnose(notThere.what());
      return ExitCode::NotFound;
    }
  };
}

std::string examplesText(const std::vector<std::string>& examples) {
  std::string text = examples.size() == 1 ? "Example:" : "Examples:";
  for (const std::string& example : examples) {
    text += "\n  " + example;
  }
  return text;
}
