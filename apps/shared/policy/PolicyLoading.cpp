#include "policy/PolicyLoading.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "policy/MemberReading.h"
#include "policy/StoredNumber.h"
#include "store/ReadTransaction.h"

namespace {

using Row = StoreConnection::Row;

std::optional<unsigned int> idOrNone(const std::optional<std::string>& text) {
  return text ? std::make_optional(numberIn<unsigned int>(text)) : std::nullopt;
}

std::string textIn(std::optional<std::string>& text) {
  return std::move(text).value_or("");
}

// What `read` answers; says of what version the rows are that make no policy.
template <typename Read>
auto readOf(std::uint64_t version, Read read) -> decltype(read()) {
  try {
    return read();
  } catch (const PolicyError& wrong) {
    throw UnreadablePolicy(wrong.what(), version);
  }
}

std::vector<MailPolicy::Entity> entitiesIn(StoreConnection& db) {
  std::vector<MailPolicy::Entity> entities;
  for (Row& row : db.rows("SELECT id, name FROM entity WHERE type = 6 ORDER BY id", {"id", "name"})) {
    entities.push_back({numberIn<unsigned int>(row[0]), textIn(row[1])});
  }
  return entities;
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

// In a transaction that reads of one moment.
MailPolicy policyWithoutMembers(StoreConnection& db) {
  db.requireOwnSchema();
  const std::uint64_t version = storedPolicyVersion(db);
  return readOf(version, [&] {
    MailPolicy policy;
    policy.version = version;
    policy.rules = storedRules(db);
    policy.entities = entitiesIn(db);
    policy.groups = groupsIn(db);
    policy.objects = objectsIn(db);
    policy.filterOrder = filterOrderIn(db);
    return policy;
  });
}

// The members of one moment. It ends with this.
class MembersOfOneMoment {
 public:
  explicit MembersOfOneMoment(std::unique_ptr<StoreConnection> db)
      : m_db(std::move(db)), m_transaction(*m_db), m_members(*m_db) {}

  StoreConnection& db() { return *m_db; }
  std::optional<MemberPiece> next() { return m_members.next(); }

 private:
  std::unique_ptr<StoreConnection> m_db;
  ReadTransaction m_transaction;
  MemberReading m_members;
};

}  // namespace

MailPolicy loadMailPolicy(StoreConnection& db) {
  const ReadTransaction transaction(db);
  MailPolicy policy = policyWithoutMembers(db);
  MemberReading members(db);
  while (const auto piece = readOf(policy.version, [&] { return members.next(); })) {
    addMembers(policy, *piece);
  }
  return policy;
}

MailPolicy loadMailPolicyWithoutMembers(StoreConnection& db) {
  const ReadTransaction transaction(db);
  return policyWithoutMembers(db);
}

ArrivingPolicy beginMailPolicy(std::unique_ptr<StoreConnection> db) {
  const auto members = std::make_shared<MembersOfOneMoment>(std::move(db));
  MailPolicy policy = policyWithoutMembers(members->db());
  const std::uint64_t version = policy.version;
  return {std::move(policy), [members, version] { return readOf(version, [&] { return members->next(); }); }};
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
    const auto rule = places.find(numberIn<unsigned int>(row[0]));
    if (rule == places.end()) {
      throw PolicyError("the stored policy has a list of the rule " + *row[0] + ", which is not there");
    }
    rule->second->lists.push_back({numberIn<unsigned int>(row[1]), numberIn<KxEmailBelongsTo>(row[2])});
  }
  return rules;
}

std::uint64_t storedPolicyVersion(StoreConnection& db) {
  return numberIn<std::uint64_t>(db.value("SELECT version FROM policy_version", "version"));
}
