// The weight of a pattern: how specific it is. The one place that knows.
#pragma once

#include <cstddef>

#include "addressmatch/text/AddressText.h"

namespace zaro_addressmatch {

// What the weight of a pattern depends on.
struct Specificity {
  bool concreteName;
  bool wildcardDomain;
  unsigned int concreteLabels;
};

// A leaf keeps 31 bits, more than the labels of any text need.
constexpr unsigned int kWeightBits = 0x7FFFFFFFu;

inline unsigned int weightOf(const Specificity& pattern) {
  // The bands are 1000 apart: up to 1000 labels, any exact domain is above any with a wildcard.
  if (!pattern.wildcardDomain) {
    return pattern.concreteLabels + (pattern.concreteName ? 5001 : 4001);
  }
  if (pattern.concreteLabels > 0) {
    return pattern.concreteLabels + (pattern.concreteName ? 3001 : 2001);
  }
  return pattern.concreteName ? 1001 : 1;
}

inline Specificity specificityOf(const char* pattern) {
  if (isWildcard(pattern)) {
    pattern = kEveryAddress;
  }
  Specificity specificity = {true, false, 0};
  splitAddress(pattern, [&specificity](Piece piece, const char* text, std::size_t size) {
    const bool wildcard = size == 1 && *text == '*';
    if (piece == Piece::LocalPart) {
      specificity.concreteName = !wildcard;
    } else if (wildcard) {
      specificity.wildcardDomain = true;
    } else {
      ++specificity.concreteLabels;
    }
  });
  return specificity;
}

inline unsigned int weightOf(const char* pattern) {
  return weightOf(specificityOf(pattern));
}

}  // namespace zaro_addressmatch
