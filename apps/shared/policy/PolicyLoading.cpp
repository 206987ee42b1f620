#include "policy/PolicyLoading.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "console/Text.h"
#include "policy/JsonTextArray.h"
#include "store/ReadTransaction.h"

namespace {

using zaroruntime::Dialect;
using zaroruntime::FailureKind;
using Row = StoreConnection::Row;

constexpr std::size_t kMembersAtOnce = 5000;

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

[[noreturn]] void refuseCutMembers() {
  throw DatabaseError("the members of address groups did not come whole", FailureKind::Data);
}

// Gives each group its own of the members that come one after the other.
class MemberDistribution {
 public:
  void expect(std::size_t members, MailPolicy::Group& group) { m_shares.push_back({&group.members, members}); }

  void take(std::string_view member) {
    if (m_next == m_shares.size()) {
      refuseCutMembers();
    }
    Share& share = m_shares[m_next];
    share.members->add(member);
    if (--share.missing == 0) {
      ++m_next;
    }
  }

 private:
  struct Share {
    TextList* members;
    std::size_t missing;
  };

  std::vector<Share> m_shares;
  std::size_t m_next = 0;
};

// Reads members by the key of the last that it has (keyset pagination), so that the database finds each piece at once.
class MemberReading {
 public:
  MemberReading(StoreConnection& db, std::vector<MailPolicy::Group>& groups) : m_db(db) {
    for (MailPolicy::Group& group : groups) {
      m_groups[group.id] = &group;
    }
  }

  void readAll() {
    while (_readPiece() == kMembersAtOnce) {
    }
  }

 private:
  // Answers how many members the piece has.
  std::size_t _readPiece() {
    const std::string piece = _nextPiece();
    const std::vector<Row> rows = m_db.rows(
        "SELECT count(*) AS members, min(group_id) AS first_group, max(group_id) AS last_group, max(position) AS "
        "last_position, " +
            _jsonOfAddresses() + " AS addresses FROM " + piece,
        {"members", "first_group", "last_group", "last_position", "addresses"});
    const Row& row = rows.at(0);
    const auto count = numberIn<std::size_t>(row[0]);
    if (count == 0) {
      return 0;
    }
    auto lastPosition = numberIn<unsigned int>(row[3]);
    MemberDistribution distribution;
    if (row[1] == row[2]) {
      distribution.expect(count, _group(row[1]));
    } else {
      lastPosition = _expectSeveralGroups(piece, distribution);
    }
    std::size_t taken = 0;
    const bool isWhole =
        eachTextIn(row[4] ? std::string_view(*row[4]) : std::string_view(), [&](std::string_view member) {
          distribution.take(member);
          ++taken;
        });
    if (!isWhole || taken != count) {
      refuseCutMembers();
    }
    m_condition = " WHERE (group_id, position) > (" + *row[2] + ", " + std::to_string(lastPosition) + ")";
    return count;
  }

  std::string _nextPiece() const {
    return "(SELECT group_id, position, address FROM address_group_member" + m_condition +
           " ORDER BY group_id, position LIMIT " + std::to_string(kMembersAtOnce) + ") AS piece";
  }

  // Drivers hand out rows and columns one by one, and each costs as much as hundreds of characters: thousands of
  // addresses come as one text. SQLite before 3.44 knows no order within an aggregate; it adds the rows as they come
  // from the piece, and keeps the order of that for this aggregate's sake.
  std::string _jsonOfAddresses() const {
    return m_db.dialect() == Dialect::SQLite ? "json_group_array(address)"
                                             : "CAST(json_agg(address ORDER BY group_id, position) AS text)";
  }

  // Answers the last position in the last group.
  unsigned int _expectSeveralGroups(const std::string& piece, MemberDistribution& distribution) {
    unsigned int lastPosition = 0;
    for (const Row& group : m_db.rows("SELECT group_id, count(*) AS members, max(position) AS last_position FROM " +
                                          piece + " GROUP BY group_id ORDER BY group_id",
                                      {"group_id", "members", "last_position"})) {
      distribution.expect(numberIn<std::size_t>(group[1]), _group(group[0]));
      lastPosition = numberIn<unsigned int>(group[2]);
    }
    return lastPosition;
  }

  MailPolicy::Group& _group(const std::optional<std::string>& id) const {
    return elementOf(m_groups, numberIn<unsigned int>(id), "members of the address group");
  }

  StoreConnection& m_db;
  std::unordered_map<unsigned int, MailPolicy::Group*> m_groups;
  std::string m_condition;  // of the members that are left
};

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
      MemberReading(db, policy.groups).readAll();
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
