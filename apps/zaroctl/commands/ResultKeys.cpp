#include "commands/ResultKeys.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>

#include "console/Text.h"
#include "console/UsageError.h"

namespace {

std::vector<std::string> wordsIn(const char* text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

std::string listOf(const std::vector<std::string>& words) {
  std::string list;
  for (const std::string& word : words) {
    list.append(list.empty() ? "" : ", ").append(word);
  }
  return list;
}

}  // namespace

const std::vector<ResultKeys>& resultKeys() {
  constexpr const char* kEntity = "id type name";
  constexpr const char* kAdmin = "id name root entities";
  constexpr const char* kServer = "id address port";
  constexpr const char* kSetting = "section key value stored from note";
  constexpr const char* kRule =
      "id name position enabled for recipients lists compare actions bitmap quarantine area reply tag header_value "
      "address modifiable";
  constexpr const char* kEntry =
      "kind id name content position enabled for recipients lists compare action quarantine reply tag header_value "
      "address type manual";
  constexpr const char* kOrder = "position group name filters mismatches";
  constexpr const char* kMatch =
      "address asked code pattern kind tree tree_index weight old_code old_pattern old_kind old_tree old_tree_index "
      "new_code new_pattern new_kind new_tree new_tree_index tier weight_a weight_b both_kinds base_code added_code "
      "trees_searched candidates text addresses decided undecided unreadable codes seconds addresses_per_second";
  // clang-format off
  static const std::vector<ResultKeys> rows = {
      {"init", "home database schema schema_version sample policy_server", ""},
      {"check", "state subject finding", ""},
      {"password", "file password", ""},
      {"schema status", "database version program pending", ""},
      {"schema upgrade", "database before version run tried", ""},
      {"import", "applied summary differences", ""},
      {"backup", "file bytes", ""},
      {"admin id", "name id", ""},
      {"admin list", kAdmin, ""},
      {"admin show", kAdmin, "type"},
      {"admin add", kAdmin, ""},
      {"admin remove", kAdmin, ""},
      {"admin assign", kAdmin, ""},
      {"admin unassign", kAdmin, ""},
      {"entity list", kEntity, ""},
      {"entity show", "id type name administrators objects rules", ""},
      {"entity add", kEntity, ""},
      {"entity remove", kEntity, ""},
      {"entity relatives", "relation id name", ""},
      {"entity contains", "group address contains", ""},
      {"entity tree", "name id", "contains"},
      {"action list", "value name x_header_name terminal changes_header changes_body", ""},
      {"action show", "display positions keys without_text", ""},
      {"filter list", "value name attachment", ""},
      {"blob read", "record key value", ""},
      {"object list", "id type name editable modifiable deletable", ""},
      {"object show", "id type name editable modifiable deletable rules content", ""},
      {"object add", kEntity, ""},
      {"object modify", kEntity, ""},
      {"object remove", kEntity, ""},
      {"object why", "id type name as root steps visible editable deletable directly_editable owners_left rules", "step through owners seen left"},
      {"object policy-text", "records lead estimate text", ""},
      {"quarantine list", "id name editable modifiable content", ""},
      {"group list", "id name members owners modifiable", ""},
      {"group show", "address", ""},
      {"group add", "id name members", ""},
      {"group modify", "id name removed added", ""},
      {"group remove", "id name members", ""},
      {"group import", "id name members duplicates left_out", ""},
      {"match", kMatch, "n fate other removed"},
      {"lint", "place file line pattern rule reason suggestion patterns", ""},
      {"settings server", kSetting, ""},
      {"settings client", kSetting, ""},
      {"settings filter", kSetting, ""},
      {"settings set", "section key layer before stored value from", ""},
      {"servers list", kServer, ""},
      {"servers add", kServer, ""},
      {"servers remove", kServer, ""},
      {"rule list", kRule, ""},
      {"rule show", kRule, ""},
      {"rule add", kRule, ""},
      {"rule modify", kRule, ""},
      {"rule remove", kRule, ""},
      {"rule move", kRule, ""},
      {"rule why", "sender header_from recipient version rules hidden_rules patterns decision", "position rule compare actions number asked pattern weight kind list fate code by done"},
      {"rules order", "manual groups", kOrder},
      {"rules set-order", "manual groups", kOrder},
      {"policy fetch", "server file bytes version rules scopes groups members objects", ""},
      {"policy show", "version rules scopes groups members objects made_at entries", kEntry},
      {"policy diff", "before after differences", "change kind id name field"},
      {"policy raise", "before version", ""},
      {"audit", "id at administrator login host program change subject object before after", ""},
      {"audit-trim", "before removed", ""},
  };
  // clang-format on
  return rows;
}

void requireResultKey(const std::string& command, const std::string& key) {
  const std::vector<ResultKeys>& rows = resultKeys();
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const ResultKeys& known) { return known.command == command; });
  if (row == rows.end()) {
    throw UsageError("--query: " + command + " prints nothing by key");
  }
  std::vector<std::string> keys = wordsIn(row->keys);
  for (std::string& inside : wordsIn(row->within)) {
    keys.push_back(std::move(inside));
  }
  if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
    throw UsageError("--query: " + command + " has no key " + quoted(key) + "; it has " + listOf(keys));
  }
}
