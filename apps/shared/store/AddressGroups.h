// Address groups of the installation, as commands need them. The library's operations answer success also when they
// failed, so what is written is read back and compared, and what is read is counted.
//
// Everything here throws RuntimeError when the database fails, or holds something else than was written, and NotThere
// for a group or an administrator that is not there.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct GroupSummary {
  unsigned int id;
  std::string name;
  std::size_t members;
};

// Every group, by name and identifier.
std::vector<GroupSummary> listGroups();

// The group of a name, which must be the only one: organisations that cannot see each other may choose the same.
GroupSummary findGroup(const std::string& name);
// The group of an identifier.
GroupSummary findGroup(unsigned int id);

// The members of a group, in their order.
std::vector<std::string> membersOf(const GroupSummary& group);

// Why a text cannot be a member, or the name of a group; empty when it can.
std::string wrongMember(const std::string& address);
std::string wrongGroupName(const std::string& name);

// Adds a group that every managing group of the administrator owns, or one of them.
//   entityId   0 for all
GroupSummary addGroup(const std::string& adminName, unsigned int entityId, const std::string& name,
                      const std::vector<std::string>& members);
// Gives a group a name and members.
void changeGroup(const GroupSummary& group, const std::string& name, const std::vector<std::string>& members);
void removeGroup(const GroupSummary& group);
