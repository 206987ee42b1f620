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

inline unsigned int highestBit(std::uint64_t bits) {
  return 63u - static_cast<unsigned int>(__builtin_clzll(bits));
}

inline unsigned int lowestBit(std::uint64_t bits) {
  return static_cast<unsigned int>(__builtin_ctzll(bits));
}

// Compares texts that have zeros behind them: `kAtOnce` in all at least.
inline bool samePadded(const char* one, const char* other, std::size_t size) {
  constexpr std::size_t kAtOnce = 24;
  std::uint64_t difference = 0;
  for (std::size_t at = 0; at != kAtOnce; at += 8) {
    difference |= load8(one + at) ^ load8(other + at);
  }
  for (std::size_t at = kAtOnce; at < size; at += 8) {
    difference |= load8(one + at) ^ load8(other + at);
  }
  return difference == 0;
}

}  // namespace

FrozenIndex::NameKey FrozenIndex::NameKey::of(const std::uint64_t* padded, std::size_t size) {
  const std::size_t shown = std::min(size, kNameRoom);
  const std::uint64_t first = bytesWithin(padded[0], std::min<std::size_t>(shown, 16), 0);
  const std::uint64_t second = bytesWithin(padded[1], std::min<std::size_t>(shown, 16), 8);
  const std::uint64_t third = bytesWithin(padded[2], shown < 16 ? 0 : shown - 16, 0);
  // Three bytes in the first word, eight in the next.
  return {std::uint64_t{std::min(size, kLongName)} << 32 | first << 40, first >> 24 | second << 40,
          static_cast<decltype(tail)>(second >> 24 | third << 40)};
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
  std::uint64_t ats = 0;
  std::uint64_t dots = 0;
  lower(address, query.size, query.room, [&](std::size_t offset, std::uint64_t word) {
    ats |= bytesEqual(word, '@') << offset;
    dots |= bytesEqual(word, '.') << offset;
  });
  if (ats == 0) {
    return Kind::Whole;
  }
  query.words = query.room;
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

template <typename Mark>
void FrozenIndex::lower(const char* address, std::size_t size, std::uint64_t* words, Mark mark) {
  std::size_t offset = 0;
  for (; offset + 8 <= size; offset += 8) {
    const std::uint64_t word = loweredWord(load8(address + offset));
    words[offset / 8] = word;
    mark(offset, word);
  }
  std::uint64_t last = 0;
  if (offset != size) {
    // Without a look at what lies behind the text.
    if (size >= 8) {
      last = loweredWord(load8(address + size - 8) >> (8 - size % 8) * 8);
    } else {
      std::memcpy(&last, address, size);
      last = loweredWord(last);
    }
    mark(offset, last);
  }
  std::uint64_t* end = words + offset / 8;
  *end = last;
  std::fill(end + 1, end + 1 + kPadding / 8, 0);
}

std::size_t FrozenIndex::roomFor(std::size_t size) {
  return (size + 1) * sizeof(Suffix) + alignof(Suffix) + size + 8 + kPadding;
}

void FrozenIndex::prepareLong(const char* address, std::size_t size, Query& query, char* room) const {
  void* suffixes = room;
  std::size_t space = roomFor(size);
  query.suffixes = static_cast<Suffix*>(std::align(alignof(Suffix), sizeof(Suffix), suffixes, space));
  auto* words = reinterpret_cast<std::uint64_t*>(query.suffixes + size + 1);
  lower(address, size, words, [](std::size_t, std::uint64_t) {});
  query.words = words;
  query.size = size;
  const char* text = query.text();
  const void* at = std::memchr(text, '@', size);
  if (at == nullptr) {
    query.kind = Kind::Whole;
    return;
  }
  query.kind = Kind::Split;
  query.at = static_cast<std::size_t>(static_cast<const char*>(at) - text);
  hashAll(query, [&query, text](std::size_t end) {
    while (end-- != query.at + 1) {
      if (text[end] == '.') {
        return end;
      }
    }
    return kNoDot;
  });
}

// `nextDot(end)` tells where the next dot of the domain before `end` is.
template <typename NextDot>
void FrozenIndex::hashAll(Query& query, NextDot nextDot) const {
  const auto hashOf = [&](std::size_t begin, std::size_t end, std::uint64_t before) {
    return hashWords(m_seed, end - begin, before,
                     [&query, begin](std::size_t offset) { return wordAt(query.words, begin + offset); });
  };
  query.nameHash = hashOf(0, query.at, 0);
  query.suffixCount = 0;
  std::uint64_t hash = kEmptyDomainHash;
  std::size_t end = query.size;
  for (std::size_t dot = nextDot(end); dot != kNoDot; dot = nextDot(end)) {
    hash = hashOf(dot + 1, end, hash);
    if (mayHaveBelow(hash)) {
      query.suffixes[query.suffixCount++] = {hash, dot + 1};
      prefetchLine(&m_domains[placeOf(hash, m_domains.size())]);
    }
    end = dot;
  }
  query.domainHash = hashOf(query.at + 1, end, hash);
  prefetchLine(&m_domains[placeOf(query.domainHash, m_domains.size())]);
  prefetchLine(&m_names[placeOf(nameHashAt(query.nameHash, query.domainHash), m_names.size())]);
  query.key = NameKey::of(query.words, query.at);
}

void FrozenIndex::resolve(const Query& query, Matches& out) const {
  const std::size_t begin = query.at + 1;
  if (const DomainSlot* domain = findDomain(query.domainHash, query.text() + begin, query.size - begin)) {
    if (domain->hasNames) {
      findName(m_names, query, domain->number, nameHashAt(query.nameHash, query.domainHash), out);
    }
    if (domain->anyName != nullptr) {
      out.push_back(domain->anyName);
    }
  }
  for (std::size_t i = query.suffixCount; i-- != 0;) {
    const Suffix& suffix = query.suffixes[i];
    const DomainSlot* domain = findDomain(suffix.hash, query.text() + suffix.begin, query.size - suffix.begin);
    if (domain == nullptr) {
      continue;
    }
    if (domain->hasNamesBelow) {
      findNameBelow(query, domain->number, suffix.hash, out);
    }
    if (domain->anyNameBelow != nullptr) {
      out.push_back(domain->anyNameBelow);
    }
  }
  if (m_hasNamesBelowRoot) {
    findNameBelow(query, 0, kEmptyDomainHash, out);
  }
  if (m_anyAtAll != nullptr) {
    out.push_back(m_anyAtAll);
  }
}

void FrozenIndex::findNameBelow(const Query& query, std::uint32_t number, std::uint64_t domainHash,
                                Matches& out) const {
  const std::uint64_t hash = nameHashAt(query.nameHash, domainHash);
  if (mayHaveBelow(hash)) {
    findName(m_namesBelow, query, number, hash, out);
  }
}

void FrozenIndex::findName(const std::vector<NameSlot>& names, const Query& query, std::uint32_t place,
                           std::uint64_t hash, Matches& out) {
  const NameKey key = query.key.at(place);
  for (std::size_t at = placeOf(hash, names.size());; at = at + 1 != names.size() ? at + 1 : 0) {
    const NameSlot& slot = names[at];
    if (slot.leaf == nullptr) {
      return;
    }
    if (slot.key == key) {
      const char* name = query.at > kNameRoom ? slot.leaf->getNameAsStr() : nullptr;
      if (name == nullptr || (std::strncmp(name, query.text(), query.at) == 0 && name[query.at] == '\0')) {
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
