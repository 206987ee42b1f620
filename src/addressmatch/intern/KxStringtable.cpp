// The string table: the public operations with their checks and log lines. The entries themselves are InternedTexts,
// their making is Interner's.
#include "KxStringtable.h"

#include <new>

#include "PolicyLog.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/InternedTexts.h"
#include "addressmatch/intern/Interner.h"
#include "addressmatch/text/Memory.h"

using namespace zaro_addressmatch;

namespace {

bool isStaticHandle(const KxIndexedString* handle) {
  return handle == &KxStringtable::_theEmptyIndexedString || handle == &KxStringtable::_theWildcardIndexedString;
}

// The check for null is a net under the container, which has no null elements.
void releaseText(const InternedTexts& entries, KxIndexedString* entry) {
  if (entry == nullptr) {
    PolicyLog::log(LogLevel::Error, "~KxStringtable: detected a NULL pointer in the underlying container!");
    return;
  }
  if (!entries.isBorrowed(entry) && !entry->_explicitCleanupString()) {
    PolicyLog::log(LogLevel::Error,
                   "~KxStringtable: deallocating the KxIndexedString's private data copy failed: %s, %lu.", "NULL",
                   shownIndex(*entry));  // it fails for no other text
  }
}

}  // namespace

bool KxIndexedString::_explicitCleanupString() {
  if (_string == nullptr) {
    return false;
  }
  delete[] _string;
  _index = Wrapper;
  return true;
}

KxIndexedString* KxIndexedString::deepCopy(const KxIndexedString* source) {
  if (!hasText(source)) {
    PolicyLog::log(LogLevel::Error, "KxIndexedString::deepCopy: argument or string wrapped by argument is NULL!");
    return nullptr;
  }
  const std::size_t size = std::strlen(source->_string) + 1;
  char* text = newSpace(size);
  KxIndexedString* copy = text != nullptr ? new (std::nothrow) KxIndexedString(text) : nullptr;
  if (copy == nullptr) {
    PolicyLog::log(LogLevel::Error, "KxIndexedString::deepCopy: could not allocate space for copy of wrapped string: %s.",
                   source->_string);
    delete[] text;
    return nullptr;
  }
  if (!copyText(text, source->_string, size)) {
    PolicyLog::log(LogLevel::Error, "KxIndexedString::deepCopy: could not copy identifier: %s", source->_string);
    delete[] text;
    delete copy;
    return nullptr;
  }
  copy->_index = DeepCopy;
  return copy;
}

// Constant-initialised: usable before any other static object.
KxIndexedString KxStringtable::_theEmptyIndexedString("");
KxIndexedString KxStringtable::_theWildcardIndexedString("*");

KxStringtable::KxStringtable() : KxLockableClass(true), _hasForeignHolders(false) {}

KxStringtable::~KxStringtable() {
  try {
    if (_entries != nullptr) {
      _entries->forEachOfTable([this](KxIndexedString& entry) { releaseText(*_entries, &entry); });
    }
  } catch (...) {
    PolicyLog::log(LogLevel::Error, "~KxStringtable: ERROR: Exception caught in destructor!");
  }
}

std::size_t KxStringtable::size() const {
  return _entries != nullptr ? _entries->size() : 0;
}

const KxIndexedString* KxStringtable::getStringtableRef(const KxIndexedString* wanted) {
  if (!hasText(wanted)) {
    PolicyLog::log(
        LogLevel::Error,
        "KxStringtable::getStringtableRef(const KxIndexedString *): could not insert argument into stringtable because the argument or the string it wraps is NULL!");
    return wanted;
  }
  if (isLocked()) {
    return getRef(wanted);
  }
  if (const KxIndexedString* entry = _addToStringtable(wanted)) {
    return entry;
  }
  PolicyLog::log(
      LogLevel::Error,
      "KxStringtable::getStringtableRef(const KxIndexedString *): could not insert argument into stringtable : %s, %lu",
      wanted->getString(), shownIndex(*wanted));
  return wanted;
}

const KxIndexedString* KxStringtable::getStringtableRef(const KxIndexedString& wanted) {
  return getStringtableRef(&wanted);
}

const KxIndexedString* KxStringtable::getStringtableRef(const char* text) {
  if (text == nullptr) {
    PolicyLog::log(
        LogLevel::Error,
        "KxStringtable::getStringtableRef(const char *): could not insert argument into stringtable because the argument is NULL!");
    return nullptr;
  }
  if (isLocked()) {
    return getRef(text);
  }
  const KxIndexedString temporary(text);
  const KxIndexedString* entry = getStringtableRef(&temporary);
  if (entry != nullptr && entry != &temporary) {
    return entry;
  }
  // The text promises a copy; the wrapper borrows the caller's text nevertheless, and callers rely on that.
  PolicyLog::log(
      LogLevel::Error,
      "KxStringtable::getStringtableRef(const char *): warning: could not insert argument into stringtable or the reference returned by the KxIndexedString * version of this method is on the stack. Allocating new copy of %s; memory leak may result.",
      text);
  return new (std::nothrow) KxIndexedString(text);
}

const KxIndexedString* KxStringtable::getRef(const KxIndexedString* wanted) const {
  const KxIndexedString* entry = _findInStringtable(wanted);
  return entry != nullptr ? entry : wanted;
}

const KxIndexedString* KxStringtable::getRef(const char* text) const {
  const KxIndexedString* entry = _findInStringtable(text);
  if (entry != nullptr || text == nullptr) {
    return entry;
  }
  return new (std::nothrow) KxIndexedString(text);
}

const KxIndexedString* KxStringtable::_addToStringtable(const KxIndexedString* wanted) {
  if (!hasText(wanted)) {
    PolicyLog::log(LogLevel::Error, "KxStringtable::_addToStringtable: the argument for insertion is NULL!");
    return nullptr;
  }
  if (isLocked()) {
    PolicyLog::log(
        LogLevel::Error,
        "KxStringtable::_addToStringtable: warning: an attempt was made to add to a locked stringtable and not caught by KxStringtable::getStringtableRef. Data: %s, %lu.",
        wanted->getString(), shownIndex(*wanted));
    return nullptr;
  }

  const Interner interner(*this);
  const KxIndexedString* entry = nullptr;
  if (!withinMemory([&] { entry = interner.intern(interner.entries().keyOf(wanted->getString()), *wanted).entry; })) {
    logNoMemoryFor(*wanted);
  }
  return entry;
}

const KxIndexedString* KxStringtable::_addToStringtable(const char* text) {
  const KxIndexedString temporary(text);
  return _addToStringtable(&temporary);
}

const KxIndexedString* KxStringtable::_findInStringtable(const KxIndexedString* wanted) const {
  if (!hasText(wanted)) {
    PolicyLog::log(LogLevel::Error,
                   "KxStringtable::_findInStringtable: the search argument (const KxIndexedString *) is NULL!");
    return nullptr;
  }
  const KxIndexedString* entry = _entries != nullptr ? _entries->find(wanted->getString()) : nullptr;
  if (!isLocked() || !wanted->isIndexed() || (entry != nullptr && entry->getIndex() == wanted->getIndex())) {
    return entry;
  }
  // Two ranks are compared as ranks, also with another table's.
  entry = nullptr;
  if (_entries == nullptr) {
    return nullptr;
  }
  _entries->forEach([&entry, wanted](KxIndexedString& one) { entry = one == *wanted ? &one : entry; });
  return entry;
}

const KxIndexedString* KxStringtable::_findInStringtable(const char* text) const {
  if (text == nullptr) {
    PolicyLog::log(LogLevel::Error, "KxStringtable::_findInStringtable: the search argument (const char *) is NULL!");
    return nullptr;
  }
  const KxIndexedString temporary(text);
  return _findInStringtable(&temporary);
}

bool KxStringtable::cleanupReference(KxIndexedString* handle) {
  if (handle == nullptr) {
    return false;
  }
  if (isStaticHandle(handle)) {
    return true;
  }
  switch (handle->getIndex()) {
    case KxIndexedString::DeepCopy:
      return _deepDelete(handle);
    case KxIndexedString::Wrapper:
      delete handle;
      return true;
    default:
      return true;
  }
}

bool KxStringtable::cleanupReference(const KxIndexedString* handle) {
  return cleanupReference(const_cast<KxIndexedString*>(handle));
}

bool KxStringtable::_deepDelete(KxIndexedString* handle) {
  if (handle == nullptr) {
    return false;
  }
  if (isStaticHandle(handle) || handle->getIndex() < KxIndexedString::Wrapper) {
    return true;
  }
  const bool freed = handle->_explicitCleanupString();
  delete handle;
  return freed;
}

bool KxStringtable::_deepDelete(const KxIndexedString* handle) {
  return _deepDelete(const_cast<KxIndexedString*>(handle));
}

void KxStringtable::lock() {
  if (isLocked()) {
    PolicyLog::log(LogLevel::Error,
                   "KxStringtable::lock: warning: attempt made to lock a locked stringtable. Ignoring...");
    return;
  }
  bool exhausted = false;
  if (!withinMemory([&] { exhausted = _entries != nullptr && _entries->rank(KxIndexedString::HighestIndex); })) {
    PolicyLog::log(LogLevel::Error, "KxStringtable::lock: out of memory; the texts keep being compared as texts");
  }
  if (exhausted) {
    // Both misspellings are kept: log watchers match the text.
    PolicyLog::log(
        LogLevel::Error,
        "KxStrintable::lock: index exceeded maximum allowed. Remainder of strings will be unindexed. Loss of optimizations likely, but functionality should still be preseng");
  }
  withinMemory([this] {
    if (_entries != nullptr) {
      _entries->shrink();
    }
  });
  _lock();
}

unsigned int allocating(bool reset) {
  static unsigned int counter = 0;
  counter = reset ? 0 : counter + 1;
  return counter;
}
