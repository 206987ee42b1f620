// Address groups of the installation, as commands need them.
//
// 1. A change of a group is one transaction that begins with locks on the actor's rights and on the group's row, so that
//    changes of one group come one after the other. It writes no more members than it changes, and reads those back before it commits.
// 2. Members are told apart by `memberKey`: none is added that the group has in other letter case. What other programs
//    have stored twice stays until it is removed.
// 3. An actor reaches what an administrator sees, and changes what that administrator may edit by `isEditable`; see
//    ZaroNamedObj.h. Without an actor every group is in reach. A group that the actor does not see is not there.
//
// Everything here throws DatabaseError when the database fails, RuntimeError for what is refused, and NotThere for a
// group that is not there.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "store/Objects.h"

using Actor = std::optional<Viewer>;

struct StoredGroup {
  unsigned int id;
  std::string name;
  bool isNamed = false;  // found by its name, without which it is not the group that is meant
};

struct GroupSummary {
  unsigned int id;
  std::string name;
  std::size_t members;
  bool modifiable;                  // by the actor; true without one
  std::vector<std::string> owners;  // names of the managing groups; left out for an actor, who may not see them all
};

// Every group that is in reach, by name and identifier.
std::vector<GroupSummary> listGroups(const Actor& actor);

// The group of a name, which must be the only one in reach: organisations that cannot see each other may choose the same.
StoredGroup findGroup(const std::string& name, const Actor& actor = {});
// The group of an identifier.
StoredGroup findGroup(unsigned int id, const Actor& actor = {});

// The members of a group, in their order.
std::vector<std::string> membersOf(const StoredGroup& group);

// Why a text cannot be the name of a group; empty when it can.
std::string wrongGroupName(const std::string& name);

// Adds a group that every managing group of the administrator owns, or one of them; the administration root may name any.
//   entityId   nothing for all
//   members    each once
StoredGroup addGroup(const std::string& admin, std::optional<unsigned int> entityId, const std::string& name,
                     const std::vector<std::string>& members);

// What is to be done with a group, in this order. All of it is done, or nothing.
struct GroupChange {
  std::optional<std::string> name;
  bool replacesMembers = false;  // the present ones go
  std::vector<std::string> removed;
  std::vector<std::string> added;  // each once; behind the present ones
  bool countsMembers = false;      // which takes a look at every one
};

struct ChangedGroup {
  unsigned int id;
  std::string name;
  std::size_t removed;               // how many
  std::vector<std::size_t> present;  // places in `added` of what was a member before, and not added
  std::size_t members;               // in the end, if they were to be counted
};

ChangedGroup changeGroup(const Actor& actor, const StoredGroup& group, const GroupChange& change);

// Removes a group that no rule uses.
GroupSummary removeGroup(const Actor& actor, const StoredGroup& group);
