#include "FrozenIndex.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "AddressText.h"

namespace zaro_addressmatch {

namespace {

constexpr std::size_t kNoDot = static_cast<std::size_t>(-1);

inline void prefetchLine(const void* line) {
  __builtin_prefetch(line);
}

inline unsigned int highestBit(std::uint64_t bits) {
  return 63u - static_cast<unsigned int>(__builtin_clzll(bits));
}

inline unsigned int lowestBit(std::uint64_t bits) {
  return static_cast<unsigned int>(__builtin_ctzll(bits));
}

// All bits from the one behind `bit` on.
inline std::uint64_t bitsAbove(unsigned int bit) {
  return ~std::uint64_t{1} << bit;
}

}  // namespace

FrozenIndex::NameKey FrozenIndex::NameKey::of(const std::uint64_t (&words)[3], std::size_t size) {
  // Three bytes in the head, eight in the middle.
  return {std::uint64_t{std::min(size, kLongName)} << 32 | words[0] << 40, words[0] >> 24 | words[1] << 40,
          static_cast<decltype(tail)>(words[1] >> 24 | words[2] << 40)};
}

void FrozenIndex::find(const char* address, Matches& out) const {
  ShortQuery query;
  const Kind kind = prepare(address, query);
  if (kind == Kind::Split) {
    resolve(query, out);
  } else {
    findOther(kind, address, out);
  }
}

void FrozenIndex::findEach(const char* const* addresses, std::size_t count, Matches& out,
                           std::vector<std::size_t>& ends) const {
  constexpr std::size_t kTogether = 16;
  ShortQuery queries[kTogether];
  Kind kinds[kTogether];
  for (std::size_t first = 0; first < count; first += kTogether) {
    const std::size_t size = std::min(count - first, kTogether);
    for (std::size_t i = 0; i != size; ++i) {
      kinds[i] = prepare(addresses[first + i], queries[i]);
    }
    for (std::size_t i = 0; i != size; ++i) {
      if (kinds[i] == Kind::Split) {
        resolve(queries[i], out);
      } else {
        findOther(kinds[i], addresses[first + i], out);
      }
      ends.push_back(out.size());
    }
  }
}

// Splits and hashes an address, and has the processor fetch what its search will look at.
inline FrozenIndex::Kind FrozenIndex::prepare(const char* address, ShortQuery& query) const {
  if (address == nullptr) {
    return Kind::Nothing;
  }
  query.size = std::strlen(address);
  if (query.size >= kShort) {
    return Kind::Long;
  }
  lower(address, query.size, query.room);
  const Marks marks = marksOf(address, query.room, query.size);
  if (marks.ats == 0) {
    return Kind::Bare;
  }
  query.words = query.room;
  query.at = lowestBit(marks.ats);
  std::uint64_t dots = marks.dots & bitsAbove(lowestBit(marks.ats));
  hashPieces(query, [&dots](std::size_t /*end*/) {
    if (dots == 0) {
      return kNoDot;
    }
    const std::size_t dot = highestBit(dots);
    dots ^= std::uint64_t{1} << dot;
    return dot;
  });
  return Kind::Split;
}

void FrozenIndex::findOther(Kind kind, const char* address, Matches& out) const {
  if (kind == Kind::Long) {
    findLong(address, out);
  } else if (kind == Kind::Bare) {
    // Read in a way of their own, "*" above all.
    m_root.walk(address, out);
  }
}

void FrozenIndex::findLong(const char* address, Matches& out) const {
  Query query;
  query.size = std::strlen(address);
  const std::unique_ptr<std::uint64_t[]> words(new std::uint64_t[wordsFor(query.size)]);
  lower(address, query.size, words.get());
  query.words = words.get();
  const char* text = query.text();
  const char* at = static_cast<const char*>(std::memchr(text, '@', query.size));
  if (at == nullptr) {
    m_root.walk(address, out);
    return;
  }
  query.at = static_cast<std::size_t>(at - text);
  hashPieces(query, [text, at](std::size_t end) {
    const char* dot = text + end;
    while (--dot != at) {
      if (*dot == '.') {
        return static_cast<std::size_t>(dot - text);
      }
    }
    return kNoDot;
  });
  resolve(query, out);
}

// `nextDot(end)` tells where the next dot of the domain before `end` is.
template <typename NextDot>
inline void FrozenIndex::hashPieces(Query& query, NextDot nextDot) const {
  const auto hashFrom = [&](std::size_t begin) {
    return hashWords(m_seed, query.size - begin,
                     [&query, begin](std::size_t offset) { return wordAt(query.words, begin + offset); });
  };
  query.domainHash = hashFrom(query.at + 1);
  prefetchLine(m_domains.at(query.domainHash));

  const std::size_t inTwo = std::min<std::size_t>(query.at, 16);
  const std::uint64_t name[3] = {bytesWithin(query.words[0], inTwo, 0), bytesWithin(query.words[1], inTwo, 8),
                                 bytesWithin(query.words[2], std::min<std::size_t>(query.at - inTwo, 8), 0)};
  query.nameHash = query.at <= 16 ? hashLast(m_seed, m_seed.words[0], name[0], name[1], query.at)
                                  : hashText(m_seed, query.text(), query.at);
  query.key = NameKey::of(name, query.at);
  prefetchLine(m_names.at(nameHashAt(query.nameHash, query.domainHash)));

  query.mayBeBelowRoot = false;
  if (m_hasNamesBelowRoot) {
    query.nameBelowRootHash = nameHashAt(query.nameHash, kNoDomainHash);
    query.mayBeBelowRoot = mayHaveBelow(query.nameBelowRootHash);
    if (query.mayBeBelowRoot) {
      prefetchLine(m_namesBelow.at(query.nameBelowRootHash));
    }
  }
  query.suffixCount = 0;
  std::uint64_t depths = m_belowDepths;
  for (std::size_t end = query.size; depths != 0; depths >>= 1) {
    end = nextDot(end);
    if (end == kNoDot) {
      break;
    }
    if ((depths & 1) != 0) {
      const std::uint64_t hash = hashFrom(end + 1);
      if (mayHaveBelow(hash)) {
        query.suffixes[query.suffixCount++] = {hash, end + 1};
        prefetchLine(m_domains.at(hash));
      }
    }
  }
}

inline void FrozenIndex::resolve(const Query& query, Matches& out) const {
  if (const DomainSlot* domain = findDomain(query, query.domainHash, query.at + 1)) {
    if (domain->hasNames) {
      findName(m_names, query, domain->number, nameHashAt(query.nameHash, query.domainHash), out);
    }
    if (domain->anyName != nullptr) {
      out.push_back(domain->anyName);
    }
  }
  for (std::size_t i = query.suffixCount; i-- != 0;) {
    const Suffix& suffix = query.suffixes[i];
    const DomainSlot* domain = findDomain(query, suffix.hash, suffix.begin);
    if (domain == nullptr) {
      continue;
    }
    if (domain->hasNamesBelow) {
      const std::uint64_t hash = nameHashAt(query.nameHash, suffix.hash);
      if (mayHaveBelow(hash)) {
        findName(m_namesBelow, query, domain->number, hash, out);
      }
    }
    if (domain->anyNameBelow != nullptr) {
      out.push_back(domain->anyNameBelow);
    }
  }
  if (query.mayBeBelowRoot) {
    findName(m_namesBelow, query, 0, query.nameBelowRootHash, out);
  }
  if (m_anyAtAll != nullptr) {
    out.push_back(m_anyAtAll);
  }
}

inline void FrozenIndex::findName(const Table<NameSlot>& names, const Query& query, std::uint32_t number,
                                  std::uint64_t hash, Matches& out) {
  const NameSlot& slot = *names.at(hash);
  if (!(slot.key == query.key.at(number)) || slot.leaf == nullptr) {
    return;
  }
  if (query.at > kNameRoom) {
    const char* name = slot.leaf->getNameAsStr();
    if (std::strncmp(name, query.text(), query.at) != 0 || name[query.at] != '\0') {
      return;
    }
  }
  out.push_back(slot.leaf);
}

bool FrozenIndex::isLongDomain(const DomainSlot& slot, const char* text, std::size_t size) {
  return slot.size == size && std::memcmp(size <= kDomainRoom ? slot.text() : slot.longText, text, size) == 0;
}

inline const FrozenIndex::DomainSlot* FrozenIndex::findDomain(const Query& query, std::uint64_t hash,
                                                              std::size_t begin) const {
  constexpr std::size_t kAtOnce = 3;
  const std::size_t size = query.size - begin;
  const std::uint64_t words[kAtOnce] = {wordAt(query.words, begin), wordAt(query.words, begin + 8),
                                        wordAt(query.words, begin + 16)};
  const DomainSlot& slot = *m_domains.at(hash);
  const std::uint64_t difference =
      (slot.words[0] ^ words[0]) | (slot.words[1] ^ words[1]) | (slot.words[2] ^ words[2]) | (slot.size ^ size);
  const bool same = size <= kAtOnce * 8 ? difference == 0 : isLongDomain(slot, query.text() + begin, size);
  return same && slot.number != 0 ? &slot : nullptr;
}

}  // namespace zaro_addressmatch
