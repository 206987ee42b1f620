// Handles of texts that may be missing.
#pragma once

#include "KxStringtable.h"

namespace zaro_addressmatch {

inline const KxIndexedString& orEmpty(const KxIndexedString* handle) {
  return handle != nullptr ? *handle : KxStringtable::_theEmptyIndexedString;
}

}  // namespace zaro_addressmatch
