#include "store/PolicyTables.h"

#include <algorithm>
#include <climits>

#include "ZaroAction.h"
#include "policy/PolicyVocabulary.h"

namespace {

using Value = PolicyValue;

constexpr long long kGreatestId = 4294967294;
constexpr long long kLongestName = 512;
constexpr long long kLongestWord = 255;
constexpr long long kAnyLength = LLONG_MAX;
constexpr int kWildcard = 6;
constexpr int kGroup = 5;
constexpr std::size_t kActions = ZaroAction::kActionBitMapLength;

PolicyColumn identifier(const char* key, const char* column) {
  return {key, column, Value::Identifier, 1, kGreatestId};
}

PolicyColumn reference(const char* key, const char* column, const char* table, bool mayBeNull = false) {
  return {key, column, Value::Identifier, 1, kGreatestId, table, mayBeNull};
}

PolicyColumn number(const char* key, const char* column, long long least, long long greatest) {
  return {key, column, Value::Number, least, greatest};
}

PolicyColumn text(const char* key, const char* column, long long least, long long greatest) {
  return {key, column, Value::Text, least, greatest};
}

PolicyColumn name() {
  return text("name", "name", 1, kLongestName);
}

bool isCapital(char letter) {
  return letter >= 'A' && letter <= 'Z';
}

std::string entityFault(const Json& row) {
  const auto& pattern = row.at("name").get_ref<const std::string&>();
  return row.at("type") == kWildcard && std::any_of(pattern.begin(), pattern.end(), isCapital)
             ? "is a pattern with capitals, which would never be found"
             : "";
}

std::string objectFault(const Json& row) {
  const bool isGroup = row.at("type") == kGroup;
  return isGroup || row.at("members").empty() ? "" : "has members, but is no address group";
}

bool isActions(const std::string& text) {
  return text.size() == kActions && text.find_first_not_of("01") == std::string::npos;
}

std::string ruleFault(const Json& row) {
  if (!isActions(row.at("actions").get_ref<const std::string&>())) {
    return "has actions that are not " + std::to_string(kActions) + " digits, each 0 or 1";
  }
  const Json& objects = row.at("objects");
  for (const Json& list : row.at("lists")) {
    if (!isListKind(list.at("kind").get<KxEmailBelongsTo>())) {
      return "has a list of the kind " + list.at("kind").dump() + ", which is none";
    }
    if (std::find(objects.begin(), objects.end(), list.at("group")) == objects.end()) {
      return "has a list of the group " + list.at("group").dump() + ", which is not among its objects";
    }
  }
  return "";
}

std::string serverFault(const Json& row) {
  return isCapital(row.at("type").get_ref<const std::string&>().front()) ? "" : "has a type that is no capital";
}

}  // namespace

const std::vector<PolicyTable>& policyTables() {
  static const std::vector<PolicyTable> all = {
      {"entities", "entity", "entity", 1, {identifier("id", "id"), number("type", "type", 0, 7), name()}, {{1, 2}}, {}, entityFault},
      {"administrators",
       "administrator",
       "administrator",
       1,
       {identifier("id", "id"), name(), {"root", "is_root", Value::Boolean, 0, 1}},
       {{1}},
       {{"entities", "administrator_entity", "administrator_id", nullptr, {reference("entity", "entity_id", "entities")}}}},
      {"objects",
       "object",
       "named_object",
       1,
       {identifier("id", "id"), number("type", "type", INT_MIN, INT_MAX), name(),
        text("content", "content", 0, kAnyLength)},
       {},
       {{"owners", "named_object_owner", "object_id", nullptr, {reference("entity", "entity_id", "entities")}, "object_type"},
        {"members", "address_group_member", "group_id", "position", {text("address", "address", 1, kLongestName)}, nullptr, true}},
       objectFault},
      {"rules",
       "rule",
       "policy_rule",
       1,
       {identifier("id", "id"),
        name(),
        number("position", "position", 1, INT_MAX),
        {"enabled", "enabled", Value::Boolean, 0, 1},
        reference("scope", "scope_id", "entities", true),
        reference("recipients", "recipients_id", "objects", true),
        number("compares", "compares", 1, 3),
        text("actions", "actions", 0, kAnyLength),
        reference("quarantine", "quarantine_id", "objects", true),
        text("reply", "reply", 0, kAnyLength),
        text("tag", "tag", 0, kAnyLength),
        text("header_value", "header_value", 0, kAnyLength),
        text("address", "address", 0, kAnyLength)},
       {{2}},
       {{"objects", "policy_rule_object", "rule_id", nullptr, {reference("object", "object_id", "objects")}},
        {"lists",
         "policy_rule_list",
         "rule_id",
         "position",
         {{"group", "group_id", Value::Identifier, 1, kGreatestId, "objects", false, kGroup},
          number("kind", "kind", 1, 32)}}},
       ruleFault},
      {"settings",
       "setting",
       "global_setting",
       2,
       {text("section", "section", 1, kLongestWord), text("name", "name", 1, kLongestWord),
        text("value", "value", 0, kAnyLength)},
       {},
       {}},
      {"servers",
       "server",
       "component",
       2,
       {text("type", "type", 1, 1), number("number", "scanner_id", 1, INT_MAX),
        text("address", "ip_addr", 1, kLongestWord), number("port", "agent_port", 1, 65535)},
       {},
       {},
       serverFault},
      {"rule_order",
       "rule order",
       "manual_rule_order",
       1,
       {number("rank", "rule_order", INT_MIN, INT_MAX), number("group", "filter_id", INT_MIN, INT_MAX),
        text("name", "filter_type", 0, kAnyLength)},
       {},
       {},
       nullptr,
       true},
  };
  return all;
}
