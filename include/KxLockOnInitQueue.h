// The queue of objects that the next `KxWildcardEmail::initScanTimeMode` locks.
//
// A first-in-first-out queue of pointers that it does not own; null is allowed. Beyond a plain queue it can forget:
// when an object that waits in the library's queue is destroyed, another object takes its place there, in constant
// time, although millions may wait.
//
// How an entry is found in constant time:
//
// 1. `push` gives the object a ticket: the number of entries that were pushed before it. `pop` counts too, so the queue
//    knows the ticket of its front entry, and an object's entry is as many places behind it as the tickets differ.
// 2. Tickets hold as long as entries come by `push` and go by `pop`. A queue whose entries came all at once, as a copy,
//    or that was changed through a reference to `std::queue` looks at its entries one by one, until it runs empty.
// 3. A ticket belongs to the queue that gave it. A copy of a queue neither uses nor changes the tickets of its entries.
// 4. Entries of objects that have gone are removed when they are most of many (`_removeAll`); the objects that stay get
//    new tickets.
//
// What it cannot know: an object's entries in other queues than the library's own (KxWildcardEmail::_lockOnInit), and
// an object that came in through `std::queue` and never registered itself. The owner removes such entries first.
#pragma once

#include <cstddef>
#include <queue>

#include "ZaroPolicyExport.h"

class KxLockableClass;

class ZARO_POLICY_EXPORT KxLockOnInitQueue : public std::queue<KxLockableClass*> {
 public:
  KxLockOnInitQueue() : _frontTicket(0), _ticketed(0), _copied(false) {}
  KxLockOnInitQueue(const std::queue<KxLockableClass*>& entries)
      : std::queue<KxLockableClass*>(entries), _frontTicket(0), _ticketed(0), _copied(true) {}
  KxLockOnInitQueue(const KxLockOnInitQueue& other)
      : KxLockOnInitQueue(static_cast<const std::queue<KxLockableClass*>&>(other)) {}
  KxLockOnInitQueue& operator=(const KxLockOnInitQueue& other);

  // Removes the front entry. The queue is not empty.
  void pop();
  // Appends an object, or null. Throws std::bad_alloc.
  void push(KxLockableClass* object);
  reference emplace(KxLockableClass* object) {
    push(object);
    return back();
  }
  // The object that many places behind the front one, or null.
  KxLockableClass* _ahead(std::size_t places) const { return places < c.size() ? c[places] : nullptr; }
  // Puts `replacement` in the place of every entry that is `object`. Returns whether there was one.
  bool replace(const KxLockableClass* object, KxLockableClass* replacement);
  // Removes every entry that is `object`; the others keep their order. Looks at every entry and its object. Does
  // nothing while tickets do not lead to entries.
  void _removeAll(const KxLockableClass* object);

 private:
  // Tickets, as objects keep them. Real ones start over after kTickets of them.
  enum Ticket : unsigned int {
    kNone = 0,     // never pushed
    kSeveral = 1,  // pushed while it had a ticket: it has several entries
    kUsed = 2,     // its entry has been popped
    kFirst = 3,    // the lowest real one
    kTickets = 0x7FFFFFFDu,
    kTicketBits = 0x7FFFFFFFu,
  };

  // Whether an object's ticket leads to its entry.
  bool _ticketsHold() const { return !_copied && _ticketed == c.size(); }

  unsigned int _frontTicket;  // of the front entry, counted from 0
  std::size_t _ticketed;      // pushes less pops
  bool _copied;               // the entries came all at once; until the queue runs empty
};
