#include "addressmatch/LibraryLifetime.h"

#include "KxWildcardEmail.h"
#include "PolicyLog.h"
#include "addressmatch/Memory.h"

namespace {

// What the queue holds in the place of an object that has gone.
class NothingToLock final : public KxLockableClass {
 public:
  NothingToLock() : KxLockableClass(false) {}
  void lock() override {}
};

// Constant-initialised and never destroyed, so it can be asked at any time.
bool g_unloaded = false;

class UnloadMark {
 public:
  ~UnloadMark() { g_unloaded = true; }
};

// Static objects of the program may make and destroy trees: these come up before them, whatever the order in which the
// files were linked, and go down after them. Among themselves: the queue before the table that registers itself there.
__attribute__((init_priority(101))) NothingToLock g_nothingToLock;

}  // namespace

__attribute__((init_priority(102))) KxLockOnInitQueue KxWildcardEmail::_lockOnInit;

namespace {
__attribute__((init_priority(103))) const UnloadMark g_unloadMark;
}  // namespace

__attribute__((init_priority(104))) KxStringtable KxWildcardEmail::_defaultScanTimeStringtable;

// Constant-initialised: usable even earlier.
KxIndexedString KxStringtable::_theEmptyIndexedString("");
KxIndexedString KxStringtable::_theWildcardIndexedString("*");

void KxWildcardEmail::_addToLockOnInit(KxLockableClass* object) {
  using zaro_addressmatch::withinMemory;
  if (g_unloaded) {
    return;
  }
  if (!withinMemory([&] { _lockOnInit.push(object); })) {
    // It works all the same, at the speed of a tree that is being filled.
    PolicyLog::log(LogLevel::Error, "KxWildcardEmail::_addToLockOnInit: out of memory; an object will not be locked");
  }
}

namespace zaro_addressmatch {

void forgetLockOnInit(const KxLockableClass* object) {
  if (!g_unloaded) {
    KxWildcardEmail::_lockOnInit.replace(object, &g_nothingToLock);
  }
}

bool isUnloaded() {
  return g_unloaded;
}

bool isGone(const KxStringtable* table) {
  return g_unloaded && table == &KxWildcardEmail::_defaultScanTimeStringtable;
}

}  // namespace zaro_addressmatch
