// Named objects of the installation, as commands need them.
//
// Everything here throws RuntimeError when the database fails, and NotThere for what is not there.
#pragma once

#include <string>
#include <vector>

#include "ZaroNamedObj.h"
#include "store/Administration.h"

// The name of a type that has one, otherwise its number; and the type that such a text means, or UsageError.
std::string nameOfType(ZaroNamedObj::NaObjType type);
ZaroNamedObj::NaObjType objectType(const std::string& text);
// Every type of which there are objects.
std::vector<ZaroNamedObj::NaObjType> usedTypes();

struct StoredObject {
  unsigned int id;
  ZaroNamedObj::NaObjType type;
  std::string name;
};

StoredObject findObject(unsigned int id);
// Every object of a type, by identifier.
std::vector<StoredObject> objectsOfType(ZaroNamedObj::NaObjType type);
std::string contentOf(const StoredObject& object);
// The names of the rules that use an object.
std::vector<std::string> rulesThatUse(unsigned int objectId);

// An administrator who looks at objects. One who is not root has at least one managing group.
struct Viewer {
  std::string name;
  unsigned int id;
  bool isRoot;
  std::vector<GroupEntity> entities;
};

// NotThere also for one who could not see anything.
Viewer findViewer(const std::string& adminName);
std::vector<SummaryNamedObject> visibleObjects(const Viewer& viewer, ZaroNamedObj::NaObjType type);

// What the library does with an object, or RuntimeError saying in words why it did not, or would not. The object is
// read back and compared.
StoredObject addObject(const Viewer& viewer, ZaroNamedObj::NaObjType type, const std::string& name,
                       const std::string& content);
void changeObject(const Viewer& viewer, const StoredObject& changed, const std::string& content);
void removeObject(const Viewer& viewer, const StoredObject& object);
