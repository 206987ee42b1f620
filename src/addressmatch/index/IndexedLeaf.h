// What an index has of a leaf: the leaf itself, its text, and what a decision does with it, without a look at the leaf.
#pragma once

#include "KxListedEmailAddress.h"
#include "addressmatch/index/CompressedPointers.h"
#include "addressmatch/leaf/Kinds.h"
#include "addressmatch/leaf/PatternWeight.h"

namespace zaro_addressmatch {

// Two registers, so that it is handed over at no cost.
class IndexedLeaf {
 public:
  struct References {
    CompressedPointers::Reference leaf;  // 0 for none
    CompressedPointers::Reference text;  // of the full address; 0 when only the leaf knows it

    KxListedEmailAddress* leafIn(const CompressedPointers& pointers) const {
      // The index only hands it on.
      return const_cast<KxListedEmailAddress*>(pointers.at<KxListedEmailAddress>(leaf));
    }
    const char* textIn(const CompressedPointers& pointers) const { return pointers.at<char>(text); }
  };

  // A leaf's state in 3 bits: none of the kinds alone, one of them, or something that only the leaf knows, since it may
  // still change or its weight is not that of its place.
  using Role = unsigned int;
  static constexpr Role kIgnored = 0;
  static constexpr Role kAskLeaf = 7;

  // Of a leaf that will not change, at a place whose patterns have the weight of `place`.
  static Role roleOf(const KxListedEmailAddress& leaf, const Specificity& place) {
    if (!leaf.isLocked() || leaf.getWeight() != weightOf(place)) {
      return kAskLeaf;
    }
    for (Role role = 1; role != kAskLeaf; ++role) {
      if (leaf.getState() == kindOf(role)) {
        return role;
      }
    }
    return kIgnored;
  }

  IndexedLeaf(const References& ofLeaf, Role ofRole, unsigned int weightOfPlace)
      : references(ofLeaf), m_role(ofRole), m_weight(weightOfPlace) {}

  References references;

  // 0 for a state that no decision looks at.
  KxEmailBelongsTo state(const CompressedPointers& pointers) const {
    return m_role == kAskLeaf ? references.leafIn(pointers)->getState() : kindOf(m_role);
  }
  unsigned int weight(const CompressedPointers& pointers) const {
    return m_role == kAskLeaf ? references.leafIn(pointers)->getWeight() : m_weight;
  }

 private:
  // 1, 2, 4 to 32 for the roles between the two above, and 0 for kIgnored.
  static KxEmailBelongsTo kindOf(Role role) { return KxEmailBelongsTo{1} << role >> 1; }

  Role m_role;
  unsigned int m_weight;
};

}  // namespace zaro_addressmatch
