#include "addressmatch/intern/Interner.h"

#include <memory>

#include "PolicyLog.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/text/Memory.h"

namespace zaro_addressmatch {

void logNoMemoryFor(const KxIndexedString& wanted) {
  PolicyLog::log(
      LogLevel::Error,
      "KxStringtable::_addToStringtable: could not allocate memory for inserting %s , %lu into a stringtable. Insertion failed.",
      wanted.getString(), shownIndex(wanted));
}

namespace {

// The checks for an entry that is the argument itself are a net under the container: it copies what it stores.
const KxIndexedString* existingEntry(const KxIndexedString& entry, const KxIndexedString& wanted) {
  if (&entry == &wanted && entry.getIndex() >= KxIndexedString::Wrapper) {
    PolicyLog::log(
        LogLevel::Error,
        "KxStringtable::_addToStringtable: looking up the entry in the stringtable returned the original entry. However, the entry is not in the stringtable : %s, %lu. Insertion failed.",
        wanted.getString(), shownIndex(wanted));
  }
  return &entry;
}

const KxIndexedString* ownText(InternedTexts& entries, KxIndexedString& entry, const KxIndexedString& wanted,
                               std::size_t size) {
  // From here on the entry counts as the table's, so that no caller releases it, whether or not the copy succeeds.
  const unsigned long index = shownIndex(wanted);
  entry._setIndex(KxIndexedString::TableEntry);

  char* copy = newSpace(size);
  if (copy == nullptr) {
    entries.setBorrowed(&entry);
    logNoMemoryFor(wanted);
    return nullptr;
  }
  if (!copyText(copy, wanted.getString(), size)) {
    PolicyLog::log(
        LogLevel::Error,
        "KxStringtable::_addToStringtable: could not make a copy the data into allocated space: %s, %lu. Insertion failed.",
        wanted.getString(), index);
    entries.setBorrowed(&entry);
    delete[] copy;
    return nullptr;
  }
  entry = KxIndexedString(copy);
  entry._setIndex(KxIndexedString::TableEntry);
  if (&entry == &wanted) {
    PolicyLog::log(
        LogLevel::Error,
        "KxStringtable::_addToStringtable: inserting into stringtable's underlying container resulted in an entry that was not distinct from the original pointer. Insertion of %s, %lu failed.",
        wanted.getString(), index);
    return nullptr;
  }
  return &entry;
}

}  // namespace

InternedTexts& Interner::entries() const {
  if (m_table._entries == nullptr) {
    m_table._entries = std::make_unique<InternedTexts>();
  }
  return *m_table._entries;
}

Interner::Interned Interner::intern(const TextKey& key, const KxIndexedString& wanted) const {
  InternedTexts::Found found = {nullptr, false, false};
  if (!withinMemory([&] { found = entries().intern(key); })) {
    logNoMemoryFor(wanted);
    return {nullptr, false};
  }
  if (!found.isNew) {
    return {existingEntry(*found.entry, wanted), false};
  }
  return {found.lacksText ? ownText(*m_table._entries, *found.entry, wanted, key.size + 1) : found.entry, true};
}

Interner::Interned Interner::internOwned(const TextKey& key) const {
  const KxIndexedString wanted(key.text);
  const Interned interned = intern(key, wanted);
  if (interned.entry == nullptr && interned.isNew) {
    dropBorrowed(wanted);
  }
  return interned;
}

void Interner::dropBorrowed(const KxIndexedString& wanted) const {
  InternedTexts* texts = entriesOrNull();
  KxIndexedString* entry =
      texts == nullptr || m_table.isLocked() || !hasText(&wanted) ? nullptr : texts->find(wanted.getString());
  if (entry != nullptr && texts->isBorrowed(entry)) {
    texts->remove(entry);
  }
}

void Interner::noteHolderOf(const KxIndexedString& ranked) const {
  const InternedTexts* texts = entriesOrNull();
  if (!hasText(&ranked) || texts == nullptr || texts->find(ranked.getString()) != &ranked) {
    m_table._hasForeignHolders = true;
  }
}

}  // namespace zaro_addressmatch
