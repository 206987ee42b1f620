// What an index has of a leaf: the leaf itself, its text, and what a decision does with it, without a look at the leaf.
#pragma once

#include "KxListedEmailAddress.h"
#include "addressmatch/index/CompressedPointers.h"
#include "addressmatch/leaf/Kinds.h"
#include "addressmatch/leaf/PatternWeight.h"

namespace zaro_addressmatch {

// Cheap to make: what is not asked for is not computed.
class IndexedLeaf {
 public:
  struct References {
    CompressedPointers::Reference leaf;  // 0 for none
    CompressedPointers::Reference text;  // of the full address; 0 when only the leaf knows it
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

  IndexedLeaf(const CompressedPointers& pointers, const References& references, Role role, const Specificity& place)
      : m_pointers(pointers), m_references(references), m_role(role), m_place(place) {}

  KxListedEmailAddress* leaf() const {
    // The index only hands it on.
    return const_cast<KxListedEmailAddress*>(m_pointers.at<KxListedEmailAddress>(m_references.leaf));
  }
  // Of the full address; null when only the leaf knows it.
  const char* text() const { return m_pointers.at<char>(m_references.text); }
  // 0 for a state that no decision looks at.
  KxEmailBelongsTo state() const { return m_role == kAskLeaf ? leaf()->getState() : kindOf(m_role); }
  unsigned int weight() const { return m_role == kAskLeaf ? leaf()->getWeight() : weightOf(m_place); }

 private:
  // 1, 2, 4 to 32 for the roles between the two above, and 0 for kIgnored.
  static KxEmailBelongsTo kindOf(Role role) { return KxEmailBelongsTo{1} << role >> 1; }

  const CompressedPointers& m_pointers;
  References m_references;
  Role m_role;
  Specificity m_place;
};

}  // namespace zaro_addressmatch
