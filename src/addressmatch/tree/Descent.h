// The way down a tree.
#pragma once

#include <cstddef>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/intern/LabelStack.h"

namespace zaro_addressmatch {

// Keeps the levels and the label that each of them took off the stack. Whatever happens, the labels go back; when memory runs
// out for one, it is released. An address may have any number of labels, so the way is a vector and not a chain of calls.
class Descent {
 public:
  struct Step {
    KxWildcardNode* node;
    const KxIndexedString* label;
  };

  explicit Descent(KxWildcardNode::LabelStack& labels) : m_labels(labels) { m_steps.reserve(kUsualDepth); }
  ~Descent() { climbOut(); }
  Descent(const Descent&) = delete;
  Descent& operator=(const Descent&) = delete;

  // Enters a level; false when it does not match. Throws std::bad_alloc.
  bool enter(KxWildcardNode& node) {
    m_steps.push_back({&node, nullptr});
    return node._matchesThisNode(m_labels, m_steps.back().label);
  }
  bool isOut() const { return m_steps.empty(); }
  KxWildcardNode& deepest() const { return *m_steps.back().node; }
  // Leaves the deepest level. False when the stack now lacks its label.
  bool climb() {
    const KxIndexedString* label = m_steps.back().label;
    m_steps.pop_back();
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
  std::vector<Step> m_steps;
};

}  // namespace zaro_addressmatch
