// Why an address was decided as it was: the record that `KxWildcardEmail::explainEmailAddress` fills.
#pragma once

#include <cstddef>
#include <vector>

#include "KxListedEmailAddress.h"

// A pattern that contains the address, and what became of it.
struct KxMatchCandidate {
  enum Fate : int {
    Decided,      // the answer is its
    Tied,         // as heavy as the answer, of the other kind
    Lighter,      // `other` is heavier
    Later,        // as heavy as `other` and of the same kind, but met later
    Removed,      // taken back by the exception `other`
    Exception,    // an exception: took `removed` candidates back, decides nothing itself
    Ignored,      // its state is not exactly one of the kinds 1 to 32
    Outranked,    // second tier, and `other` of the first tier decided
    NotSearched,  // in a tree after the deciding one
  };
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  const KxListedEmailAddress* leaf;  // belongs to its tree
  unsigned int tree;                 // position in the caller's vector
  unsigned int weight;
  KxEmailBelongsTo state;
  Fate fate;
  std::size_t other;    // position in `candidates`, or kNone
  std::size_t removed;  // see Exception
};

struct KxMatchExplanation {
  enum Tier : int { NoTier, FirstTier, SecondTier };

  // In the order in which the trees yield them.
  std::vector<KxMatchCandidate> candidates;
  // Answer and outputs of `matchEmailAddress`.
  unsigned char code = 0;
  unsigned int treeIndex = 0;
  const char* name = nullptr;
  KxEmailBelongsTo belongsTo = 0;
  // How the code comes about: the tier that decided, and the heaviest weight of kind A and kind B in it (0: none of
  // that kind). The greater one gives 1 or 2, equal ones give 9, which is the base code; 128 is added when `bothKinds`.
  Tier tier = NoTier;
  unsigned int weightA = 0;
  unsigned int weightB = 0;
  bool bothKinds = false;
  unsigned char baseCode = 0;
  unsigned char addedCode = 0;  // 128 or 0
  // How many trees were searched for the decision.
  std::size_t treesSearched = 0;
  // False when memory ran out: then there are no candidates, and the code is 0.
  bool complete = true;
};
