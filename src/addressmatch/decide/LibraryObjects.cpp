// The static objects of the library.
//
// Static objects of the program may make and destroy trees: the library's come up before them, whatever the order in which
// the files were linked, and go down after them. Among themselves: the queue before the table that registers itself there.
#include "KxWildcardEmail.h"
#include "addressmatch/intern/LibraryLifetime.h"

__attribute__((init_priority(102))) KxLockOnInitQueue KxWildcardEmail::_lockOnInit;

namespace {
__attribute__((init_priority(103)))
const zaro_addressmatch::LibraryObjects g_libraryObjects(KxWildcardEmail::_lockOnInit,
                                                         KxWildcardEmail::_defaultScanTimeStringtable);
}  // namespace

__attribute__((init_priority(104))) KxStringtable KxWildcardEmail::_defaultScanTimeStringtable;
