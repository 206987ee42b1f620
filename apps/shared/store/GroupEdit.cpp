#include "store/GroupEdit.h"

#include <algorithm>
#include <climits>
#include <optional>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"
#include "console/Output.h"
#include "console/Text.h"
#include "store/GroupMembers.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::sqlLiteral;

namespace {

constexpr std::size_t kMembersAtOnce = 500;
constexpr std::size_t kPositions = static_cast<std::size_t>(INT_MAX) + 1;

std::size_t numberIn(const std::optional<std::string>& value) {
  return static_cast<std::size_t>(std::stoull(value.value_or("0")));
}

std::string nameOf(const StoredGroup& group) {
  return "the address group " + quoted(group.name);
}

}  // namespace

GroupEdit::GroupEdit(StoreConnection& db, const Actor& actor, const StoredGroup& group)
    : m_db(db), m_actor(actor), m_group(group), m_id(std::to_string(group.id)) {
  const auto name =
      m_db.value("SELECT name AS \"Name\" FROM named_object WHERE type = 5 AND id = " + m_id + m_db.forUpdate(), "Name");
  if (!name) {
    throw NotThere(nameOf(group) + " is gone");
  }
  if (group.isNamed && *name != group.name) {
    throw NotThere(nameOf(group) + " has another name by now");
  }
  m_group.name = *name;
  if (actor && !ZaroNamedObj::isEditable(m_db.library(), actor->id, group.id)) {
    throw RuntimeError(quoted(actor->name) + " may not edit " + nameOf(m_group) +
                           ": not every owner is a managing group of the administrator's; see zaroctl object why",
                       FailureKind::Refused);
  }
}

std::size_t GroupEdit::countMembers() {
  return numberIn(m_db.value("SELECT count(*) AS \"Members\"" + _fromMembers(), "Members"));
}

void GroupEdit::rename(const std::string& name) {
  refuseReservedName(name);
  m_db.run("UPDATE named_object SET name = " + sqlLiteral(name) + " WHERE id = " + m_id);
  m_group.name = name;
}

void GroupEdit::removeAllMembers() {
  m_db.run(_isSqlite() ? "INSERT INTO member_removal (group_id) VALUES (" + m_id + ")" : "DELETE" + _fromMembers());
}

std::size_t GroupEdit::removeMember(const std::string& address) {
  const std::string query = "SELECT position AS \"Position\"" + _fromMembersLike({memberKey(address)});
  const auto found = m_db.rows(query, {"Position"});
  if (found.empty()) {
    throw RuntimeError(quoted(address) + " is no member of " + quoted(group().name) + "; nothing is changed",
                       FailureKind::Refused);
  }
  for (const auto& row : found) {
    m_db.run("DELETE" + _fromMembers() + " AND position = " + row[0].value_or(""));
  }
  _requireStored(m_db.rows(query, {"Position"}).empty());
  return found.size();
}

std::vector<std::size_t> GroupEdit::append(const std::vector<std::string>& addresses) {
  const auto last = m_db.value("SELECT max(position) AS \"Position\"" + _fromMembers(), "Position");
  std::size_t position = last ? numberIn(last) + 1 : 0;
  std::vector<std::size_t> present;
  for (std::size_t begin = 0; begin < addresses.size(); begin += kMembersAtOnce) {
    const std::size_t end = std::min(addresses.size(), begin + kMembersAtOnce);
    const auto known = last ? _keysAmong(addresses, begin, end) : std::set<std::string>();
    std::vector<const std::string*> added;
    for (std::size_t place = begin; place < end; ++place) {
      if (known.count(memberKey(addresses[place])) != 0) {
        present.push_back(place);
      } else {
        added.push_back(&addresses[place]);
      }
    }
    _insert(position, added);
    position += added.size();
  }
  return present;
}

void GroupEdit::removeGroup() {
  const auto rules = rulesThatUse(m_db, m_group.id);
  if (!rules.empty()) {
    throw RuntimeError(nameOf(m_group) + " was not removed: in use by " + rulesText(!m_actor || m_actor->isRoot, rules),
                       FailureKind::Refused);
  }
  m_db.run("DELETE FROM named_object WHERE id = " + m_id);
}

std::string GroupEdit::_fromMembers() const {
  return " FROM address_group_member WHERE group_id = " + m_id;
}

std::string GroupEdit::_fromMembersLike(const std::vector<std::string>& keys) const {
  std::string texts;
  for (const std::string& key : keys) {
    texts.append(texts.empty() ? "" : ",").append(sqlLiteral(key));
  }
  // The plus keeps SQLite from reading the whole group instead of looking the addresses up.
  return " FROM address_group_member WHERE lower(address) IN (" + texts + ") AND +group_id = " + m_id;
}

std::set<std::string> GroupEdit::_keysAmong(const std::vector<std::string>& addresses, std::size_t begin,
                                            std::size_t end) {
  std::vector<std::string> keys;
  keys.reserve(end - begin);
  for (std::size_t place = begin; place < end; ++place) {
    keys.push_back(memberKey(addresses[place]));
  }
  std::set<std::string> found;
  for (const auto& row : m_db.rows("SELECT address AS \"Address\"" + _fromMembersLike(keys), {"Address"})) {
    found.insert(memberKey(row[0].value_or("")));
  }
  return found;
}

void GroupEdit::_insert(std::size_t position, const std::vector<const std::string*>& addresses) {
  if (addresses.empty()) {
    return;
  }
  if (position + addresses.size() > kPositions) {
    throw RuntimeError("no member can stand behind the last of " + quoted(group().name) +
                           "; export and import the group, which numbers its members anew",
                       FailureKind::Refused);
  }
  m_db.run(_isSqlite() ? _additionForSqlite(position, addresses) : _addition(position, addresses));
  const auto stored = m_db.rows("SELECT address AS \"Address\"" + _fromMembers() +
                                    " AND position >= " + std::to_string(position) + " ORDER BY position",
                                {"Address"});
  _requireStored(
      std::equal(stored.begin(), stored.end(), addresses.begin(), addresses.end(),
                 [](const StoreConnection::Row& row, const std::string* address) { return row[0] == *address; }));
}

std::string GroupEdit::_addition(std::size_t position, const std::vector<const std::string*>& addresses) const {
  std::string rows;
  for (std::size_t place = 0; place < addresses.size(); ++place) {
    rows.append(place == 0 ? "(" : ",(").append(m_id).append(",").append(std::to_string(position + place));
    rows.append(",").append(sqlLiteral(*addresses[place])).append(")");
  }
  return "INSERT INTO address_group_member (group_id, position, address) VALUES " + rows;
}

std::string GroupEdit::_additionForSqlite(std::size_t position, const std::vector<const std::string*>& addresses) const {
  Json texts = Json::array();
  for (const std::string* address : addresses) {
    texts.push_back(*address);
  }
  return "INSERT INTO member_addition (group_id, position, addresses) VALUES (" + m_id + ", " +
         std::to_string(position) + ", " + sqlLiteral(texts.dump()) + ")";
}

bool GroupEdit::_isSqlite() const {
  return m_db.dialect() == zaroruntime::Dialect::SQLite;
}

void GroupEdit::_requireStored(bool isStored) const {
  if (!isStored) {
    throw RuntimeError(nameOf(m_group) + " does not come back as it was written; nothing is changed", FailureKind::Data);
  }
}
