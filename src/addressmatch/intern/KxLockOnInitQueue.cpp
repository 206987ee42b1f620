// Objects that scan-time mode locks, and the queue in which they wait.
#include <algorithm>

#include "KxStringtable.h"
#include "addressmatch/intern/LibraryLifetime.h"

using namespace zaro_addressmatch;

KxLockableClass::KxLockableClass(bool lockOnInit) : _locked(0), _place(KxLockOnInitQueue::kNeverQueued) {
  if (lockOnInit) {
    registerForLock(this);
  }
}

KxLockableClass::~KxLockableClass() {
  if (_place != KxLockOnInitQueue::kNeverQueued) {
    forgetLockOnInit(this);
  }
}

bool KxLockableClass::isLocked() const {
  return _locked != 0;
}

void KxLockableClass::_lock() {
  _locked = 1;
}

KxLockOnInitQueue& KxLockOnInitQueue::operator=(const KxLockOnInitQueue& other) {
  std::queue<KxLockableClass*>::operator=(other);
  _foreign = true;
  return *this;
}

void KxLockOnInitQueue::pop() {
  KxLockableClass* object = front();
  // A copy holds objects that the queue they were pushed to still holds: only that queue changes their place.
  if (object != nullptr && _isCounted() && object->_place == kFirstPlace + _front) {
    object->_place = kHandedOut;
  }
  std::queue<KxLockableClass*>::pop();
  _front = (_front + 1) % kPlaces;
  --_counted;
  if (c.empty()) {
    _counted = 0;
    _foreign = false;
  }
}

void KxLockOnInitQueue::push(KxLockableClass* object) {
  std::queue<KxLockableClass*>::push(object);
  ++_counted;
  if (object == nullptr) {
    return;
  }
  const bool isElsewhere = object->_place != kNeverQueued && object->_place != kHandedOut;
  const auto count = static_cast<unsigned int>((_front + c.size() - 1) % kPlaces);
  object->_place = (isElsewhere ? kQueuedTwice : kFirstPlace + count) & kPlaceBits;
}

void KxLockOnInitQueue::replace(const KxLockableClass* object, KxLockableClass* replacement) {
  if (_isCounted()) {
    if (object->_place == kHandedOut) {
      return;
    }
    if (object->_place >= kFirstPlace) {
      const unsigned int position = (object->_place - kFirstPlace + kPlaces - _front) % kPlaces;
      if (position < c.size() && c[position] == object) {
        c[position] = replacement;
        return;
      }
    }
  }
  std::replace(c.begin(), c.end(), const_cast<KxLockableClass*>(object), replacement);
}
