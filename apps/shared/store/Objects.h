// Named objects of the installation, as commands need them.
//
// 1. A change is one transaction that locks the administrator's rights, then the object, and changes only what it names.
// 2. An administrator changes what is visible in `visibleObjects` and editable by `ZaroNamedObj::isEditable`. What is not
//    visible is not there: a refusal shows nothing of it.
// 3. Names that begin with "OPP:" are the system's. No object is given such a name. The quarantine area that has one
//    (of several the oldest) keeps its name and type and is not removed; the administration root may change its content.
//
// Everything here throws RuntimeError when the database fails, and NotThere for what is not there.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ZaroNamedObj.h"
#include "store/Administration.h"
#include "store/Transaction.h"

// The name of a type that has one, otherwise its number; and the type that such a text means, or UsageError.
std::string nameOfType(ZaroNamedObj::NaObjType type);
ZaroNamedObj::NaObjType objectType(const std::string& text);
// Every type of which there are objects.
std::vector<ZaroNamedObj::NaObjType> usedTypes();

// UsageError for a name that is the system's.
void refuseReservedName(const std::string& name);

struct StoredObject {
  unsigned int id;
  ZaroNamedObj::NaObjType type;
  std::string name;
};

StoredObject findObject(unsigned int id);
// Nothing when there is none.
std::optional<StoredObject> findStored(unsigned int id);
std::string contentOf(const StoredObject& object);
// The names of the rules that use an object.
std::vector<std::string> rulesThatUse(unsigned int objectId);
std::vector<std::string> rulesThatUse(StoreConnection& db, unsigned int objectId);

// An object with the text that policies read for it: its content, or the members of an address group, one a line.
struct ObjectText {
  StoredObject object;
  std::string text;
};

// Those of a type, by identifier.
std::vector<ObjectText> textsOfType(ZaroNamedObj::NaObjType type);
// Those of some identifiers, in the order given.
std::vector<ObjectText> textsOf(const std::vector<unsigned int>& ids);

// An administrator who looks at objects. One who is not root has at least one managing group.
struct Viewer {
  std::string name;
  unsigned int id;
  bool isRoot;
  std::vector<GroupEntity> entities;
};

// Rules, which are at least one, for a message, named or counted. Only the root is told all names.
std::string rulesText(bool namesThem, const std::vector<std::string>& rules);
// NotThere also for one who could not see anything.
Viewer findViewer(const std::string& adminName);
// The same in a transaction that relies on it: to its end no other takes the administrator, a managing group of the
// administrator's or the root's rights away. A change by an administrator begins with it; see `changeAs`.
Viewer lockViewer(StoreConnection& db, const std::string& adminName);
std::vector<SummaryNamedObject> visibleObjects(const Viewer& viewer, ZaroNamedObj::NaObjType type);
std::vector<SummaryNamedObject> visibleObjects(StoreConnection& db, const Viewer& viewer, ZaroNamedObj::NaObjType type);
// Whether `changeObject` would change an object that is visible. Removing also wants that no rule uses it.
bool isModifiable(StoreConnection& db, const Viewer& viewer, unsigned int id);
// NotThere for what the viewer does not see, whether it is there or not.
[[noreturn]] void throwNotSeen(const Viewer& viewer, unsigned int id);

// Runs `change(db, viewer)` as one transaction, by the rights that the administrator has to its end.
template <typename Change>
auto changeAs(const std::string& adminName, Change change) {
  actAs(adminName);
  return inTransaction([&](StoreConnection& db) { return change(db, lockViewer(db, adminName)); });
}

// Performs the library's operation; RuntimeError explains a refusal. The object is
// read back and compared before the change is committed.
StoredObject addObject(const std::string& admin, ZaroNamedObj::NaObjType type, const std::string& name,
                       const std::string& content);

struct ObjectChange {
  std::optional<ZaroNamedObj::NaObjType> type;
  std::optional<std::string> name;
  std::optional<std::string> content;
};

// As it is afterwards; what the change does not name stays.
StoredObject changeObject(const std::string& admin, unsigned int id, const ObjectChange& change);
// As it was.
StoredObject removeObject(const std::string& admin, unsigned int id);
