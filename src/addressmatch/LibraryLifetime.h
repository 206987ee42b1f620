// The objects that live as long as the library: the queue and the default table (see LibraryLifetime.cpp).
#pragma once

#include "KxStringtable.h"

namespace zaro_addressmatch {

// To be called when an object goes that was registered for locking.
void forgetLockOnInit(const KxLockableClass* object);

// Whether the queue and the default table have been destroyed.
bool isUnloaded();

// Whether the table is the default one and has been destroyed, with its entries: a program may keep a tree in a static
// object of its own that goes later than the library's, when it loads the library after it made that object.
bool isGone(const KxStringtable* table);

}  // namespace zaro_addressmatch
