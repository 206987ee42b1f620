// Named objects: reusable components of policy rules, such as quarantine areas and address groups, with a name, a type
// and a content text, owned by entities.
//
// 1. The store writes and reads any object by its identifier. It checks no permissions but in `remove`.
// 2. Visibility (`getIds`) says which objects of a type an administrator sees. What is owned by entities of the
//    administrator, or by entities contained in them, is seen, and can be edited once no other owner is left; what is
//    owned by an entity that contains one of them is seen and cannot be edited. The administration root sees and edits
//    everything. `isEditable`, and with it `remove`, is narrower on purpose: it counts direct owners only.
// 3. The areas whose names begin with "OPP:" are the system's: never listed, but every administrator may read them.
// 4. There is no state here. A call uses the database handle it is given, which belongs to one thread; any number of
//    threads may call at once, each with its own. `getIds` and `getEditableQuanantineData` make trees of patterns; see
//    EntityUtils.h for what no thread may do meanwhile.
// 5. Failures of the database layer are logged at level 1. Names and contents are UTF-8; storing or looking for
//    anything else is such a failure.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "EntityUtils.h"
#include "ZaroPolicyExport.h"

namespace ZARO {
class RdbmsInterface;
}

// A named object as an administrator sees it.
struct SummaryNamedObject {
  unsigned int id = 0;
  bool editable = false;
  bool deletable = false;  // editable, and no rule refers to it
  std::string name;
};

// A quarantine area as the console shows it.
struct QuarantineData {
  unsigned int id = 0;
  std::string name;
  std::string content;  // as stored
  bool editable = false;
};

class ZARO_POLICY_EXPORT ZaroNamedObj {
 public:
  // Kinds of objects, as stored; other values are carried through.
  enum NaObjType : int { QuarantineArea = 3, GroupOfAddresses = 5 };

  // A candidate of `getIds`: an object, and those of its owners that have not been accounted for.
  struct _nameAndEntities {
    std::string name;
    std::set<unsigned int> entities;
  };
  // Candidates by the object's identifier. A candidate has at least one owner: what takes the last one away takes the
  // candidate away.
  using _candidates = std::map<unsigned int, _nameAndEntities>;

  virtual ~ZaroNamedObj();
  virtual bool load(ZARO::RdbmsInterface& db, unsigned int id) = 0;
  virtual bool store(ZARO::RdbmsInterface& db, unsigned int adminId) = 0;
  virtual NaObjType getType() const = 0;

  // --- Store ---

  // Adds an object that every entity of the administrator owns. False when the administrator has no entity (`newId` is
  // untouched then), or the object or an ownership could not be written; what was written before stays, and `newId`
  // tells it, 4294967295 meaning none.
  static bool add(ZARO::RdbmsInterface& db, unsigned int adminId, const char* name, const char* content, NaObjType type,
                  unsigned int& newId);
  // Adds an object without owners. Returns its identifier, 4294967295 after a failure.
  static unsigned int addObj(ZARO::RdbmsInterface& db, const char* name, const char* content, NaObjType type);
  // Makes entities owners of an object. False at the first that fails; those before it stay.
  static bool addEntityNamedObjIds(ZARO::RdbmsInterface& db, unsigned int namedObjId, NaObjType type,
                                   std::vector<GroupEntity>& entities);
  // Replaces name, content and type of an object. `adminId` is not looked at: ask `isEditable` first. True also when
  // there is no such object.
  static bool modify(ZARO::RdbmsInterface& db, unsigned int namedObjId, unsigned int adminId, const char* name,
                     const char* content, NaObjType type);
  // The same; 0, or -1 after a failure.
  static int modifyObj(ZARO::RdbmsInterface& db, const char* name, const char* content, NaObjType type,
                       unsigned int namedObjId);
  // Removes an object. Returns 0, or
  //   1003  the database failed
  //   6022  there is no such object
  //   6023  it came into use meanwhile
  //   6024  the administrator may not edit it
  //   6025  a rule refers to it
  static int remove(ZARO::RdbmsInterface& db, unsigned int namedObjId, unsigned int adminId);
  // Whether an administrator may edit an object: the administration root may; others, when each of its owners is an
  // entity of theirs, or when it has none. False when that cannot be read.
  static bool isEditable(ZARO::RdbmsInterface& db, unsigned int adminId, unsigned int namedObjId);
  // Whether no rule refers to an object. False when that cannot be read.
  static bool _isDeletability(ZARO::RdbmsInterface& db, unsigned int namedObjId);
  // Appends the identifiers of an object's owners. False after a failure; those before it stay.
  static bool getEntityIds(ZARO::RdbmsInterface& db, std::vector<unsigned int>& entityIds, unsigned int namedObjId);
  // Reads content and name of an object. A NULL name leaves `name` as it was; a NULL content is a failure.
  static bool getBlob(ZARO::RdbmsInterface& db, unsigned int namedObjId, std::string& content, std::string& name);
  static bool getContentBlob(ZARO::RdbmsInterface& db, unsigned int namedObjId, std::string& content, std::string& name);
  // True; for probes of programs that link the library.
  static bool test(unsigned int id, std::string& content, std::string& name);

  // --- Visibility ---

  // Lists the objects of a type that an administrator sees, by name (letter case does not count; equal names in the
  // order in which they are found). The administration root's list is in the order of the rows, and nothing in it is
  // deletable.
  //   out   pass an empty vector; it is not cleared
  // False after a failure, also for an administrator without entities; `out` keeps what was found before it.
  static bool getIds(ZARO::RdbmsInterface& db, unsigned int adminId, NaObjType type,
                     std::vector<SummaryNamedObject>& out);

  // The steps of `getIds`, in their order, for programs that explain a result. Each moves owners out of `candidates`
  // and lists what it finds in `out`.

  // Reads every object of the type with its owners. `rootOut`, unless null, gets them all, to be edited.
  static bool _getNamedObjIds(ZARO::RdbmsInterface& db, _candidates& candidates, NaObjType type,
                              std::vector<SummaryNamedObject>* rootOut);
  // Direct: objects that entities of the administrator own.
  static void _addDirRefNamedObjIds(std::vector<GroupEntity>& adminEntities, _candidates& candidates,
                                    std::vector<SummaryNamedObject>& out);
  // What relatives of the administrator's entities own: `_addRelatedWildcardIds`, then `_addRelatedLdapIds`, if there
  // are entities of these types.
  static bool _addIndirRefNamedObjIds(ZARO::RdbmsInterface& db, std::vector<GroupEntity>& adminEntities,
                                      _candidates& candidates, std::vector<SummaryNamedObject>& out);
  // Children of all wildcard entities, then parents of all.
  static bool _addRelatedWildcardIds(ZARO::RdbmsInterface& db, std::vector<GroupEntity>& adminEntities,
                                     _candidates& candidates, std::vector<SummaryNamedObject>& out);
  static bool _addRelatedLdapIds(ZARO::RdbmsInterface& db, std::vector<GroupEntity>& adminEntities,
                                 _candidates& candidates, std::vector<SummaryNamedObject>& out);
  // Children: objects that entities contained in the administrator's own.
  static void _addChildrenNamedObjs(std::set<GroupEntity, GroupEntityCmp>& children, _candidates& candidates,
                                    std::vector<SummaryNamedObject>& out);
  // Parents: objects that entities containing the administrator's own, for reading only.
  static void _addParentNamedObjs(std::set<GroupEntity, GroupEntityCmp>& parents, _candidates& candidates,
                                  std::vector<SummaryNamedObject>& out);
  // Gives a listed object (same identifier and name) the summary's editability, or lists it.
  static void _updateEditableIds(const SummaryNamedObject& summary, std::vector<SummaryNamedObject>& out);

  // --- Quarantine areas ---

  // Looks up the system's area over a connection of its own; `db` is not used, and what a transaction on it has not
  // committed is not seen. It never waits for that transaction. `area.editable` is untouched. Returns 0, or
  //   1002  there is none that can be used; `area` may then hold name and identifier of one without content
  //   1003  the database layer threw, or answers nothing but failures
  static int getOPPQuarantineArea(ZARO::RdbmsInterface& db, QuarantineData& area);
  // Appends the areas that an administrator sees, with their contents, and last the system's, if there is one, for
  // reading only.
  //   out   pass an empty vector; it is not cleared
  // False when `getIds` fails, or a content cannot be read (contents before it are there then).
  static bool getEditableQuanantineData(ZARO::RdbmsInterface& db, unsigned int adminId, std::vector<QuarantineData>& out);
};
