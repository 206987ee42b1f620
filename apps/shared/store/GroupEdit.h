// One address group in the transaction that changes it; see AddressGroups.h for the rules.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "store/AddressGroups.h"
#include "store/Database.h"

class GroupEdit {
 public:
  // Locks the group. NotThere when it has gone, RuntimeError for an actor who may not edit it.
  GroupEdit(StoreConnection& db, const Actor& actor, const StoredGroup& group);

  // As it is stored.
  const StoredGroup& group() const { return m_group; }
  std::size_t countMembers();

  void rename(const std::string& name);
  void removeAllMembers();
  // Takes a member away in every spelling that is stored; answers how many there were. RuntimeError when it is none.
  std::size_t removeMember(const std::string& address);
  // Puts members behind the present ones; answers the places of those that are members already, which stay as they are.
  std::vector<std::size_t> append(const std::vector<std::string>& addresses);
  // RuntimeError when a rule uses it. The object is of no use afterwards.
  void removeGroup();

 private:
  std::string _fromMembers() const;
  // Members with one of some keys.
  std::string _fromMembersLike(const std::vector<std::string>& keys) const;
  std::set<std::string> _keysAmong(const std::vector<std::string>& addresses, std::size_t begin, std::size_t end);
  void _insert(std::size_t position, const std::vector<const std::string*>& addresses);
  // The statement that stores them. Each is one entry of the audit trail; SQLite's triggers, which run for each row,
  // need help with that.
  std::string _addition(std::size_t position, const std::vector<const std::string*>& addresses) const;
  std::string _additionForSqlite(std::size_t position, const std::vector<const std::string*>& addresses) const;
  bool _isSqlite() const;
  void _requireStored(bool isStored) const;

  StoreConnection& m_db;
  const Actor& m_actor;
  StoredGroup m_group;
  std::string m_id;
};
