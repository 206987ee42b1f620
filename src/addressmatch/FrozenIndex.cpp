#include "FrozenIndex.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "AddressText.h"
#include "LoweredWords.h"

namespace zaro_addressmatch {

namespace {

inline void prefetchLine(const void* line) {
  __builtin_prefetch(line);
}

// The lowest `count` bytes of a word; all for 8 and more, none for 0 and less.
inline std::uint64_t firstBytes(std::uint64_t word, std::ptrdiff_t count) {
  if (count >= 8) {
    return word;
  }
  return count <= 0 ? 0 : word & ((std::uint64_t{1} << 8 * count) - 1);
}

inline unsigned int highestBit(std::uint64_t bits) {
  return 63u - static_cast<unsigned int>(__builtin_clzll(bits));
}

inline unsigned int lowestBit(std::uint64_t bits) {
  return static_cast<unsigned int>(__builtin_ctzll(bits));
}

// Compares texts that have zeros behind them, up to a whole word at least.
inline bool samePadded(const char* one, const char* other, std::size_t size) {
  for (std::size_t at = 0; at < size; at += 8) {
    if (load8(one + at) != load8(other + at)) {
      return false;
    }
  }
  return true;
}

}  // namespace

FrozenIndex::NameKey FrozenIndex::NameKey::of(const char* padded, std::size_t size) {
  constexpr std::size_t kMiddle = 3;
  constexpr std::size_t kTail = kMiddle + 8;
  const auto from = [&](std::size_t at) {
    return firstBytes(load8(padded + at), static_cast<std::ptrdiff_t>(size) - static_cast<std::ptrdiff_t>(at));
  };
  const std::uint64_t shownSize = std::min(size, kLongName);
  return {shownSize << 32 | from(0) << 40, from(kMiddle), static_cast<decltype(tail)>(from(kTail))};
}

bool FrozenIndex::find(const char* address, Matches& out) const {
  ShortQuery shortQuery;
  switch (prepareShort(address, shortQuery)) {
    case Kind::Nothing:
      return true;
    case Kind::Whole:
      return false;
    case Kind::Split:
      resolve(shortQuery, out);
      return true;
    case Kind::Long:
      break;
  }
  Query query;
  const std::unique_ptr<char[]> room(new char[roomFor(shortQuery.size)]);
  prepareLong(address, shortQuery.size, query, room.get());
  if (query.kind == Kind::Whole) {
    return false;
  }
  resolve(query, out);
  return true;
}

FrozenIndex::Kind FrozenIndex::prepareShort(const char* address, ShortQuery& query) const {
  if (address == nullptr) {
    return Kind::Nothing;
  }
  query.size = std::strlen(address);
  if (query.size >= kShort) {
    return Kind::Long;
  }
  if (isWildcard(address)) {
    return prepareShort(kEveryAddress, query);
  }
  std::memset(query.room, 0, sizeof query.room);
  std::memcpy(query.room, address, query.size);
  std::uint64_t ats = 0;
  std::uint64_t dots = 0;
  for (std::size_t at = 0; at < query.size; at += 8) {
    const std::uint64_t word = loweredWord(load8(query.room + at));
    std::memcpy(query.room + at, &word, sizeof word);
    ats |= bytesEqual(word, '@') << at;
    dots |= bytesEqual(word, '.') << at;
  }
  if (ats == 0) {
    return Kind::Whole;
  }
  query.text = query.room;
  query.suffixes = query.suffixRoom;
  query.at = lowestBit(ats);
  dots &= ~((ats & -ats) * 2 - 1);
  hashAll(query, [&dots](std::size_t /*end*/) {
    if (dots == 0) {
      return kNoDot;
    }
    const std::size_t dot = highestBit(dots);
    dots ^= std::uint64_t{1} << dot;
    return dot;
  });
  return Kind::Split;
}

std::size_t FrozenIndex::roomFor(std::size_t size) {
  return size + kPadding + (size + 1) * sizeof(Suffix) + alignof(Suffix);
}

void FrozenIndex::prepareLong(const char* address, std::size_t size, Query& query, char* room) const {
  void* suffixes = room;
  std::size_t space = roomFor(size);
  query.suffixes = static_cast<Suffix*>(std::align(alignof(Suffix), sizeof(Suffix), suffixes, space));
  char* text = reinterpret_cast<char*>(query.suffixes + size + 1);
  std::transform(address, address + size, text, lowered);
  std::memset(text + size, 0, kPadding);
  query.text = text;
  query.size = size;
  const char* at = static_cast<const char*>(std::memchr(text, '@', size));
  if (at == nullptr) {
    query.kind = Kind::Whole;
    return;
  }
  query.kind = Kind::Split;
  query.at = static_cast<std::size_t>(at - text);
  hashAll(query, [&query](std::size_t end) {
    while (end-- != query.at + 1) {
      if (query.text[end] == '.') {
        return end;
      }
    }
    return kNoDot;
  });
}

// `nextDot(end)` tells where the next dot of the domain before `end` is.
template <typename NextDot>
void FrozenIndex::hashAll(Query& query, NextDot nextDot) const {
  query.nameHash = hashText(m_seed, query.text, query.at, 0);
  query.suffixCount = 0;
  std::uint64_t hash = emptyDomainHash();
  std::size_t end = query.size;
  for (std::size_t dot = nextDot(end); dot != kNoDot; dot = nextDot(end)) {
    hash = hashText(m_seed, query.text + dot + 1, end - dot - 1, hash);
    if (mayHaveBelow(hash)) {
      query.suffixes[query.suffixCount++] = {hash, dot + 1};
      prefetchLine(&m_domains[placeOf(hash, m_domains.size())]);
    }
    end = dot;
  }
  const std::size_t domain = query.at + 1;
  query.domainHash = hashText(m_seed, query.text + domain, end - domain, hash);
  prefetchLine(&m_domains[placeOf(query.domainHash, m_domains.size())]);
  prefetchLine(&m_names[placeOf(nameHashAt(query.nameHash, query.domainHash, false), m_names.size())]);
}

void FrozenIndex::resolve(const Query& query, Matches& out) const {
  const NameKey key = NameKey::of(query.text, query.at);
  const std::size_t begin = query.at + 1;
  if (const DomainSlot* domain = findDomain(query.domainHash, query.text + begin, query.size - begin)) {
    if (domain->hasNames) {
      findName(query, key.at(domain->number), nameHashAt(query.nameHash, query.domainHash, false), out);
    }
    if (domain->anyName != nullptr) {
      out.push_back(domain->anyName);
    }
  }
  for (std::size_t i = query.suffixCount; i-- != 0;) {
    const Suffix& suffix = query.suffixes[i];
    const DomainSlot* domain = findDomain(suffix.hash, query.text + suffix.begin, query.size - suffix.begin);
    if (domain == nullptr) {
      continue;
    }
    if (domain->hasNamesBelow) {
      findName(query, key.at(domain->number | kBelow), nameHashAt(query.nameHash, suffix.hash, true), out);
    }
    if (domain->anyNameBelow != nullptr) {
      out.push_back(domain->anyNameBelow);
    }
  }
  if (m_hasNamesBelowRoot) {
    findName(query, key.at(kBelow), nameHashAt(query.nameHash, emptyDomainHash(), true), out);
  }
  if (m_anyAtAll != nullptr) {
    out.push_back(m_anyAtAll);
  }
}

void FrozenIndex::findName(const Query& query, const NameKey& key, std::uint64_t hash, Matches& out) const {
  for (std::size_t place = placeOf(hash, m_names.size());; place = place + 1 != m_names.size() ? place + 1 : 0) {
    const NameSlot& slot = m_names[place];
    if (slot.leaf == nullptr) {
      return;
    }
    if (slot.key == key) {
      const char* name = query.at > kNameRoom ? slot.leaf->getNameAsStr() : nullptr;
      if (name == nullptr || (std::strncmp(name, query.text, query.at) == 0 && name[query.at] == '\0')) {
        out.push_back(slot.leaf);
        return;
      }
    }
  }
}

const FrozenIndex::DomainSlot* FrozenIndex::findDomain(std::uint64_t hash, const char* text, std::size_t size) const {
  for (std::size_t place = placeOf(hash, m_domains.size());; place = place + 1 != m_domains.size() ? place + 1 : 0) {
    const DomainSlot& slot = m_domains[place];
    if (slot.number == 0) {
      return nullptr;
    }
    if (slot.size == size &&
        (size <= kDomainRoom ? samePadded(slot.text, text, size) : std::memcmp(slot.longText, text, size) == 0)) {
      return &slot;
    }
  }
}

}  // namespace zaro_addressmatch
