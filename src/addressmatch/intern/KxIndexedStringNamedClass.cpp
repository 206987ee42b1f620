#include <cstring>

#include "KxListedEmailAddress.h"
#include "PolicyLog.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/Interner.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/text/Memory.h"

using namespace zaro_addressmatch;

namespace {

// What a name may keep for `text`, a handle in no table; `kept` is what the table answered. Never `text` itself.
const KxIndexedString& keptOrCopied(const KxIndexedString* text, const KxIndexedString* kept, KxStringtable& table) {
  if (kept == nullptr) {
    if (text == nullptr) {
      PolicyLog::log(LogLevel::Error, "KxListedEmailAddress.cpp - _returnCopyIfSameAs: predicate is NULL; cmp is NULL.");
    } else {
      PolicyLog::log(LogLevel::Error,
                     "KxListedEmailAddress.cpp - _returnCopyIfSameAs: predicate is NULL; cmp is %s , %lu.",
                     text->getString(), static_cast<unsigned long>(text->getIndex()));
    }
    return KxStringtable::_theEmptyIndexedString;
  }
  if (kept != text) {
    return *kept;
  }
  // The table is locked and does not know the text, or could not add it. The argument is the caller's and may not live
  // on: neither this object nor the table may keep it.
  Interner(table).dropBorrowed(*text);
  return orEmpty(KxIndexedString::deepCopy(text));
}

}  // namespace

KxIndexedStringNamedClass::KxIndexedStringNamedClass(KxStringtable* table, const char* name)
    : _name(_lookupAndCheckName(name, table)), _stringtable(table) {}

KxIndexedStringNamedClass::KxIndexedStringNamedClass(KxStringtable* table, const KxIndexedString* name)
    : _name(_lookupAndCheckName(name, table)), _stringtable(table) {}

KxIndexedStringNamedClass::~KxIndexedStringNamedClass() {
  if (isGone(_stringtable)) {
    return;
  }
  release(_name, [](const char* text, unsigned long index) {
    if (text == nullptr) {
      PolicyLog::log(LogLevel::Error, "~KxIndexedStringNamedClass: Failed to cleanup _name reference: NULL");
    } else {
      PolicyLog::log(LogLevel::Error, "~KxIndexedStringNamedClass: Failed to cleanup _name reference: %s , %lu", text,
                     index);
    }
  });
}

const KxIndexedString* KxIndexedStringNamedClass::_lookupAndCheckName(const KxIndexedString* text,
                                                                      KxStringtable* table) const {
  if (table == nullptr) {
    return &orEmpty(KxIndexedString::deepCopy(text));
  }
  const KxIndexedString* kept = table->getStringtableRef(text);
  if (orEmpty(text).getIndex() < KxIndexedString::Wrapper) {
    if (kept == text && table->isLocked()) {
      Interner(*table).noteHolderOf(*text);
    }
    return &orEmpty(kept);
  }
  return &keptOrCopied(text, kept, *table);
}

const KxIndexedString* KxIndexedStringNamedClass::_lookupAndCheckName(const char* text, KxStringtable* table) const {
  const KxIndexedString wrapper(text);
  if (table == nullptr) {
    return &orEmpty(KxIndexedString::deepCopy(&wrapper));
  }
  return &keptOrCopied(&wrapper, table->getStringtableRef(&wrapper), *table);
}

char* KxIndexedStringNamedClass::_inferName(const char* address) {
  return address != nullptr ? newText(address, std::strcspn(address, "@")) : nullptr;
}
