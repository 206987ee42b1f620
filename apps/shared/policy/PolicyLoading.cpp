#include "policy/PolicyLoading.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "console/Text.h"
#include "store/ReadTransaction.h"

namespace {

using Row = StoreConnection::Row;

constexpr std::size_t kMembersAtOnce = 20000;

template <typename Number>
Number numberIn(std::string_view digits) {
  Number number = 0;
  const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (read.ec != std::errc() || read.ptr != digits.data() + digits.size()) {
    throw PolicyError("the stored policy holds " + quoted(std::string(digits)) + " for a number");
  }
  return number;
}

template <typename Number>
Number numberIn(const std::optional<std::string>& text) {
  return numberIn<Number>(text ? std::string_view(*text) : std::string_view("NULL"));
}

std::optional<unsigned int> idOrNone(const std::optional<std::string>& text) {
  return text ? std::make_optional(numberIn<unsigned int>(text)) : std::nullopt;
}

// What has an identifier; `referrer` names the row that refers to it.
template <typename Element>
Element& elementOf(const std::unordered_map<unsigned int, Element*>& elements, unsigned int id, const char* referrer) {
  const auto found = elements.find(id);
  if (found == elements.end()) {
    throw PolicyError("the stored policy has " + std::string(referrer) + " " + std::to_string(id) +
                      ", which is not there");
  }
  return *found->second;
}

std::string textIn(std::optional<std::string>& text) {
  return std::move(text).value_or("");
}

std::vector<MailPolicy::Entity> entitiesIn(StoreConnection& db) {
  std::vector<MailPolicy::Entity> entities;
  for (Row& row : db.rows("SELECT id, name FROM entity WHERE type = 6 ORDER BY id", {"id", "name"})) {
    entities.push_back({numberIn<unsigned int>(row[0]), textIn(row[1])});
  }
  return entities;
}

// Takes a number and the blank behind it off a text.
unsigned int takeNumber(std::string_view& text) {
  const std::size_t end = std::min(text.find(' '), text.size());
  const auto number = numberIn<unsigned int>(text.substr(0, end));
  text.remove_prefix(std::min(end + 1, text.size()));
  return number;
}

void readMembers(StoreConnection& db, std::vector<MailPolicy::Group>& groups) {
  std::unordered_map<unsigned int, MailPolicy::Group*> places;
  for (MailPolicy::Group& group : groups) {
    places[group.id] = &group;
  }
  // Behind the last that was read, so that the database finds each piece by its key. One column, since each costs as
  // much as the row: drivers hand them out one by one.
  for (std::string behind;;) {
    const auto rows = db.rows("SELECT group_id || ' ' || position || ' ' || address AS member FROM address_group_member" +
                                  behind + " ORDER BY group_id, position LIMIT " + std::to_string(kMembersAtOnce),
                              {"member"});
    std::string lastKey;
    MailPolicy::Group* group = nullptr;
    for (const Row& row : rows) {
      std::string_view rest = row[0] ? std::string_view(*row[0]) : std::string_view();
      const unsigned int id = takeNumber(rest);
      const unsigned int position = takeNumber(rest);
      if (group == nullptr || group->id != id) {
        group = &elementOf(places, id, "members of the address group");
      }
      group->members.emplace_back(rest);
      if (&row == &rows.back()) {
        lastKey = std::to_string(id) + ", " + std::to_string(position);
      }
    }
    if (rows.size() < kMembersAtOnce) {
      return;
    }
    behind = " WHERE (group_id, position) > (" + lastKey + ")";
  }
}

std::vector<MailPolicy::Group> groupsIn(StoreConnection& db) {
  std::vector<MailPolicy::Group> groups;
  for (Row& row : db.rows("SELECT id, name FROM named_object WHERE type = 5 ORDER BY id", {"id", "name"})) {
    groups.push_back({numberIn<unsigned int>(row[0]), textIn(row[1]), {}});
  }
  return groups;
}

std::vector<MailPolicy::Object> objectsIn(StoreConnection& db) {
  std::vector<MailPolicy::Object> objects;
  for (Row& row : db.rows("SELECT id, type, name, content FROM named_object WHERE type <> 5 ORDER BY id",
                          {"id", "type", "name", "content"})) {
    objects.push_back({numberIn<unsigned int>(row[0]), numberIn<int>(row[1]), textIn(row[2]), textIn(row[3])});
  }
  return objects;
}

MailPolicy::FilterOrder filterOrderIn(StoreConnection& db) {
  MailPolicy::FilterOrder order;
  order.manual = db.value("SELECT value FROM global_setting WHERE section = 'email-scan' AND name = 'manualRuleOrder'",
                          "value") == "on";
  for (Row& row : db.rows("SELECT rule_order, filter_id, filter_type FROM manual_rule_order ORDER BY rule_order",
                          {"rule_order", "filter_id", "filter_type"})) {
    order.groups.push_back({numberIn<int>(row[0]), numberIn<int>(row[1]), textIn(row[2])});
  }
  return order;
}

MailPolicy load(StoreConnection& db, bool withMembers) {
  const ReadTransaction transaction(db);
  db.requireOwnSchema();
  MailPolicy policy;
  policy.version = storedPolicyVersion(db);
  try {
    policy.rules = storedRules(db);
    policy.entities = entitiesIn(db);
    policy.groups = groupsIn(db);
    if (withMembers) {
      readMembers(db, policy.groups);
    }
    policy.objects = objectsIn(db);
    policy.filterOrder = filterOrderIn(db);
  } catch (const PolicyError& wrong) {
    throw UnreadablePolicy(wrong.what(), policy.version);
  }
  return policy;
}

}  // namespace

MailPolicy loadMailPolicy(StoreConnection& db) {
  constexpr bool kWithMembers = true;
  return load(db, kWithMembers);
}

MailPolicy loadMailPolicyWithoutMembers(StoreConnection& db) {
  constexpr bool kWithoutMembers = false;
  return load(db, kWithoutMembers);
}

std::vector<MailPolicy::Rule> storedRules(StoreConnection& db) {
  std::vector<MailPolicy::Rule> rules;
  for (Row& row : db.rows("SELECT id, name, position, enabled, scope_id, recipients_id, compares, actions, quarantine_id, "
                          "reply, tag, header_value, address FROM policy_rule ORDER BY position",
                          {"id", "name", "position", "enabled", "scope_id", "recipients_id", "compares", "actions",
                           "quarantine_id", "reply", "tag", "header_value", "address"})) {
    MailPolicy::Rule rule;
    rule.id = numberIn<unsigned int>(row[0]);
    rule.name = textIn(row[1]);
    rule.position = numberIn<unsigned int>(row[2]);
    rule.enabled = numberIn<int>(row[3]) != 0;
    rule.scope = idOrNone(row[4]);
    rule.recipients = idOrNone(row[5]);
    rule.compare = static_cast<MailPolicy::Compare>(numberIn<int>(row[6]));
    rule.actions = textIn(row[7]);
    rule.quarantine = idOrNone(row[8]);
    rule.reply = textIn(row[9]);
    rule.tag = textIn(row[10]);
    rule.headerValue = textIn(row[11]);
    rule.address = textIn(row[12]);
    rules.push_back(std::move(rule));
  }
  std::unordered_map<unsigned int, MailPolicy::Rule*> places;
  for (MailPolicy::Rule& rule : rules) {
    places[rule.id] = &rule;
  }
  for (const Row& row : db.rows("SELECT rule_id, group_id, kind FROM policy_rule_list ORDER BY rule_id, position",
                                {"rule_id", "group_id", "kind"})) {
    elementOf(places, numberIn<unsigned int>(row[0]), "a list of the rule")
        .lists.push_back({numberIn<unsigned int>(row[1]), numberIn<KxEmailBelongsTo>(row[2])});
  }
  return rules;
}

std::uint64_t storedPolicyVersion(StoreConnection& db) {
  return numberIn<std::uint64_t>(db.value("SELECT version FROM policy_version", "version"));
}
