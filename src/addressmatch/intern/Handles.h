// Handles of texts that may be missing, and their release.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

#include "KxStringtable.h"

namespace zaro_addressmatch {

inline const KxIndexedString& orEmpty(const KxIndexedString* handle) {
  return handle != nullptr ? *handle : KxStringtable::_theEmptyIndexedString;
}

inline bool hasText(const KxIndexedString* handle) {
  return handle != nullptr && handle->getString() != nullptr;
}

// As the log's "%lu" takes it.
inline unsigned long shownIndex(const KxIndexedString& handle) {
  return handle.getIndex();
}

// A new array for a text of `size` bytes, terminator included, or null.
inline char* newSpace(std::size_t size) {
  return new (std::nothrow) char[size];
}

// Copies `size` bytes, terminator included. The log has a line for a copy that fails.
inline bool copyText(char* to, const char* from, std::size_t size) {
  return std::memcpy(to, from, size) == to;
}

void logNoMemoryFor(const KxIndexedString& wanted);

// Releases a handle. Failing, it hands the handle's text and index, as they were, to `report`; null and 0 for none.
template <typename Report>
void release(const KxIndexedString* handle, Report report) {
  // What fails to be released may be gone nevertheless.
  const KxIndexedString before = handle != nullptr ? *handle : KxIndexedString(nullptr);
  if (!KxStringtable::cleanupReference(handle)) {
    report(handle != nullptr && before.getString() == nullptr ? "NULL" : before.getString(), before.getIndex());
  }
}

}  // namespace zaro_addressmatch
