// An address that is split for the length of one operation.
#pragma once

#include <memory>

#include "KxStringtable.h"
#include "addressmatch/intern/LabelStack.h"

namespace zaro_addressmatch {

// Does what `KxWildcardNode::parseAddress` does; false when memory ran out and a piece is missing (null on the stack,
// or not on it).
bool parseInto(KxStringtable* table, const char* address, char* scratch, LabelStack& labels);

// A new, uninitialised array in which `parseInto` can split the address; null for null and when memory runs out.
char* newScratch(const char* address);

class ParsedAddress {
 public:
  // `address` is not null and is copied. Throws std::bad_alloc.
  ParsedAddress(KxStringtable* table, const char* address);
  // Releases every handle.
  ~ParsedAddress();

  ParsedAddress(const ParsedAddress&) = delete;
  ParsedAddress& operator=(const ParsedAddress&) = delete;

  // False when a piece is missing: the address must then not be matched, for it would be another one.
  bool isComplete() const { return m_complete; }
  // The empty handle when there is none.
  const KxIndexedString& localPart() const;
  // The domain, top-level label on top. A caller that pops a label pushes it again or releases it.
  LabelStack& labels() { return m_labels; }

 private:
  std::unique_ptr<char[]> m_scratch;
  LabelStack m_labels;
  bool m_complete;
  const KxIndexedString* m_localPart;
};

}  // namespace zaro_addressmatch
