// Which of the library's own objects exist: the queue of what scan-time mode locks, and the default table.
//
// Their owner (decide/LibraryObjects.cpp) announces them. Before that and after they have gone nothing is registered or
// locked any more.
#pragma once

#include "KxLockOnInitQueue.h"
#include "KxStringtable.h"

namespace zaro_addressmatch {

// Announces the queue and the default table for as long as it exists. One object of this class in a process.
class LibraryObjects {
 public:
  LibraryObjects(KxLockOnInitQueue& queue, const KxStringtable& defaultTable);
  ~LibraryObjects();
  LibraryObjects(const LibraryObjects&) = delete;
  LibraryObjects& operator=(const LibraryObjects&) = delete;
};

// Appends an object (or null) to the queue. Where most of many entries are those of objects that have gone, it removes
// these first, so that the queue of a process that never freezes is bounded by the objects that it has. When memory
// runs out, that is logged at level 1 and the object is not locked.
void registerForLock(KxLockableClass* object);

// Removes a destroyed object from the queue: what the queue holds in its place from then on locks nothing.
void forgetLockOnInit(const KxLockableClass* object);

// Set when the queue and the default table are destroyed. Constant-initialised, so that it can be read at any time;
// inline, because every look-up reads it.
extern bool g_isUnloaded;
inline bool isUnloaded() {
  return g_isUnloaded;
}

// Whether the table is the default one and has been destroyed, with its entries: a program may keep a tree in a static
// object of its own that goes later than the library's, when it loads the library after it made that object.
bool isDefaultTable(const KxStringtable* table);
inline bool isGone(const KxStringtable* table) {
  return isUnloaded() && isDefaultTable(table);
}

}  // namespace zaro_addressmatch
