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

// A leaf that may decide, as such or as an index has it: then nothing of it is read unless it is asked for.
struct Candidate {
  const CompressedPointers* pointers;  // null for a leaf as such
  union {
    const KxListedEmailAddress* itself;
    IndexedLeaf::References references;
  };
  unsigned int weight;
  KxEmailBelongsTo state;
  unsigned int tree;
  std::size_t order;  // its number among all leaves that were fed, from 0

  const KxListedEmailAddress* leaf() const { return pointers != nullptr ? references.leafIn(*pointers) : itself; }
  const char* name() const {
    const char* text = pointers != nullptr ? references.textIn(*pointers) : nullptr;
    return text != nullptr ? text : leaf()->getFullAddress().getString();
  }
};

struct Outcome {
  unsigned char code = 0;
  KxMatchExplanation::Tier tier = KxMatchExplanation::NoTier;
  const Candidate* winner = nullptr;  // of the decision; null when the code is 0
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
    m_heaviest[0].weight = m_heaviest[1].weight = 0;
    for (const KxListedEmailAddress* leaf : leaves) {
      take({nullptr, {leaf}, leaf->getWeight(), leaf->getState(), tree, m_fed++});
    }
    return isDecided();
  }
  // The same, of what an index yields.
  bool addTree(const FrozenIndex& index, const Query& query, const FrozenIndex::Place& place, unsigned int tree) {
    m_heaviest[0].weight = m_heaviest[1].weight = 0;
    const CompressedPointers& pointers = index.pointers();
    index.visit(
        query, place, [&](IndexedLeaf leaf) __attribute__((always_inline)) {
          Candidate candidate;
          candidate.pointers = &pointers;
          candidate.references = leaf.references;
          candidate.weight = leaf.weight(pointers);
          candidate.state = leaf.state(pointers);
          candidate.tree = tree;
          candidate.order = m_fed++;
          take(candidate);
        });
    return isDecided();
  }

  // To be asked once, after the tree that decided or the last one.
  const Outcome& outcome() {
    if (m_outcome.tier == KxMatchExplanation::NoTier && !(m_secondTierA.empty() && m_secondTierB.empty())) {
      m_heaviest[0].weight = m_heaviest[1].weight = 0;
      offerAll(m_heaviest[0], m_secondTierA);
      offerAll(m_heaviest[1], m_secondTierB);
      decide(KxMatchExplanation::SecondTier);
    }
    return m_outcome;
  }

 private:
  static constexpr unsigned char kCodes[] = {1, 2, 9};  // A, B, a tie
  static constexpr unsigned char kBothKinds = 128;

  using Candidates = FewElements<Candidate, 8>;

  void take(const Candidate& candidate) {
    static_assert(kFirstTierA == 1 && kFirstTierB == 2, "numbers of the first tier's places");
    // Not a case for each of the two: which of them comes next cannot be predicted.
    if (candidate.state - kFirstTierA < 2) {
      offer(m_heaviest[candidate.state - kFirstTierA], candidate);
    } else {
      takeBeyondFirstTier(candidate);
    }
  }

  void takeBeyondFirstTier(Candidate candidate) {
    // Only single kinds take part; a combined state is ignored as a whole.
    switch (candidate.state) {
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

  // By the tree whose leaves have been taken.
  bool isDecided() {
    const Candidate& kindA = m_heaviest[0];
    const Candidate& kindB = m_heaviest[1];
    if ((kindA.weight | kindB.weight) == 0) {
      return false;
    }
    decide(KxMatchExplanation::FirstTier);
    m_outcome.addedCode = kindA.weight != 0 && kindB.weight != 0 ? kBothKinds : 0;
    m_outcome.code |= m_outcome.addedCode;
    outrank(m_secondTierA);
    outrank(m_secondTierB);
    return true;
  }

  // On equal weights the earlier one stays.
  void offer(Candidate& heaviest, const Candidate& candidate) {
    if (candidate.weight > heaviest.weight) {
      if (heaviest.weight != 0) {
        m_observer->lighter(heaviest.order, candidate.order);
      }
      heaviest = candidate;
    } else if (candidate.weight == heaviest.weight) {
      m_observer->later(candidate.order, heaviest.order);
    } else {
      m_observer->lighter(candidate.order, heaviest.order);
    }
  }

  void offerAll(Candidate& heaviest, const Candidates& candidates) {
    for (const Candidate& candidate : candidates) {
      offer(heaviest, candidate);
    }
  }

  // An exception reaches only what was collected before it.
  void takeBack(Candidates& candidates, const Candidate& exception) {
    std::size_t removals = 0;
    candidates.removeIf([&](const Candidate& candidate) {
      if (candidate.leaf()->getFullAddress() != exception.leaf()->getFullAddress()) {
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
      m_observer->outranked(candidate.order, m_outcome.winner->order);
    }
  }

  // Of equal weights kind A gives the data. The kind without a candidate has the weight 0.
  void decide(KxMatchExplanation::Tier tier) {
    const unsigned int weightA = m_heaviest[0].weight;
    const unsigned int weightB = m_heaviest[1].weight;
    // Places and sums in the stead of branches: which kind wins cannot be predicted.
    const bool isB = weightB > weightA;
    const Candidate& winner = m_heaviest[std::size_t{isB}];
    const Candidate& loser = m_heaviest[std::size_t{!isB}];

    m_outcome.tier = tier;
    m_outcome.baseCode = kCodes[std::size_t{isB} + 2 * std::size_t{weightA == weightB}];
    m_outcome.code = m_outcome.baseCode;
    m_outcome.winner = &winner;
    m_outcome.weightA = weightA;
    m_outcome.weightB = weightB;

    m_observer->decided(winner.order);
    if (loser.weight == 0) {
      return;
    }
    if (loser.weight == winner.weight) {
      m_observer->tied(loser.order, winner.order);
    } else {
      m_observer->lighter(loser.order, winner.order);
    }
  }

  Observer* m_observer;
  std::size_t m_fed;
  // Of each kind, A and then B, of the tree that is taken; weight 0 as long as there is none. Written where they stay.
  Candidate m_heaviest[2];
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
