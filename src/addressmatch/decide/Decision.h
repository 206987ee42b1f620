// The rules by which an address is decided.
//
//   1. The first tree with a leaf of the first tier decides; the heaviest leaf of each kind, A and B, is compared.
//   2. Without such a tree the leaves of the second tier of all trees decide, compared in the same way.
//   3. An exception removes what was collected before it of its kind and with its text (`takeBack`).
//
// A decision gets the leaves of one tree after the other, and is asked for the outcome once, at the end. It reports the
// fate of every leaf to its observer; NoObserver costs nothing. Leaves come as such or as an index has them; of the
// latter none is looked at unless an exception has to be compared. docs/address-matching.md has the rules for readers.
//
//   memory   none of the heap, up to 8 leaves of each kind of the second tier
#pragma once

#include <cstddef>
#include <new>
#include <vector>

#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "addressmatch/decide/FewElements.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/leaf/Kinds.h"
#include "addressmatch/leaf/LeafRange.h"

namespace zaro_addressmatch {

// A leaf that may decide.
struct Candidate {
  const KxListedEmailAddress* leaf;
  const char* text;  // of its full address; null when only the leaf knows it
  unsigned int weight;
  KxEmailBelongsTo state;
  unsigned int tree;
  std::size_t order;  // its number among all leaves that were fed, from 0

  const char* name() const { return text != nullptr ? text : leaf->getFullAddress().getString(); }
};

struct Outcome {
  unsigned char code = 0;
  KxMatchExplanation::Tier tier = KxMatchExplanation::NoTier;
  Candidate winner;  // meaningless when the code is 0
  unsigned int weightA = 0;
  unsigned int weightB = 0;
  // What the code is put together of.
  unsigned char baseCode = 0;
  unsigned char addedCode = 0;
};

// Observes nothing. Every observer has these operations; `leaf` and the like are numbers of leaves.
struct NoObserver {
  void fed(const LeafRange& /*leaves*/, unsigned int /*tree*/) {}
  void ignored(std::size_t /*leaf*/) {}
  void lighter(std::size_t /*leaf*/, std::size_t /*heavier*/) {}
  void later(std::size_t /*leaf*/, std::size_t /*earlier*/) {}
  void tied(std::size_t /*leaf*/, std::size_t /*winner*/) {}
  void removed(std::size_t /*leaf*/, std::size_t /*exception*/) {}
  void exception(std::size_t /*leaf*/, std::size_t /*removals*/) {}
  void outranked(std::size_t /*leaf*/, std::size_t /*winner*/) {}
  void decided(std::size_t /*leaf*/) {}
};

template <typename Observer>
class Decision {
 public:
  explicit Decision(Observer& observer) : m_observer(&observer), m_fed(0) {}

  // Takes what the tree at position `tree` yields, in its order. True when that decides: later trees do not count.
  // Throws std::bad_alloc.
  bool addTree(const LeafRange& leaves, unsigned int tree) {
    m_observer->fed(leaves, tree);
    FirstTier firstTier;
    for (const KxListedEmailAddress* leaf : leaves) {
      take(firstTier, {leaf, nullptr, leaf->getWeight(), leaf->getState(), tree, m_fed++});
    }
    return isDecidedBy(firstTier);
  }
  // The same, of what an index yields.
  bool addTree(const FrozenIndex& index, const Query& query, const FrozenIndex::Place& place, unsigned int tree) {
    FirstTier firstTier;
    index.visit(query, place, [&](const IndexedLeaf& leaf) {
      take(firstTier, {leaf.leaf(), leaf.text(), leaf.weight(), leaf.state(), tree, m_fed++});
    });
    return isDecidedBy(firstTier);
  }

  // To be asked once, after the tree that decided or the last one.
  const Outcome& outcome() {
    if (m_outcome.tier == KxMatchExplanation::NoTier && !(m_secondTierA.empty() && m_secondTierB.empty())) {
      decide(KxMatchExplanation::SecondTier, heaviest(m_secondTierA), heaviest(m_secondTierB));
    }
    return m_outcome;
  }

 private:
  static constexpr unsigned char kKindA = 1;
  static constexpr unsigned char kKindB = 2;
  static constexpr unsigned char kTie = 9;
  static constexpr unsigned char kBothKinds = 128;

  // The heaviest of one kind so far; weight 0 as long as there is none.
  struct Best {
    Candidate candidate = {};
    bool isThere() const { return candidate.weight != 0; }
  };
  struct FirstTier {
    Best kindA;
    Best kindB;
  };
  using Candidates = FewElements<Candidate, 8>;

  void take(FirstTier& firstTier, const Candidate& candidate) {
    // Only single kinds take part; a combined state is ignored as a whole.
    switch (candidate.state) {
      case kFirstTierA:
        offer(firstTier.kindA, candidate);
        break;
      case kFirstTierB:
        offer(firstTier.kindB, candidate);
        break;
      case kSecondTierB:
        m_secondTierB.add(candidate);
        break;
      case kSecondTierA:
        m_secondTierA.add(candidate);
        break;
      case kExceptionToA:
        takeBack(m_secondTierA, candidate);
        break;
      case kExceptionToB:
        takeBack(m_secondTierB, candidate);
        break;
      default:
        m_observer->ignored(candidate.order);
    }
  }

  bool isDecidedBy(const FirstTier& firstTier) {
    const Best& kindA = firstTier.kindA;
    const Best& kindB = firstTier.kindB;
    if (!kindA.isThere() && !kindB.isThere()) {
      return false;
    }
    decide(KxMatchExplanation::FirstTier, kindA, kindB);
    if (kindA.isThere() && kindB.isThere()) {
      m_outcome.addedCode = kBothKinds;
      m_outcome.code |= kBothKinds;
    }
    outrank(m_secondTierA);
    outrank(m_secondTierB);
    return true;
  }

  // On equal weights the earlier one stays.
  void offer(Best& best, const Candidate& candidate) {
    if (candidate.weight > best.candidate.weight) {
      if (best.isThere()) {
        m_observer->lighter(best.candidate.order, candidate.order);
      }
      best.candidate = candidate;
    } else if (candidate.weight == best.candidate.weight) {
      m_observer->later(candidate.order, best.candidate.order);
    } else {
      m_observer->lighter(candidate.order, best.candidate.order);
    }
  }

  Best heaviest(const Candidates& candidates) {
    Best best;
    for (const Candidate& candidate : candidates) {
      offer(best, candidate);
    }
    return best;
  }

  // An exception reaches only what was collected before it.
  void takeBack(Candidates& candidates, const Candidate& exception) {
    std::size_t removals = 0;
    candidates.removeIf([&](const Candidate& candidate) {
      if (candidate.leaf->getFullAddress() != exception.leaf->getFullAddress()) {
        return false;
      }
      m_observer->removed(candidate.order, exception.order);
      ++removals;
      return true;
    });
    m_observer->exception(exception.order, removals);
  }

  void outrank(const Candidates& candidates) {
    for (const Candidate& candidate : candidates) {
      m_observer->outranked(candidate.order, m_outcome.winner.order);
    }
  }

  // Of equal weights kind A gives the data.
  void decide(KxMatchExplanation::Tier tier, const Best& kindA, const Best& kindB) {
    const unsigned int weightA = kindA.candidate.weight;
    const unsigned int weightB = kindB.candidate.weight;
    const Best& winner = weightB > weightA ? kindB : kindA;
    const Best& loser = weightB > weightA ? kindA : kindB;

    m_outcome.tier = tier;
    m_outcome.baseCode = weightA == weightB ? kTie : (weightA > weightB ? kKindA : kKindB);
    m_outcome.code = m_outcome.baseCode;
    m_outcome.winner = winner.candidate;
    m_outcome.weightA = weightA;
    m_outcome.weightB = weightB;

    m_observer->decided(winner.candidate.order);
    if (!loser.isThere()) {
      return;
    }
    if (weightA == weightB) {
      m_observer->tied(loser.candidate.order, winner.candidate.order);
    } else {
      m_observer->lighter(loser.candidate.order, winner.candidate.order);
    }
  }

  Observer* m_observer;
  std::size_t m_fed;
  Candidates m_secondTierA;
  Candidates m_secondTierB;
  Outcome m_outcome;
};

// Asks trees leaf by leaf, until one decides. Returns how many of them were asked; throws std::bad_alloc.
template <typename Observer>
std::size_t askEachTree(const std::vector<KxWildcardNode*>& trees, const char* address, Decision<Observer>& decision) {
  std::vector<KxListedEmailAddress*> leaves;
  std::size_t tree = 0;
  for (bool decided = false; !decided && tree != trees.size(); ++tree) {
    leaves.clear();
    if (trees[tree] != nullptr && !trees[tree]->findAllMatches(address, leaves)) {
      throw std::bad_alloc();
    }
    decided = decision.addTree(LeafRange::of(leaves), static_cast<unsigned int>(tree));
  }
  return tree;
}

}  // namespace zaro_addressmatch
