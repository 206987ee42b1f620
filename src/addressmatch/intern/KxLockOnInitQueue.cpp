// Objects that scan-time mode locks, and the queue in which they wait.
#include "KxLockOnInitQueue.h"
#include "KxStringtable.h"
#include "addressmatch/intern/LibraryLifetime.h"

using namespace zaro_addressmatch;

KxLockableClass::KxLockableClass(bool lockOnInit) : _locked(0), _ticket(0) {
  if (lockOnInit) {
    registerForLock(this);
  }
}

KxLockableClass::~KxLockableClass() {
  if (_ticket != 0) {
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
  _copied = true;
  return *this;
}

void KxLockOnInitQueue::pop() {
  KxLockableClass* object = front();
  // In a copy the object's ticket is another queue's.
  if (object != nullptr && _ticketsHold() && object->_ticket == kFirst + _frontTicket) {
    object->_ticket = kUsed;
  }
  std::queue<KxLockableClass*>::pop();
  _frontTicket = (_frontTicket + 1) % kTickets;
  --_ticketed;
  if (c.empty()) {
    _ticketed = 0;
    _copied = false;
  }
}

void KxLockOnInitQueue::push(KxLockableClass* object) {
  std::queue<KxLockableClass*>::push(object);
  ++_ticketed;
  if (object == nullptr) {
    return;
  }
  // A second ticket would lose the first entry: with several entries an object is searched for.
  const bool mayWait = object->_ticket != kNone && object->_ticket != kUsed;
  const auto ticket = static_cast<unsigned int>((_frontTicket + c.size() - 1) % kTickets);
  object->_ticket = (mayWait ? kSeveral : kFirst + ticket) & kTicketBits;
}

void KxLockOnInitQueue::_removeAll(const KxLockableClass* object) {
  if (!_ticketsHold()) {
    return;
  }
  // Each object that stays gets the ticket of its new place, if it had that of its old one.
  const auto ticketAt = [this](std::size_t position) {
    return kFirst + static_cast<unsigned int>((_frontTicket + position) % kTickets);
  };
  std::size_t kept = 0;
  for (std::size_t position = 0; position != c.size(); ++position) {
    KxLockableClass* entry = c[position];
    if (entry == object) {
      continue;
    }
    if (entry != nullptr && entry->_ticket == ticketAt(position)) {
      entry->_ticket = ticketAt(kept) & kTicketBits;
    }
    c[kept++] = entry;
  }
  c.resize(kept);
  _ticketed = kept;
}

bool KxLockOnInitQueue::replace(const KxLockableClass* object, KxLockableClass* replacement) {
  if (_ticketsHold()) {
    if (object->_ticket == kUsed) {
      return false;
    }
    // A ticket may be another queue's, so the entry is compared.
    if (object->_ticket >= kFirst) {
      const unsigned int position = (object->_ticket - kFirst + kTickets - _frontTicket) % kTickets;
      if (position < c.size() && c[position] == object) {
        c[position] = replacement;
        return true;
      }
    }
  }
  bool found = false;
  for (KxLockableClass*& entry : c) {
    found = found || entry == object;
    entry = entry == object ? replacement : entry;
  }
  return found;
}
