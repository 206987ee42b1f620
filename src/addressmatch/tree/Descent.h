// The way down a tree.
#pragma once

#include <cstddef>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/intern/LabelStack.h"

namespace zaro_addressmatch {

// Level by level, with the label that each level took off the stack. The labels go back whatever
// happens; should memory run out for one, it is released. A way may be as long as an address has labels, so it is kept
// here and not in calls.
class Descent {
 public:
  struct Level {
    KxWildcardNode* node;
    const KxIndexedString* label;
  };

  explicit Descent(KxWildcardNode::LabelStack& labels) : m_labels(labels) { m_levels.reserve(kUsualDepth); }
  ~Descent() { climbOut(); }
  Descent(const Descent&) = delete;
  Descent& operator=(const Descent&) = delete;

  // Enters a level; false when it does not match. Throws std::bad_alloc.
  bool enter(KxWildcardNode& node) {
    m_levels.push_back({&node, nullptr});
    return node._matchesThisNode(m_labels, m_levels.back().label);
  }
  bool isOut() const { return m_levels.empty(); }
  KxWildcardNode& deepest() const { return *m_levels.back().node; }
  // Leaves the deepest level. False when the stack now lacks its label.
  bool climb() {
    const KxIndexedString* label = m_levels.back().label;
    m_levels.pop_back();
    return label == nullptr || pushOrRelease(m_labels, label);
  }
  bool climbOut() {
    bool whole = true;
    while (!isOut()) {
      whole = climb() && whole;
    }
    return whole;
  }

 private:
  static constexpr std::size_t kUsualDepth = 8;

  KxWildcardNode::LabelStack& m_labels;
  std::vector<Level> m_levels;
};

}  // namespace zaro_addressmatch
