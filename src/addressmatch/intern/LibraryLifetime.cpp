#include "addressmatch/intern/LibraryLifetime.h"

#include "PolicyLog.h"
#include "addressmatch/text/Memory.h"

namespace zaro_addressmatch {

namespace {

// What the queue holds in the place of an object that has gone.
class NothingToLock final : public KxLockableClass {
 public:
  NothingToLock() : KxLockableClass(false) {}
  void lock() override {}
};

// Older than the queue, so that it outlives it.
__attribute__((init_priority(101))) NothingToLock g_nothingToLock;

// Constant-initialised and never destroyed, so they can be asked at any time.
KxLockOnInitQueue* g_queue = nullptr;
const KxStringtable* g_defaultTable = nullptr;

}  // namespace

bool g_isUnloaded = false;

LibraryObjects::LibraryObjects(KxLockOnInitQueue& queue, const KxStringtable& defaultTable) {
  g_queue = &queue;
  g_defaultTable = &defaultTable;
}

LibraryObjects::~LibraryObjects() {
  g_queue = nullptr;
  g_isUnloaded = true;
}

void registerForLock(KxLockableClass* object) {
  if (g_queue != nullptr && !withinMemory([&] { g_queue->push(object); })) {
    // It works all the same, at the speed of a tree that is being filled.
    PolicyLog::log(LogLevel::Error, "KxWildcardEmail::_addToLockOnInit: out of memory; an object will not be locked");
  }
}

void forgetLockOnInit(const KxLockableClass* object) {
  if (g_queue != nullptr) {
    g_queue->replace(object, &g_nothingToLock);
  }
}

bool isDefaultTable(const KxStringtable* table) {
  return table == g_defaultTable;
}

}  // namespace zaro_addressmatch
