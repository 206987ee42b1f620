// Handles of texts that may be missing, and their release.
#pragma once

#include "KxStringtable.h"

namespace zaro_addressmatch {

inline const KxIndexedString& orEmpty(const KxIndexedString* handle) {
  return handle != nullptr ? *handle : KxStringtable::_theEmptyIndexedString;
}

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
