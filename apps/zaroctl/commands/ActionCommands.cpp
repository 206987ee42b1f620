// action list, action show BITMAP
#include <memory>
#include <string>
#include <vector>

#include "ZaroAction.h"
#include "ZaroRuntime/DisplayLanguage.h"
#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"

namespace {

constexpr char kSet = '1';
constexpr char kNotSet = '0';
constexpr const char* kDisplaySection = "UiDisplay";

const char* changeText(ZaroAction::Change change) {
  switch (change) {
    case ZaroAction::Change::No:
      return "no";
    case ZaroAction::Change::Yes:
      return "yes";
    case ZaroAction::Change::Unexpected:
      break;
  }
  return "unexpected";
}

ExitCode listActions(Output& out) {
  Json rows = Json::array();
  for (const ZaroAction::Definition& action : ZaroAction::definitions()) {
    rows.push_back({{"value", static_cast<int>(action.type)},
                    {"name", action.name},
                    {"x_header_name", action.nameForXHdr},
                    {"terminal", action.terminal},
                    {"changes_header", changeText(action.header)},
                    {"changes_body", changeText(action.body)}});
  }
  out.rows({{"value", "VALUE"},
            {"name", "NAME"},
            {"x_header_name", "X-HEADER"},
            {"terminal", "TERMINAL"},
            {"changes_header", "CHANGES HEADER"},
            {"changes_body", "CHANGES BODY"}},
           rows);
  return ExitCode::Found;
}

void refuseWrongLength(const std::string& bitMap) {
  constexpr std::size_t kLength = ZaroAction::kActionBitMapLength;
  if (bitMap.size() == kLength) {
    return;
  }
  throw UsageError("the bitmap " + quoted(bitMap) + " has " + std::to_string(bitMap.size()) + " bytes; it takes " +
                   std::to_string(kLength) + " characters, one for each position from 0 to " +
                   std::to_string(kLength - 1) + ", \"1\" for set and \"0\" for not set");
}

std::string displayText(const std::string& bitMap) {
  std::string tokens;
  try {
    ZaroAction::CreateActionTokenString(bitMap.c_str(), tokens);
  } catch (const char* failure) {
    throw zaroruntime::RuntimeError(std::string("no display strings: ") + failure,
                                    zaroruntime::FailureKind::Configuration);
  }
  return tokens;
}

void tellOfMissingTexts(const std::vector<std::string>& keys) {
  for (const std::string& key : zaroruntime::missingDisplayTexts(kDisplaySection, keys)) {
    diagnose("no file of display strings has a text for " + quoted(key) + "; the key is shown instead");
  }
}

// The key of a position's display text; null when it has none.
const char* keyOf(int position) {
  for (const ZaroAction::TokenPosition& token : ZaroAction::tokenPositions()) {
    if (token.position == position) {
      return token.resourceKey;
    }
  }
  return nullptr;
}

ExitCode showActions(Output& out, const std::string& bitMap) {
  refuseWrongLength(bitMap);
  Json positions = Json::array();
  Json keys = Json::array();
  Json withoutText = Json::array();
  for (int position = 0; position < ZaroAction::kActionBitMapLength; ++position) {
    const char character = bitMap[static_cast<std::size_t>(position)];
    if (character == kSet) {
      const char* key = keyOf(position);
      positions.push_back(position);
      key != nullptr ? keys.push_back(key) : withoutText.push_back(position);
    } else if (character != kNotSet) {
      diagnose("position " + std::to_string(position) + " holds " + quoted(std::string(1, character)) +
               ", which counts as not set");
    }
  }
  const std::string display = displayText(bitMap);
  tellOfMissingTexts(keys);
  out.record({{"display", display}, {"positions", positions}, {"keys", keys}, {"without_text", withoutText}});
  return ExitCode::Found;
}

}  // namespace

void addActionList(CommandTree& tree) {
  tree.add("action list", "List the actions that rules know, strongest first",
           {"zaroctl action list", "zaroctl action list --json"}, listActions);
}

void addActionShow(CommandTree& tree) {
  const auto bitMap = std::make_shared<std::string>();
  CLI::App* command = tree.add(
      "action show", "Show what an action bitmap stands for, in the installation's language",
      {"zaroctl action show 11000000000000000", "LANG=de_DE.UTF-8 zaroctl action show --json 00001000000010000"},
      [bitMap](Output& out) { return showActions(out, *bitMap); });
  command->add_option("BITMAP", *bitMap, "17 characters, \"1\" for each position that is set")->required();
}
