#include "patterns/PatternAdding.h"

#include <new>

bool addPattern(KxWildcardNode& root, const char* pattern, KxEmailBelongsTo kind, const char* annotation) {
  if (root.addAddressPattern(pattern, kind, annotation, nullptr)) {
    return true;
  }
  // Kind 0 is never refused, so that a failure is one of memory. Afterwards there is a leaf, which takes a kind that it
  // allows without any memory.
  if (!root.addAddressPattern(pattern, 0, nullptr, nullptr)) {
    throw std::bad_alloc();
  }
  if (!root.addAddressPattern(pattern, kind, nullptr, nullptr)) {
    return false;
  }
  if (annotation != nullptr && !root.addAddressPattern(pattern, kind, annotation, nullptr)) {
    throw std::bad_alloc();
  }
  return true;
}
