// The pieces of a split address as handles: the domain labels from left to right, the local part on top.
#pragma once

#include <deque>
#include <stack>

#include "KxStringtable.h"
#include "addressmatch/text/Memory.h"

namespace zaro_addressmatch {

// The same type as `KxWildcardNode::LabelStack`.
using LabelStack = std::stack<const KxIndexedString*, std::deque<const KxIndexedString*>>;

// Puts a handle on the stack, or releases it and answers false when memory runs out.
inline bool pushOrRelease(LabelStack& labels, const KxIndexedString* handle) {
  if (withinMemory([&] { labels.push(handle); })) {
    return true;
  }
  KxStringtable::cleanupReference(handle);
  return false;
}

// Takes the top off the stack; null for an empty one.
inline const KxIndexedString* popLabel(LabelStack& labels) {
  if (labels.empty()) {
    return nullptr;
  }
  const KxIndexedString* label = labels.top();
  labels.pop();
  return label;
}

// Takes every handle off the stack and releases it.
inline void releaseLabels(LabelStack& labels) {
  for (; !labels.empty(); labels.pop()) {
    KxStringtable::cleanupReference(labels.top());
  }
}

}  // namespace zaro_addressmatch
