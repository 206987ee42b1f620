#include "addressmatch/intern/LibraryLifetime.h"

#include <cstddef>

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
// How many objects have gone while they waited, since the queue was looked through: at most so many of its entries are
// theirs, but for objects that waited several times.
std::size_t g_gone = 0;

// Amortised over the objects that have gone, constant time for each.
void removeGone() {
  constexpr std::size_t kMany = 65536;
  if (g_gone > kMany && g_gone > g_queue->size() / 2) {
    g_queue->_removeAll(&g_nothingToLock);
    g_gone = 0;
  }
}

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
  if (g_queue == nullptr) {
    return;
  }
  removeGone();
  if (!withinMemory([&] { g_queue->push(object); })) {
    // It works all the same, at the speed of a tree that is being filled.
    PolicyLog::log(LogLevel::Error, "KxWildcardEmail::_addToLockOnInit: out of memory; an object will not be locked");
  }
}

void forgetLockOnInit(const KxLockableClass* object) {
  if (g_queue != nullptr) {
    if (g_queue->replace(object, &g_nothingToLock)) {
      ++g_gone;
    }
  }
}

bool isDefaultTable(const KxStringtable* table) {
  return table == g_defaultTable;
}

}  // namespace zaro_addressmatch
