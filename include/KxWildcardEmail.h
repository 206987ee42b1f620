// Address matching at scan time: makes trees, freezes them, and decides an address over an ordered list of trees.
//
// 1. Phases. Make the trees and add their patterns; call `initScanTimeMode` once; match. Trees made later join the next
//    call. Until that call trees may be searched too, on the thread that fills them.
// 2. Threads. `initScanTimeMode`, `makeNewTree`, `_addToLockOnInit`, adding patterns and destroying trees or tables use
//    the queue and the default table without a lock: one thread at a time, and no matching meanwhile on the trees that
//    they change. Matching on frozen trees: any number of threads.
// 3. Ownership. The caller owns the trees that it makes and destroys them (`delete`), before or after the freeze; what
//    the queue still holds of a destroyed tree locks nothing.
// 4. At exit. A program's static object that is older than a library loaded later outlives the queue and the default
//    table. Then trees over that table match nothing, take no pattern and may be destroyed; `makeNewTree` answers with
//    a floating tree; nothing is queued or locked any more. The queue and the table themselves must be left alone.
// 5. Nothing here throws.
#pragma once

#include <cstddef>
#include <vector>

#include "KxListedEmailAddress.h"
#include "KxLockOnInitQueue.h"
#include "KxStringtable.h"
#include "KxWildcardNode.h"
#include "ZaroPolicyExport.h"

struct KxMatchExplanation;

// A leaf that may decide. A record for programs that rank what `findMatches` finds by rules of their own: no operation
// here takes or returns one, and decisions are made without it.
struct MatchingAddr {
  const KxIndexedString* address;  // the pattern; belongs to the leaf
  unsigned int weight;
  KxEmailBelongsTo state;
  unsigned int tree;  // position in the caller's vector
};

// Answer and outputs of `KxWildcardEmail::matchEmailAddress`.
struct KxMatchResult {
  unsigned char code;
  unsigned int treeIndex;
  const char* name;
  KxEmailBelongsTo belongsTo;
};

class ZARO_POLICY_EXPORT KxWildcardEmail {
 public:
  // Locks everything that is queued, in the order in which it was made, and empties the queue. The default table is
  // first in the queue of a process, and so is locked before what was built over it. A null entry is logged at level 1.
  static void initScanTimeMode();

  // Returns a new, empty tree over the default table, or null when memory runs out.
  static KxWildcardNode* makeNewTree();
  // Returns a new, empty tree without a table: never frozen, slower, for one thread at a time. Null as above.
  static KxWildcardNode* makeNewFloatingTree();

  // Decides an address.
  //   address     any letter case; null is decided by nothing
  //   trees       in order of precedence; null elements are passed over. They share one table (or have none):
  //               exceptions of a frozen tree are compared by rank, which says nothing about the texts of another table
  //   treeIndex   position of the tree that holds the deciding pattern
  //   name        the deciding pattern's text; valid as long as its tree
  //   belongsTo   the deciding pattern's kind
  // Outputs may be null; all are written, with 0 and null, when nothing decides. Returns
  //   0    nothing decided, or memory ran out (which is logged at level 1)
  //   1    kind A: a pattern of kind 1 in the first tree that has any of kind 1 or 2 for the address; without such a
  //        tree, one of kind 8
  //   2    kind B: the same with kind 2, and with kind 4
  //   9    kind A and kind B are of equal weight
  //   +128 added when the deciding tree had both kind 1 and kind 2 for the address
  static unsigned char matchEmailAddress(const char* address, std::vector<KxWildcardNode*>& trees,
                                         unsigned int* treeIndex, const char** name, KxEmailBelongsTo* belongsTo);
  // Decides `count` addresses, each as a call of its own would, but several at a time, so that their cache misses
  // overlap. `results` is an array of as many. An address for which memory runs out is logged; nothing decides it.
  static void matchEmailAddressBatch(const char* const* addresses, std::size_t count,
                                     std::vector<KxWildcardNode*>& trees, KxMatchResult* results);
  // Finds what `tree.findMatches` finds for each of `count` addresses, several at a time as above.
  //   matches   cleared, then the matches of all addresses, one address after the other
  //   ends      cleared, then for each address one past its last match. Should memory run out, which is logged, both
  //             stay empty.
  static void findMatchesBatch(KxWildcardNode& tree, const char* const* addresses, std::size_t count,
                               std::vector<KxListedEmailAddress*>& matches, std::vector<std::size_t>& ends);
  // Decides an address by the same rules, and reports for every pattern that contains it what became of it. Slower: the
  // trees after the deciding one are searched too, to show what they would have said. Returns the code.
  static unsigned char explainEmailAddress(const char* address, std::vector<KxWildcardNode*>& trees,
                                           KxMatchExplanation& explanation);

  // Returns a new, uninitialised array in which `KxWildcardNode::parseAddress` can split the address; free it with
  // `delete[]`. Null for null and when memory runs out.
  static char* allocateNewEmailAddressString(const char* emailAddress);
  // Takes every handle off the stack and releases it; null is ignored, and so is the table.
  static void cleanupDomainStack(KxWildcardNode::LabelStack* labels, KxStringtable* table);

  // Appends one object to the queue.
  static void _addToLockOnInit(KxLockableClass* object);

  // What the next `initScanTimeMode` locks. Owns nothing.
  static KxLockOnInitQueue _lockOnInit;
  // The table of the trees that `makeNewTree` makes.
  static KxStringtable _defaultScanTimeStringtable;
};
