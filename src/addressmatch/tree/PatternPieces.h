// A pattern that is added by its text: its pieces, and what they are looked up by.
#pragma once

#include <cstddef>
#include <cstring>

#include "addressmatch/intern/InternedTexts.h"
#include "addressmatch/text/AddressText.h"
#include "addressmatch/text/LowerCaseText.h"
#include "addressmatch/tree/DomainMap.h"

namespace zaro_addressmatch {

// The domain of a pattern: all of the text from a byte on.
struct PatternDomain {
  PatternDomain(const LowerCaseText& ofPattern, std::size_t from) : pattern(ofPattern), begin(from) {
    const char* domain = pattern.get() + from;
    const std::size_t concrete = domain[0] == '*' && domain[1] == '.' ? from + 2 : from;
    if (std::memchr(pattern.get() + concrete, '*', pattern.size() - concrete) == nullptr) {
      key = DomainKey(pattern.words(), concrete, pattern.size() - concrete);
    }
    if (key.isThere()) {
      isBelow = concrete != from;
      begin = concrete;
    }
  }
  const char* text() const { return pattern.get() + begin; }
  // Of the labels that begin at a byte of the text, none of which is a wildcard.
  DomainKey keyFrom(std::size_t byte) const { return {pattern.words(), begin + byte, pattern.size() - begin - byte}; }

  const LowerCaseText& pattern;
  std::size_t begin;
  DomainKey key;                    // none for a domain that is too long, or has another wildcard
  bool isBelow = false;             // the level is the wildcard's below the key's
  KxWildcardNode* level = nullptr;  // the key's, if it is known
};

// Not movable: the domain refers to the text.
struct PatternPieces {
  // Throws std::bad_alloc.
  explicit PatternPieces(const char* address)
      : text(address),
        at(static_cast<char*>(std::memchr(text.get(), '@', text.size()))),
        isBare(at == nullptr && !isWildcard(text.get())),
        nameSize(at != nullptr ? static_cast<std::size_t>(at - text.get()) : 1),
        domain(text, at != nullptr ? nameSize + 1 : 0) {}

  bool isAnyName() const { return !isBare && nameSize == 1 && text.get()[0] == '*'; }

  LowerCaseText text;
  char* at;     // null for a text without one
  bool isBare;  // such a text, but for "*"
  std::size_t nameSize;
  PatternDomain domain;
  // Keys of the table. Their texts are null without a table; the name's also for a bare text and for "*".
  TextKey fullAddress = {};
  TextKey name = {};
};

}  // namespace zaro_addressmatch
