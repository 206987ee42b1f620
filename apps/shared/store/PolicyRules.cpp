#include "store/PolicyRules.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <tuple>
#include <utility>

#include "ZaroErrC.h"
#include "ZaroRuntime/SqlSession.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "policy/PolicyGeneration.h"
#include "policy/PolicyLoading.h"
#include "policy/PolicyVocabulary.h"
#include "store/ReadTransaction.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

constexpr const char* kSystemArea = "OPP:";
constexpr const char* kGroupIdPrefix = "group-id:";

std::string nameOf(const MailPolicy::Rule& rule) {
  return "the rule " + quoted(rule.name);
}

// --- Sight ---

std::set<unsigned int> scopesOf(StoreConnection& db, const Viewer& viewer) {
  EntitySet all = entitiesOfType(db, GroupEntity::Wildcard);
  std::set<unsigned int> scopes;
  if (viewer.isRoot) {
    for (const GroupEntity& entity : all) {
      scopes.insert(entity.id);
    }
    return scopes;
  }
  for (const GroupEntity& entity : viewer.entities) {
    if (entity.type != GroupEntity::Wildcard) {
      continue;
    }
    scopes.insert(entity.id);
    EntitySet contained;
    if (EntityUtils::getAllWildcardChildren(entity.name.c_str(), all, contained, false) != ZaroErrC::Success) {
      throw RuntimeError(quoted(entity.name) + " is no address pattern", FailureKind::Data);
    }
    for (const GroupEntity& child : contained) {
      scopes.insert(child.id);
    }
  }
  return scopes;
}

std::map<unsigned int, std::string> objectsSeen(StoreConnection& db, const Viewer& viewer, ZaroNamedObj::NaObjType type) {
  std::map<unsigned int, std::string> objects;
  for (const SummaryNamedObject& object : visibleObjects(db, viewer, type)) {
    objects[object.id] = object.name;
  }
  return objects;
}

// The system's area is offered to every administrator.
void addSystemArea(StoreConnection& db, std::map<unsigned int, std::string>& areas) {
  for (const auto& row : db.rows("SELECT id, name FROM named_object WHERE type = 3 AND substr(name, 1, 4) = " +
                                     sqlLiteral(kSystemArea) + " ORDER BY id LIMIT 1",
                                 {"id", "name"})) {
    areas[idIn(row, 0)] = row[1].value_or("");
  }
}

std::optional<std::string> nameIn(const std::map<unsigned int, std::string>& names, unsigned int id) {
  const auto found = names.find(id);
  return found != names.end() ? std::make_optional(found->second) : std::nullopt;
}

std::set<unsigned int> groupsOf(const MailPolicy::Rule& rule) {
  std::set<unsigned int> groups;
  if (rule.recipients) {
    groups.insert(*rule.recipients);
  }
  for (const MailPolicy::List& list : rule.lists) {
    groups.insert(list.group);
  }
  return groups;
}

// --- One rule in the transaction that changes it ---

using Columns = std::vector<std::pair<const char*, std::string>>;

std::string idOrNull(const std::optional<unsigned int>& id) {
  return id ? std::to_string(*id) : "NULL";
}

Columns columnsOf(const MailPolicy::Rule& rule) {
  return {{"name", sqlLiteral(rule.name)},
          {"enabled", rule.enabled ? "1" : "0"},
          {"scope_id", idOrNull(rule.scope)},
          {"recipients_id", idOrNull(rule.recipients)},
          {"compares", std::to_string(static_cast<int>(rule.compare))},
          {"actions", sqlLiteral(rule.actions)},
          {"quarantine_id", idOrNull(rule.quarantine)},
          {"reply", sqlLiteral(rule.reply)},
          {"tag", sqlLiteral(rule.tag)},
          {"header_value", sqlLiteral(rule.headerValue)},
          {"address", sqlLiteral(rule.address)}};
}

bool areAlike(const MailPolicy::List& one, const MailPolicy::List& other) {
  return one.group == other.group && one.kind == other.kind;
}

bool areAlike(const MailPolicy::Rule& one, const MailPolicy::Rule& other) {
  return one.id == other.id && one.position == other.position && columnsOf(one) == columnsOf(other) &&
         std::equal(one.lists.begin(), one.lists.end(), other.lists.begin(), other.lists.end(),
                    [](const MailPolicy::List& list, const MailPolicy::List& same) { return areAlike(list, same); });
}

// Identifiers, for the refusal of an ambiguous name.
template <typename Things, typename IdOf>
std::string idsOf(const Things& things, IdOf idOf) {
  std::string ids;
  for (const auto& thing : things) {
    ids.append(ids.empty() ? "" : ", ").append(std::to_string(idOf(thing)));
  }
  return ids;
}

class RuleEdit {
 public:
  RuleEdit(StoreConnection& db, const Viewer& viewer) : m_db(db), m_viewer(viewer), m_sight(db, viewer) {}

  // Locks what the change refers to, and the rules.
  void lock(const RuleChange& change) {
    MailPolicy::Rule wanted;
    resolve(change, wanted);
    _lockRow("entity", wanted.scope ? std::set<unsigned int>{*wanted.scope} : std::set<unsigned int>());
    std::set<unsigned int> objects = groupsOf(wanted);
    if (wanted.quarantine) {
      objects.insert(*wanted.quarantine);
    }
    _lockRow("named_object", objects);
    m_db.lockTable("policy_rule");
    m_sight = PolicySight(m_db, m_viewer);  // the holder of a lock may have changed it
  }

  MailPolicy::Rule find(const WantedRule& wanted) {
    std::vector<MailPolicy::Rule> found;
    const unsigned int id = wanted.isId ? idArgument("NAME", wanted.text) : 0;
    for (MailPolicy::Rule& rule : storedRules(m_db)) {
      if ((wanted.isId ? rule.id == id : rule.name == wanted.text) && m_sight.sees(m_viewer, rule)) {
        found.push_back(std::move(rule));
      }
    }
    if (found.empty()) {
      throw NotThere(quoted(m_viewer.name) + " sees no rule " + (wanted.isId ? wanted.text : quoted(wanted.text)));
    }
    if (found.size() > 1) {
      throw UsageError(std::to_string(found.size()) + " rules are named " + quoted(wanted.text) + ": " +
                       idsOf(found, [](const MailPolicy::Rule& rule) { return rule.id; }) + "; use --id");
    }
    return found.front();
  }

  MailPolicy::Rule findModifiable(const WantedRule& wanted) {
    MailPolicy::Rule rule = find(wanted);
    if (!m_sight.seesAllOf(rule)) {
      throw RuntimeError(quoted(m_viewer.name) + " may not change " + nameOf(rule) +
                             ": it uses groups or areas that the administrator does not see",
                         FailureKind::Refused);
    }
    return rule;
  }

  // Puts what the change names into a rule.
  void resolve(const RuleChange& change, MailPolicy::Rule& rule) {
    rule.name = change.name.value_or(rule.name);
    rule.enabled = change.enabled.value_or(rule.enabled);
    rule.compare = change.compare.value_or(rule.compare);
    rule.actions = change.actions.value_or(rule.actions);
    rule.reply = change.reply.value_or(rule.reply);
    rule.tag = change.tag.value_or(rule.tag);
    rule.headerValue = change.headerValue.value_or(rule.headerValue);
    rule.address = change.address.value_or(rule.address);
    if (change.scope) {
      rule.scope = _scope(*change.scope);
    }
    if (change.recipients) {
      rule.recipients = change.recipients->empty() ? std::nullopt : std::make_optional(_group(*change.recipients));
    }
    if (change.lists) {
      rule.lists.clear();
      for (const RuleChange::List& list : *change.lists) {
        rule.lists.push_back({_group(list.group), list.kind});
      }
    }
    if (change.quarantine) {
      rule.quarantine = *change.quarantine == 0 ? std::nullopt : std::make_optional(_area(*change.quarantine));
    }
  }

  void refuseNonsense(const MailPolicy::Rule& rule) {
    if (const auto missing = missingForActions(rule)) {
      throw UsageError(nameOf(rule) + ": " + *missing);
    }
    for (const MailPolicy::Rule& other : storedRules(m_db)) {
      if (other.id != rule.id && other.name == rule.name && m_sight.sees(m_viewer, other)) {
        throw RuntimeError("there is a rule " + quoted(rule.name) + " already", FailureKind::Refused);
      }
    }
  }

  // Writes a rule that is not there yet, behind all others, and gives it its identifier.
  void insert(MailPolicy::Rule& rule) {
    refuseFullOrder();
    rule.position = _lastPosition() + 1;
    std::string names;
    std::string values;
    for (const auto& [name, value] : columnsOf(rule)) {
      names.append(", ").append(name);
      values.append(", ").append(value);
    }
    m_db.run("INSERT INTO policy_rule (position" + names + ") VALUES (" + std::to_string(rule.position) + values + ")");
    const auto rows = m_db.rows("SELECT id FROM policy_rule WHERE position = " + std::to_string(rule.position), {"id"});
    rule.id = rows.empty() ? 0 : idIn(rows.front(), 0);
    _writeLists(rule, {});
  }

  // Writes what differs.
  void update(const MailPolicy::Rule& rule, const MailPolicy::Rule& before) {
    const Columns columns = columnsOf(rule);
    const Columns former = columnsOf(before);
    std::string values;
    for (std::size_t at = 0; at != columns.size(); ++at) {
      if (columns[at] != former[at]) {
        values.append(values.empty() ? "" : ", ").append(columns[at].first).append(" = ").append(columns[at].second);
      }
    }
    if (!values.empty()) {
      m_db.run("UPDATE policy_rule SET " + values + _whereId(rule));
    }
    _writeLists(rule, before);
  }

  void move(MailPolicy::Rule& rule, unsigned int position) {
    if (position == rule.position) {
      return;
    }
    m_db.run("UPDATE policy_rule SET position = NULL" + _whereId(rule));
    const std::string from = std::to_string(position);
    if (m_db.value("SELECT id FROM policy_rule WHERE position = " + from, "id")) {
      refuseFullOrder();
      // In two steps, since no two rules may meet on the way.
      const std::string aside = std::to_string(kHighestPosition);
      m_db.run("UPDATE policy_rule SET position = position + " + aside + " WHERE position >= " + from);
      m_db.run("UPDATE policy_rule SET position = position - " + aside + " + 1 WHERE position > " + aside);
    }
    m_db.run("UPDATE policy_rule SET position = " + from + _whereId(rule));
    rule.position = position;
  }

  void remove(const MailPolicy::Rule& rule) { m_db.run("DELETE FROM policy_rule" + _whereId(rule)); }

  void refuseFullOrder() {
    if (_lastPosition() >= kHighestPosition) {
      throw RuntimeError("no rule can stand behind the last one; give that a lower position", FailureKind::Refused);
    }
  }

  // A rule that was written, as it came back.
  VisibleRule written(const MailPolicy::Rule& rule) {
    const auto rules = storedRules(m_db);
    if (std::none_of(rules.begin(), rules.end(), [&](const MailPolicy::Rule& one) { return areAlike(one, rule); })) {
      throw RuntimeError(nameOf(rule) + " does not come back as it was written; nothing is changed", FailureKind::Data);
    }
    return shown(rule);
  }

  VisibleRule shown(const MailPolicy::Rule& rule) {
    VisibleRule visible = {rule, "", std::nullopt, {}, std::nullopt, m_sight.seesAllOf(rule)};
    if (rule.scope) {
      visible.scope =
          m_db.value("SELECT name FROM entity WHERE id = " + std::to_string(*rule.scope), "name").value_or("");
    }
    if (rule.recipients) {
      visible.recipients = nameIn(m_sight.groups, *rule.recipients);
    }
    for (const MailPolicy::List& list : rule.lists) {
      visible.lists.push_back({nameIn(m_sight.groups, list.group), list.kind});
    }
    if (rule.quarantine) {
      visible.area = nameIn(m_sight.areas, *rule.quarantine);
    }
    return visible;
  }

  const PolicySight& sight() const { return m_sight; }

 private:
  static std::string _whereId(const MailPolicy::Rule& rule) { return " WHERE id = " + std::to_string(rule.id); }

  void _lockRow(const std::string& table, const std::set<unsigned int>& ids) {
    for (const unsigned int id : ids) {
      m_db.rows("SELECT id FROM " + table + " WHERE id = " + std::to_string(id) + m_db.forReference(), {"id"});
    }
  }

  std::optional<unsigned int> _scope(const RuleChange::Scope& scope) {
    if (scope.isForAll) {
      if (!m_viewer.isRoot) {
        throw RuntimeError(quoted(m_viewer.name) + " may not make rules for all: only the administration root may",
                           FailureKind::Refused);
      }
      return std::nullopt;
    }
    for (const GroupEntity& entity : entitiesOfType(m_db, GroupEntity::Wildcard)) {
      if (entity.name != scope.entity) {
        continue;
      }
      if (m_sight.scopes.count(entity.id) == 0) {
        throw RuntimeError(quoted(m_viewer.name) + " may not make rules for " + quoted(scope.entity) +
                               ": it is no wildcard group of the administrator's, and contained in none",
                           FailureKind::Refused);
      }
      return entity.id;
    }
    throw NotThere("no wildcard managing group named " + quoted(scope.entity));
  }

  unsigned int _group(const std::string& text) const {
    return text.rfind(kGroupIdPrefix, 0) == 0 ? _groupById(text.substr(std::strlen(kGroupIdPrefix))) : _groupByName(text);
  }

  unsigned int _groupById(const std::string& text) const {
    const unsigned int id = idArgument(kGroupIdPrefix, text);
    if (m_sight.groups.count(id) == 0) {
      throw NotThere(quoted(m_viewer.name) + " sees no address group " + text);
    }
    return id;
  }

  unsigned int _groupByName(const std::string& name) const {
    std::vector<unsigned int> found;
    for (const auto& [id, known] : m_sight.groups) {
      if (known == name) {
        found.push_back(id);
      }
    }
    if (found.empty()) {
      throw NotThere(quoted(m_viewer.name) + " sees no address group named " + quoted(name));
    }
    if (found.size() > 1) {
      throw UsageError(std::to_string(found.size()) + " address groups are named " + quoted(name) + ": " +
                       idsOf(found, [](unsigned int id) { return id; }) + "; name one by " + kGroupIdPrefix + "ID");
    }
    return found.front();
  }

  unsigned int _area(unsigned int id) const {
    if (m_sight.areas.count(id) == 0) {
      throw NotThere(quoted(m_viewer.name) + " sees no quarantine area " + std::to_string(id));
    }
    return id;
  }

  unsigned int _lastPosition() {
    return static_cast<unsigned int>(
        std::stoul(m_db.value("SELECT coalesce(max(position), 0) AS last FROM policy_rule", "last").value_or("0")));
  }

  // Brings the lists of a rule from what they were to what they are, and with them, and the recipients, the uses of
  // groups: a list refers to the use of its group.
  void _writeLists(const MailPolicy::Rule& rule, const MailPolicy::Rule& before) {
    const std::string id = std::to_string(rule.id);
    const std::set<unsigned int> used = groupsOf(rule);
    for (const unsigned int group : used) {
      m_db.run("INSERT INTO policy_rule_object (rule_id, object_id) VALUES (" + id + ", " + std::to_string(group) +
               ") ON CONFLICT DO NOTHING");
    }
    _writeEachList(rule, before);
    for (const unsigned int group : groupsOf(before)) {
      if (used.count(group) == 0) {
        m_db.run("DELETE FROM policy_rule_object WHERE rule_id = " + id + " AND object_id = " + std::to_string(group));
      }
    }
  }

  void _writeEachList(const MailPolicy::Rule& rule, const MailPolicy::Rule& before) {
    const std::string id = std::to_string(rule.id);
    std::vector<long long> positions;  // which another program may have given with gaps
    for (const auto& row :
         m_db.rows("SELECT position FROM policy_rule_list WHERE rule_id = " + id + " ORDER BY position", {"position"})) {
      positions.push_back(std::stoll(row[0].value_or("0")));
    }
    for (std::size_t place = positions.size(); place-- > rule.lists.size();) {
      m_db.run("DELETE FROM policy_rule_list" + _whereList(id, positions[place]));
    }
    for (std::size_t place = 0; place != rule.lists.size(); ++place) {
      const MailPolicy::List& list = rule.lists[place];
      const std::string group = std::to_string(list.group);
      const std::string kind = std::to_string(list.kind);
      if (place >= positions.size()) {
        positions.push_back(positions.empty() ? 0 : positions.back() + 1);
        m_db.run("INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (" + id + ", " +
                 std::to_string(positions.back()) + ", " + group + ", " + kind + ")");
      } else if (!areAlike(list, before.lists[place])) {
        m_db.run("UPDATE policy_rule_list SET group_id = " + group + ", kind = " + kind +
                 _whereList(id, positions[place]));
      }
    }
  }

  static std::string _whereList(const std::string& rule, long long position) {
    return " WHERE rule_id = " + rule + " AND position = " + std::to_string(position);
  }

  StoreConnection& m_db;
  const Viewer& m_viewer;
  PolicySight m_sight;
};

VisibleRule editRules(const std::string& admin, const std::function<VisibleRule(RuleEdit&)>& change) {
  return changeAs(admin, [&](StoreConnection& db, const Viewer& viewer) {
    RuleEdit edit(db, viewer);
    return change(edit);
  });
}

}  // namespace

PolicySight::PolicySight(StoreConnection& db, const Viewer& viewer)
    : scopes(scopesOf(db, viewer)),
      groups(objectsSeen(db, viewer, ZaroNamedObj::GroupOfAddresses)),
      areas(objectsSeen(db, viewer, ZaroNamedObj::QuarantineArea)) {
  addSystemArea(db, areas);
}

bool PolicySight::sees(const Viewer& viewer, const MailPolicy::Rule& rule) const {
  return viewer.isRoot || (rule.scope && scopes.count(*rule.scope) != 0);
}

bool PolicySight::seesAllOf(const MailPolicy::Rule& rule) const {
  const std::set<unsigned int> used = groupsOf(rule);
  return std::all_of(used.begin(), used.end(), [&](unsigned int group) { return groups.count(group) != 0; }) &&
         (!rule.quarantine || areas.count(*rule.quarantine) != 0);
}

bool RuleChange::isEmpty() const {
  return !name && !position && !enabled && !scope && !recipients && !lists && !compare && !actions && !quarantine &&
         !reply && !tag && !headerValue && !address;
}

std::vector<VisibleRule> visibleRules(const Viewer& viewer) {
  StoreConnection db;
  const ReadTransaction transaction(db);
  RuleEdit edit(db, viewer);
  std::vector<VisibleRule> rules;
  for (const MailPolicy::Rule& rule : storedRules(db)) {
    if (edit.sight().sees(viewer, rule)) {
      rules.push_back(edit.shown(rule));
    }
  }
  return rules;
}

VisibleRule findRule(const Viewer& viewer, const WantedRule& wanted) {
  StoreConnection db;
  const ReadTransaction transaction(db);
  RuleEdit edit(db, viewer);
  return edit.shown(edit.find(wanted));
}

VisibleRule addRule(const std::string& admin, const std::string& name, const RuleChange& change) {
  return editRules(admin, [&](RuleEdit& edit) {
    edit.lock(change);
    MailPolicy::Rule rule;
    rule.name = name;
    rule.enabled = true;
    rule.actions = actionBitmap({});
    edit.resolve(change, rule);
    edit.refuseNonsense(rule);
    edit.insert(rule);
    edit.move(rule, change.position.value_or(rule.position));
    return edit.written(rule);
  });
}

VisibleRule changeRule(const std::string& admin, const WantedRule& wanted, const RuleChange& change) {
  return editRules(admin, [&](RuleEdit& edit) {
    edit.lock(change);
    const MailPolicy::Rule before = edit.findModifiable(wanted);
    MailPolicy::Rule rule = before;
    edit.resolve(change, rule);
    edit.refuseNonsense(rule);
    edit.update(rule, before);
    edit.move(rule, change.position.value_or(rule.position));
    return edit.written(rule);
  });
}

VisibleRule removeRule(const std::string& admin, const WantedRule& wanted) {
  return editRules(admin, [&](RuleEdit& edit) {
    edit.lock({});
    VisibleRule rule = edit.shown(edit.findModifiable(wanted));
    edit.remove(rule.stored);
    return rule;
  });
}
