// Splits addresses and patterns into stacks of handles. Where a text is cut is `splitAddress`'s to say; here each piece gets a
// handle, and ASCII capitals of labels become small (the local part stays as it is: callers lower it beforehand).
#include <cstdint>
#include <new>

#include "PolicyLog.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/text/AddressText.h"
#include "addressmatch/text/Memory.h"

using namespace zaro_addressmatch;

namespace {

void lowerInPlace(char* text) {
  for (; *text != '\0'; ++text) {
    *text = lowered(*text);
  }
}

// The handle of a piece whose text stays where it is.
const KxIndexedString* handleOf(KxStringtable* table, const char* text) {
  return table != nullptr ? table->getRef(text) : new (std::nothrow) KxIndexedString(text);
}

// Splits within the scratch space, which holds a copy of the address: every piece ends where it was cut.
bool parseInScratch(KxStringtable* table, char* scratch, LabelStack& labels) {
  bool complete = true;
  splitAddress(scratch, [&](Piece piece, const char* begin, std::size_t size) {
    char* text = scratch + (begin - scratch);
    text[size] = '\0';
    if (piece == Piece::Label) {
      lowerInPlace(text);
    }
    const KxIndexedString* handle = handleOf(table, text);
    complete = pushOrRelease(labels, handle) && handle != nullptr && complete;
  });
  return complete;
}

// Splits into copies of their own. A wrapper borrows its copy, which nothing here can free: that is what the message
// about the missing scratch space warns of.
bool parseIntoCopies(KxStringtable* table, const char* address, LabelStack& labels) {
  bool complete = true;
  splitAddress(address, [&](Piece piece, const char* begin, std::size_t size) {
    char* copy = newText(begin, size);
    const KxIndexedString* handle = nullptr;
    if (copy != nullptr) {
      if (piece == Piece::Label) {
        lowerInPlace(copy);
      }
      handle = handleOf(table, copy);
      if (handle == nullptr || handle->getString() != copy) {
        delete[] copy;
      }
    }
    complete = pushOrRelease(labels, handle) && handle != nullptr && complete;
  });
  return complete;
}

}  // namespace

namespace zaro_addressmatch {

bool parseInto(KxStringtable* table, const char* address, char* scratch, LabelStack& labels) {
  if (address == nullptr) {
    return true;
  }
  if (scratch == nullptr) {
    // The second argument is the table, not the scratch space: log watchers know the line that way.
    PolicyLog::log(
        LogLevel::Error,
        "KxWildcardNode::parseAddress forced to allocate new string space: emailAddress = \"%s\" allStrings = \"%x\". Memory leak likely as a result; continuing...",
        address, static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(table)));
  }
  if (isWildcard(address)) {
    return parseInto(table, kEveryAddress, scratch, labels);
  }
  if (scratch == nullptr) {
    return parseIntoCopies(table, address, labels);
  }
  std::memcpy(scratch, address, std::strlen(address) + 1);  // as big as the address, by contract
  return parseInScratch(table, scratch, labels);
}

ParsedAddress::ParsedAddress(KxStringtable* table, const char* address)
    : m_scratch(newScratch(address)), m_complete(false), m_localPart(nullptr) {
  if (m_scratch == nullptr) {
    return;
  }
  m_complete = parseInto(table, address, m_scratch.get(), m_labels);
  m_localPart = popLabel(m_labels);
}

ParsedAddress::~ParsedAddress() {
  KxStringtable::cleanupReference(m_localPart);
  releaseLabels(m_labels);
}

const KxIndexedString& ParsedAddress::localPart() const {
  return m_localPart != nullptr ? *m_localPart : KxStringtable::_theEmptyIndexedString;
}

char* newScratch(const char* address) {
  if (address == nullptr) {
    return nullptr;
  }
  const char* parsed = isWildcard(address) ? kEveryAddress : address;
  return new (std::nothrow) char[std::strlen(parsed) + 1];
}

}  // namespace zaro_addressmatch
