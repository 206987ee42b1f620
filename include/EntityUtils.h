// Entities: the managing groups to which administrators are assigned and to which named objects belong.
//
// 1. Sets of entities go by name alone, byte by byte: of two entities with one name the first to come stays, whatever
//    their types and identifiers.
// 2. A wildcard entity is named by an address pattern, and patterns can contain each other; that is the hierarchy.
// 3. A call uses the database handle it is given, which belongs to one thread. Any number of threads may ask at once,
//    also while others search frozen trees. The wildcard relations make trees for themselves over the default string
//    table (see KxWildcardEmail.h), one question after the other: no thread may fill or freeze trees over that table
//    meanwhile.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "ZaroPolicyExport.h"

namespace ZARO {
class RdbmsInterface;
}

struct GroupEntity {
  // As stored; other values from 0 to 7 are carried through.
  enum EntityType : int { LdapGroup = 2, Wildcard = 6 };

  std::string name;  // of a wildcard entity, its address pattern
  EntityType type = EntityType(0);
  unsigned int id = 0;
};

// Orders entities by name, bytes as unsigned values.
struct GroupEntityCmp {
  bool operator()(const GroupEntity& one, const GroupEntity& other) const { return one.name < other.name; }
};

class ZARO_POLICY_EXPORT EntityUtils {
 public:
  // --- Look-ups ---
  // They return 0, or
  //   1002  a row or column is missing, NULL or not a number; logged at level 1
  //   1003  the database layer threw; logged at level 1
  // What was read before a failure stays in `out`, which is not cleared first.

  // Appends the entities of an administrator, in the order of the rows. 1002 also stands for an administrator without
  // any.
  static int getEntity(ZARO::RdbmsInterface& db, unsigned int adminId, std::vector<GroupEntity>& out);
  // Inserts every entity. 1007, logged at level 1, at a type that is not between 0 and 7.
  static int getAllEntities(ZARO::RdbmsInterface& db, std::set<GroupEntity, GroupEntityCmp>& out);
  // Inserts every entity of a type.
  static int _getAllEntitiesOfSameType(ZARO::RdbmsInterface& db, GroupEntity::EntityType type,
                                       std::set<GroupEntity, GroupEntityCmp>& out);
  // Whether an administrator is the administration root. False, and logged at level 1, when that cannot be read.
  static bool isAdminRoot(ZARO::RdbmsInterface& db, unsigned int adminId);

  // --- Hierarchy ---
  // Relatives of `rootEntity` among `entities` are inserted into `found`, which is not cleared first. With
  // `removeFound` everything in `found` is then taken out of `entities`, so that another root does not find it again.

  // Children: entities whose name, read as an address, the root's pattern contains. An entity of exactly the root's
  // name is passed over. Returns 0, or (logged at level 1)
  //   1004  `rootEntity` is null
  //   1007  `rootEntity` is no pattern
  static int getAllWildcardChildren(const char* rootEntity, std::set<GroupEntity, GroupEntityCmp>& entities,
                                    std::set<GroupEntity, GroupEntityCmp>& found, bool removeFound);
  // Parents: entities whose pattern contains the root's name, read as an address. An entity of the root's name, in
  // whatever case, is passed over; one that is no pattern is logged at level 1 and passed over. Returns 0, or (logged
  // at level 1)
  //   1002  a pattern matched whose text is no entity's name; parents found before it stay, nothing is removed
  //   1004  `rootEntity` is null
  static int getAllWildcardParents(const char* rootEntity, std::set<GroupEntity, GroupEntityCmp>& entities,
                                   std::set<GroupEntity, GroupEntityCmp>& found, bool removeFound);
  // LDAP groups have no relatives: both return 0 and change nothing.
  static int getAllLdapChildren(const char* rootEntity, std::set<GroupEntity, GroupEntityCmp>& entities,
                                std::set<GroupEntity, GroupEntityCmp>& found, bool removeFound);
  static int getAllLdapParents(const char* rootEntity, std::set<GroupEntity, GroupEntityCmp>& entities,
                               std::set<GroupEntity, GroupEntityCmp>& found, bool removeFound);
  // Takes what is in `found` out of `entities`.
  static void _removeFoundEntities(std::set<GroupEntity, GroupEntityCmp>& entities,
                                   std::set<GroupEntity, GroupEntityCmp>& found);

  // Whether an address, or a narrower pattern, falls under a wildcard group's pattern; letter case does not count. A
  // "*" stands for the local part if it is its first character, and for everything left of it in the domain; elsewhere
  // it is a character like any other. A missing "@" is logged at level 2 where it keeps the question open, and the
  // answer is false. Null arguments give true, and are logged at level 1.
  static bool MemberOfWildCardGroup(const char* group, const char* emailAddress);
};
