// Which of the library's own objects exist: the queue of what scan-time mode locks, and the default table.
//
// Their owner (decide/LibraryObjects.cpp) announces them. Before that and after they have gone nothing is registered or
// locked any more.
#pragma once

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

// Appends an object (or null) to the queue. When memory runs out, that is logged at level 1 and the object is not locked.
void registerForLock(KxLockableClass* object);

// Removes a destroyed object from the queue: what the queue holds in its place from then on locks nothing.
void forgetLockOnInit(const KxLockableClass* object);

// Whether the queue and the default table have been destroyed.
bool isUnloaded();

// Whether the table is the default one and has been destroyed, with its entries: a program may keep a tree in a static
// object of its own that goes later than the library's, when it loads the library after it made that object.
bool isGone(const KxStringtable* table);

}  // namespace zaro_addressmatch
