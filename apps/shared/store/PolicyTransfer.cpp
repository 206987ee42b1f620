#include "store/PolicyTransfer.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "EntityUtils.h"
#include "ZaroNamedObj.h"
#include "ZaroRuntime/SqlSession.h"
#include "policy/PolicyGeneration.h"
#include "store/GroupEdit.h"
#include "store/PolicyDocument.h"
#include "store/PolicyTables.h"
#include "store/Transaction.h"

using zaroruntime::Dialect;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all.append(all.empty() ? "" : ", ").append(text);
  }
  return all;
}

// --- Reading ---

Json storedValue(const PolicyColumn& column, std::optional<std::string> text) {
  if (!text) {
    return nullptr;
  }
  switch (column.value) {
    case PolicyValue::Text:
      return *std::move(text);
    case PolicyValue::Boolean:
      return *text != "0";
    case PolicyValue::Identifier:
    case PolicyValue::Number:
      break;
  }
  return std::stoll(*text);
}

std::vector<const char*> columnsOf(const std::vector<PolicyColumn>& columns) {
  std::vector<const char*> names;
  names.reserve(columns.size());
  for (const PolicyColumn& column : columns) {
    names.push_back(column.column);
  }
  return names;
}

std::string selection(const std::vector<const char*>& columns, const char* table) {
  return "SELECT " + joined({columns.begin(), columns.end()}) + " FROM " + table;
}

void readList(StoreConnection& db, const PolicyList& list, std::map<long long, Json*>& owners) {
  std::vector<const char*> columns = columnsOf(list.columns);
  const std::string order = list.position != nullptr ? list.position : columns.front();
  columns.insert(columns.begin(), list.owner);
  for (auto& row : db.rows(selection(columns, list.table) + " ORDER BY " + list.owner + ", " + order, columns)) {
    const auto owner = owners.find(std::stoll(row.front().value_or("0")));
    if (owner == owners.end()) {
      throw RuntimeError(std::string("table ") + list.table + " has a row that belongs to nothing; see zaroctl check",
                         zaroruntime::FailureKind::Data);
    }
    Json element = Json::object();
    for (std::size_t at = 0; at < list.columns.size(); ++at) {
      element[list.columns[at].key] = storedValue(list.columns[at], std::move(row[at + 1]));
    }
    (*owner->second)[list.key].push_back(list.columns.size() == 1 ? std::move(element.begin().value())
                                                                  : std::move(element));
  }
}

Json readTable(StoreConnection& db, const PolicyTable& table) {
  const std::vector<const char*> columns = columnsOf(table.columns);
  Json rows = Json::array();
  for (auto& stored : db.rows(selection(columns, table.table), columns)) {
    Json row = Json::object();
    for (std::size_t at = 0; at < columns.size(); ++at) {
      row[table.columns[at].key] = storedValue(table.columns[at], std::move(stored[at]));
    }
    for (const PolicyList& list : table.lists) {
      row[list.key] = Json::array();
    }
    rows.push_back(std::move(row));
  }
  sortRows(table, rows);
  std::map<long long, Json*> owners;
  for (Json& row : rows) {
    if (!table.lists.empty()) {
      owners.emplace(row.at(table.columns.front().key).get<long long>(), &row);
    }
  }
  for (const PolicyList& list : table.lists) {
    readList(db, list, owners);
  }
  return rows;
}

Json readTables(StoreConnection& db) {
  Json policy = emptyPolicy();
  for (const PolicyTable& table : policyTables()) {
    policy[table.key] = readTable(db, table);
  }
  return policy;
}

// --- Writing ---

std::string literalOf(const Json& value) {
  if (value.is_null()) {
    return "NULL";
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? "1" : "0";
  }
  return value.is_string() ? sqlLiteral(value.get_ref<const std::string&>()) : value.dump();
}

std::string keyCondition(const PolicyTable& table, const Json& row) {
  std::string condition;
  for (std::size_t at = 0; at < table.keyColumns; ++at) {
    const PolicyColumn& column = table.columns[at];
    condition.append(condition.empty() ? " WHERE " : " AND ").append(column.column);
    condition.append(" = ").append(literalOf(row.at(column.key)));
  }
  return condition;
}

// Makes one stored policy another. `before` is what is stored.
class PolicyWriter {
 public:
  PolicyWriter(StoreConnection& db, const Json& before, const Json& after)
      : m_db(db), m_before(before), m_after(after) {
    for (const PolicyTable& table : policyTables()) {
      m_changes.emplace_back(&table, changedRows(table, before, after));
    }
  }

  void write() {
    for (const auto& [table, changes] : m_changes) {
      _freeValues(*table, changes);
    }
    // A list may hold on to a row of a table before it.
    for (auto change = m_changes.rbegin(); change != m_changes.rend(); ++change) {
      _emptyLists(*change->first, change->second);
    }
    for (const auto& [table, changes] : m_changes) {
      _writeRows(*table, changes);
    }
    for (auto change = m_changes.rbegin(); change != m_changes.rend(); ++change) {
      _removeRows(*change->first, change->second);
    }
    for (const auto& [table, changes] : m_changes) {
      _passIdentifiers(*table, changes);
    }
  }

 private:
  using Changes = std::vector<RowChange>;
  using Values = std::vector<Json>;

  static Values _valuesOf(const PolicyTable& table, const std::vector<std::size_t>& places, const Json& row) {
    Values values;
    values.reserve(places.size());
    for (const std::size_t place : places) {
      values.push_back(row.at(table.columns[place].key));
    }
    return values;
  }

  // Takes values away that another row is to have, also from rows that go.
  void _freeValues(const PolicyTable& table, const Changes& changes) {
    for (const auto& unique : table.uniques) {
      const PolicyColumn& column = table.columns[unique.back()];
      const std::set<Json> used = _numbersIn(table, column);
      std::set<Values> wanted;
      for (const auto& [old, now] : changes) {
        if (now != nullptr && (old == nullptr || _valuesOf(table, unique, *old) != _valuesOf(table, unique, *now))) {
          wanted.insert(_valuesOf(table, unique, *now));
        }
      }
      for (const auto& [old, now] : changes) {
        if (old != nullptr && wanted.count(_valuesOf(table, unique, *old)) != 0) {
          const Json unused = column.value == PolicyValue::Text ? Json("zaroctl import " + keyOf(table, *old).dump())
                                                                : Json(_unusedNumber(used));
          m_db.run(std::string("UPDATE ") + table.table + " SET " + column.column + " = " + literalOf(unused) +
                   keyCondition(table, *old));
        }
      }
    }
  }

  // The numbers of a column before and after.
  std::set<Json> _numbersIn(const PolicyTable& table, const PolicyColumn& column) const {
    std::set<Json> numbers;
    for (const Json* policy : {&m_before, &m_after}) {
      for (const Json& row : policy->at(table.key)) {
        if (column.value != PolicyValue::Text) {
          numbers.insert(row.at(column.key));
        }
      }
    }
    return numbers;
  }

  long long _unusedNumber(const std::set<Json>& used) {
    while (used.count(m_unused) != 0) {
      --m_unused;
    }
    return m_unused--;
  }

  void _emptyLists(const PolicyTable& table, const Changes& changes) {
    for (const auto& [old, now] : changes) {
      for (auto list = table.lists.rbegin(); old != nullptr && list != table.lists.rend(); ++list) {
        _emptyList(table, *list, *old, now);
      }
    }
  }

  // A set keeps what stays in it, since rows of another list may refer to that.
  void _emptyList(const PolicyTable& table, const PolicyList& list, const Json& old, const Json* now) {
    const Json& before = old.at(list.key);
    if (before.empty() || (now != nullptr && (before == now->at(list.key) || _isAppended(list, old, *now)))) {
      return;
    }
    const std::string removal =
        std::string("DELETE FROM ") + list.table + " WHERE " + list.owner + " = " + _idOf(table, old);
    if (list.position != nullptr || now == nullptr) {
      m_db.run(removal);
      return;
    }
    for (const Json& element : _elementsWithout(before, now->at(list.key))) {
      m_db.run(removal + " AND " + list.columns.front().column + " = " + literalOf(element));
    }
  }

  // Of two sets.
  static Json _elementsWithout(const Json& set, const Json& other) {
    Json elements = Json::array();
    std::set_difference(set.begin(), set.end(), other.begin(), other.end(), std::back_inserter(elements));
    return elements;
  }

  // Whether a group keeps its members, and gets more behind them.
  static bool _isAppended(const PolicyList& list, const Json& old, const Json& now) {
    const Json& before = old.at(list.key);
    const Json& after = now.at(list.key);
    return list.isMembers && before.size() <= after.size() && std::equal(before.begin(), before.end(), after.begin());
  }

  void _writeRows(const PolicyTable& table, const Changes& changes) {
    for (const auto& [old, now] : changes) {
      if (now == nullptr) {
        continue;
      }
      if (old == nullptr) {
        _insert(table, *now);
      } else {
        _update(table, *old, *now);
      }
      for (const PolicyList& list : table.lists) {
        if (old == nullptr || old->at(list.key) != now->at(list.key)) {
          _fillList(table, list, old, *now);
        }
      }
    }
  }

  void _insert(const PolicyTable& table, const Json& row) {
    std::vector<std::string> values;
    values.reserve(table.columns.size());
    for (const PolicyColumn& column : table.columns) {
      values.push_back(literalOf(row.at(column.key)));
    }
    const auto columns = columnsOf(table.columns);
    m_db.run(std::string("INSERT INTO ") + table.table + " (" + joined({columns.begin(), columns.end()}) +
             ") VALUES (" + joined(values) + ")");
  }

  void _update(const PolicyTable& table, const Json& old, const Json& now) {
    std::vector<std::string> assignments;
    for (const PolicyColumn& column : table.columns) {
      if (old.at(column.key) != now.at(column.key)) {
        assignments.push_back(std::string(column.column) + " = " + literalOf(now.at(column.key)));
      }
    }
    if (!assignments.empty()) {
      m_db.run(std::string("UPDATE ") + table.table + " SET " + joined(assignments) + keyCondition(table, now));
    }
  }

  void _fillList(const PolicyTable& table, const PolicyList& list, const Json* old, const Json& now) {
    if (list.isMembers) {
      _fillGroup(list, old, now);
      return;
    }
    const bool isKept = list.position == nullptr && old != nullptr;
    const Json elements = isKept ? _elementsWithout(now.at(list.key), old->at(list.key)) : now.at(list.key);
    std::size_t position = 0;
    for (const Json& element : elements) {
      std::vector<std::string> columns = {list.owner};
      std::vector<std::string> values = {_idOf(table, now)};
      if (list.position != nullptr) {
        columns.emplace_back(list.position);
        values.push_back(std::to_string(position++));
      }
      if (list.ownersType != nullptr) {
        columns.emplace_back(list.ownersType);
        values.push_back(literalOf(now.at("type")));
      }
      for (const PolicyColumn& column : list.columns) {
        columns.emplace_back(column.column);
        values.push_back(literalOf(list.columns.size() == 1 ? element : element.at(column.key)));
      }
      m_db.run(std::string("INSERT INTO ") + list.table + " (" + joined(columns) + ") VALUES (" + joined(values) + ")");
    }
  }

  void _fillGroup(const PolicyList& list, const Json* old, const Json& now) {
    const auto members = now.at(list.key).get<std::vector<std::string>>();
    const bool isAppended = old != nullptr && _isAppended(list, *old, now);
    const auto present = static_cast<std::ptrdiff_t>(isAppended ? old->at(list.key).size() : 0);
    if (members.empty()) {
      return;
    }
    GroupEdit edit(m_db, std::nullopt, {now.at("id").get<unsigned int>(), now.at("name").get<std::string>()});
    // A group may have an address in several spellings, of which no more are added.
    if (!edit.append({members.begin() + present, members.end()}).empty()) {
      edit.removeAllMembers();
      edit.append(members);
    }
  }

  void _removeRows(const PolicyTable& table, const Changes& changes) {
    for (const auto& [old, now] : changes) {
      if (now == nullptr) {
        m_db.run(std::string("DELETE FROM ") + table.table + keyCondition(table, *old));
      }
    }
  }

  // PostgreSQL would give new rows identifiers that came with the document. SQLite looks at the rows.
  void _passIdentifiers(const PolicyTable& table, const Changes& changes) {
    const bool hasNew =
        std::any_of(changes.begin(), changes.end(), [](const RowChange& change) { return change.first == nullptr; });
    if (!table.hasIdentifiers() || !hasNew || m_db.dialect() != Dialect::PostgreSQL) {
      return;
    }
    const std::string sequence = "pg_get_serial_sequence('" + std::string(table.table) + "', 'id')";
    m_db.run("SELECT setval(" + sequence + ", GREATEST(nextval(" + sequence + ") - 1, (SELECT max(id) FROM " +
             table.table + ")))");
  }

  static std::string _idOf(const PolicyTable& table, const Json& row) {
    return literalOf(row.at(table.columns.front().key));
  }

  StoreConnection& m_db;
  const Json& m_before;
  const Json& m_after;
  std::vector<std::pair<const PolicyTable*, Changes>> m_changes;
  long long m_unused = 2147483647;
};

void lockTables(StoreConnection& db) {
  for (const PolicyTable& table : policyTables()) {
    db.lockTable(table.table);
    for (const PolicyList& list : table.lists) {
      db.lockTable(list.table);
    }
  }
}

// --- Rules as services read them ---

std::optional<unsigned int> idOrNone(const Json& value) {
  return value.is_null() ? std::nullopt : std::make_optional(value.get<unsigned int>());
}

MailPolicy::Rule ruleIn(const Json& row) {
  MailPolicy::Rule rule;
  rule.id = row.at("id").get<unsigned int>();
  rule.name = row.at("name").get<std::string>();
  rule.position = row.at("position").get<unsigned int>();
  rule.enabled = row.at("enabled").get<bool>();
  rule.scope = idOrNone(row.at("scope"));
  rule.recipients = idOrNone(row.at("recipients"));
  for (const Json& list : row.at("lists")) {
    rule.lists.push_back({list.at("group").get<unsigned int>(), list.at("kind").get<KxEmailBelongsTo>()});
  }
  rule.compare = static_cast<MailPolicy::Compare>(row.at("compares").get<int>());
  rule.actions = row.at("actions").get<std::string>();
  rule.quarantine = idOrNone(row.at("quarantine"));
  rule.reply = row.at("reply").get<std::string>();
  rule.tag = row.at("tag").get<std::string>();
  rule.headerValue = row.at("header_value").get<std::string>();
  rule.address = row.at("address").get<std::string>();
  return rule;
}

// What rules and their references need of a document.
MailPolicy rulesIn(const Json& document) {
  MailPolicy policy;
  for (const Json& row : document.at("rules")) {
    policy.rules.push_back(ruleIn(row));
  }
  for (const Json& row : document.at("entities")) {
    if (row.at("type") == static_cast<int>(GroupEntity::Wildcard)) {
      policy.entities.push_back({row.at("id").get<unsigned int>(), row.at("name").get<std::string>()});
    }
  }
  for (const Json& row : document.at("objects")) {
    const auto id = row.at("id").get<unsigned int>();
    const auto type = row.at("type").get<int>();
    if (type == ZaroNamedObj::GroupOfAddresses) {
      policy.groups.push_back({id, row.at("name").get<std::string>(), {}});
    } else {
      policy.objects.push_back({id, type, row.at("name").get<std::string>(), ""});
    }
  }
  return policy;
}

// A rule that services cannot apply keeps them from every later policy. One that is stored already stays.
void refuseUnusableRules(const Json& stored, const Json& policy) {
  const auto known = unusableRules(rulesIn(stored));
  for (const std::string& fault : unusableRules(rulesIn(policy))) {
    if (std::find(known.begin(), known.end(), fault) == known.end()) {
      throw PolicyTextError("has a rule that cannot be applied: " + fault);
    }
  }
}

Json wantedPolicy(const PolicyImport& wanted, const Json& stored) {
  Json policy = readPolicyText(wanted.text, wanted.merges ? &stored : nullptr);
  refuseUnusableRules(stored, policy);
  return policy;
}

}  // namespace

Json readPolicy() {
  StoreConnection db;
  db.run(db.dialect() == Dialect::PostgreSQL ? "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY" : "BEGIN");
  db.requireOwnSchema();
  Json policy = readTables(db);
  db.run("ROLLBACK");
  return policy;
}

Json importPolicy(const PolicyImport& wanted) {
  if (wanted.isTrial) {
    const Json stored = readPolicy();
    return differencesOf(stored, wantedPolicy(wanted, stored));
  }
  return inTransaction([&](StoreConnection& db) {
    lockTables(db);
    const Json stored = readTables(db);
    const Json policy = wantedPolicy(wanted, stored);
    PolicyWriter(db, stored, policy).write();
    if (readTables(db) != policy) {
      throw RuntimeError("the policy was written, but does not come back so; nothing is changed",
                         zaroruntime::FailureKind::Data);
    }
    return differencesOf(stored, policy);
  });
}
