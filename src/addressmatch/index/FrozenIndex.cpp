#include "addressmatch/index/FrozenIndex.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "addressmatch/index/SuffixHash.h"
#include "addressmatch/text/AddressText.h"
#include "addressmatch/text/Prefetch.h"

namespace zaro_addressmatch {

namespace {

constexpr std::size_t kNoDot = static_cast<std::size_t>(-1);

inline unsigned int highestBit(std::uint64_t bits) {
  return 63u - static_cast<unsigned int>(__builtin_clzll(bits));
}

inline unsigned int lowestBit(std::uint64_t bits) {
  return static_cast<unsigned int>(__builtin_ctzll(bits));
}

// Position of the last dot before `end` and behind the "@", or kNoDot.
std::size_t lastDot(const char* text, const char* at, std::size_t end) {
  const char* dot = text + end;
  while (--dot != at) {
    if (*dot == '.') {
      return static_cast<std::size_t>(dot - text);
    }
  }
  return kNoDot;
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

bool FrozenIndex::find(const char* address, Matches& out) const {
  ShortQuery query;
  const Kind kind = split(address, query);
  if (kind == Kind::Split) {
    prefetchPilots(query);
    locate(query);
    dropAbsent(query);
    resolve(query, out);
    return true;
  }
  return kind == Kind::Nothing || (kind == Kind::Long && findLong(address, out));
}

std::size_t FrozenIndex::findEach(const char* const* addresses, std::size_t count, Matches& out,
                                  std::vector<std::size_t>& ends) const {
  constexpr std::size_t kTogether = 24;
  ShortQuery queries[kTogether];
  Kind kinds[kTogether];
  // Three passes over each group: what one pass prefetches has arrived when the next pass reads it.
  for (std::size_t first = 0; first < count;) {
    const std::size_t most = std::min(count - first, kTogether);
    std::size_t size = 0;
    for (; size != most; ++size) {
      kinds[size] = split(addresses[first + size], queries[size]);
      if (kinds[size] == Kind::Bare) {
        break;
      }
      if (kinds[size] == Kind::Split) {
        prefetchPilots(queries[size]);
      }
    }
    for (std::size_t i = 0; i != size; ++i) {
      if (kinds[i] == Kind::Split) {
        locate(queries[i]);
      }
    }
    for (std::size_t i = 0; i != size; ++i) {
      if (kinds[i] == Kind::Split) {
        resolve(queries[i], out);
      } else if (kinds[i] == Kind::Long && !findLong(addresses[first + i], out)) {
        return first + i;
      }
      ends.push_back(out.size());
    }
    first += size;
    if (size != most) {
      return first;
    }
  }
  return count;
}

inline FrozenIndex::Kind FrozenIndex::split(const char* address, ShortQuery& query) const {
  if (address == nullptr) {
    return Kind::Nothing;
  }
  query.size = std::strlen(address);
  if (query.size >= kShort) {
    return Kind::Long;
  }
  // From here on no branch depends on a character: where "@" and the dots are is a bit mask of at most 64 bits.
  lower(address, query.size, query.storage);
  const Marks marks = marksOf(address, query.storage, query.size);
  if (marks.ats == 0) {
    return Kind::Bare;
  }
  query.words = query.storage;
  // The first "@" counts, as in `splitAddress`; dots before it belong to the local part.
  query.at = lowestBit(marks.ats);
  std::uint64_t dots = marks.dots & bitsAbove(lowestBit(marks.ats));
  const auto hashFrom = [this, &query](std::size_t begin) {
    return hashWords(m_seed, query.size - begin,
                     [&query, begin](std::size_t offset) { return wordAt(query.words, begin + offset); });
  };
  query.domainHash = hashFrom(query.at + 1);
  hashPieces(query, hashFrom, [&dots](std::size_t /*end*/) {
    if (dots == 0) {
      return kNoDot;
    }
    const std::size_t dot = highestBit(dots);
    dots ^= std::uint64_t{1} << dot;
    return dot;
  });
  return Kind::Split;
}

bool FrozenIndex::findLong(const char* address, Matches& out) const {
  Query query;
  query.size = std::strlen(address);
  const std::unique_ptr<std::uint64_t[]> words(new std::uint64_t[wordsFor(query.size)]);
  lower(address, query.size, words.get());
  query.words = words.get();
  const char* text = query.text();
  const char* at = static_cast<const char*>(std::memchr(text, '@', query.size));
  if (at == nullptr) {
    return false;
  }
  query.at = static_cast<std::size_t>(at - text);
  query.domainHash = SuffixHash(m_seed, text, query.size).from(query.at + 1);
  SuffixHash suffixes(m_seed, text, query.size);
  hashPieces(
      query, [&suffixes](std::size_t begin) { return suffixes.from(begin); },
      [text, at](std::size_t end) { return lastDot(text, at, end); });
  locate(query);
  resolveAt(query, out);
  resolveDeep(query, out);
  resolveBelowAll(query, out);
  return true;
}

// Appends what is below suffixes of more than kMostLabels labels, the longest first.
void FrozenIndex::resolveDeep(const Query& query, Matches& out) const {
  if (m_deepDepths.empty()) {
    return;
  }
  std::vector<Suffix> suffixes;
  SuffixHash hash(m_seed, query.text(), query.size);
  auto depth = m_deepDepths.begin();
  std::size_t end = query.size;
  for (std::size_t labels = 1; depth != m_deepDepths.end(); ++labels) {
    end = lastDot(query.text(), query.text() + query.at, end);
    if (end == kNoDot) {
      break;
    }
    if (labels == *depth) {
      ++depth;
      const Suffix suffix = {hash.from(end + 1), end + 1};
      if (m_wildcardFilter.mayContain(suffix.hash)) {
        suffixes.push_back(suffix);
      }
    }
  }
  std::for_each(suffixes.rbegin(), suffixes.rend(),
                [this, &query, &out](const Suffix& suffix) { resolveBelow(query, suffix, out); });
}

// Hashes the local part and the suffixes. `hashFrom(begin)` is the hash of the suffix from a byte on, asked for in the
// order of their lengths; `nextDot(end)` is the position of the last dot of the domain before `end`, or kNoDot.
template <typename HashFrom, typename NextDot>
inline void FrozenIndex::hashPieces(Query& query, HashFrom hashFrom, NextDot nextDot) const {
  // The local part's first 24 bytes with zeros behind its end, whatever follows in the address. Those are all that a
  // slot holds; up to 16 they are also all that is hashed, so that most local parts take no second pass.
  const std::size_t inTwo = std::min<std::size_t>(query.at, 16);
  const std::uint64_t name[3] = {bytesWithin(query.words[0], inTwo, 0), bytesWithin(query.words[1], inTwo, 8),
                                 bytesWithin(query.words[2], std::min<std::size_t>(query.at - inTwo, 8), 0)};
  const std::uint64_t nameHash = query.at <= 16 ? hashLast(m_seed, m_seed.words[0], name[0], name[1], query.at)
                                                : hashText(m_seed, query.text(), query.at);
  query.key = NameKey::of(name, query.at);
  query.nameHash = nameHash;
  query.fullHash = nameHashAt(nameHash, query.domainHash);
  query.belowRootHash = nameHashAt(nameHash, kNoDomainHash);

  // Suffixes from the top-level label on, as long as a longer one may have a wildcard below.
  query.suffixCount = 0;
  std::uint64_t depths = m_belowDepths;
  for (std::size_t end = query.size; depths != 0; depths >>= 1) {
    end = nextDot(end);
    if (end == kNoDot) {
      break;
    }
    if ((depths & 1) != 0) {
      query.suffixes[query.suffixCount++] = {hashFrom(end + 1), end + 1};
    }
  }
}

// Prefetches the pilots, and the filter words that are read before the slots.
inline void FrozenIndex::prefetchPilots(const Query& query) const {
  m_domains.hash.prefetch(query.domainHash);
  m_names.hash.prefetch(query.fullHash);
  m_wildcardFilter.prefetch(query.belowRootHash);
  for (std::size_t i = 0; i != query.suffixCount; ++i) {
    m_wildcardFilter.prefetch(query.suffixes[i].hash);
    m_domains.hash.prefetch(query.suffixes[i].hash);
  }
}

// Prefetches the slots, and drops the suffixes that have nothing below.
inline void FrozenIndex::locate(Query& query) const {
  query.domain = m_domains.at(query.domainHash);
  prefetchLine(query.domain);
  query.name = m_names.at(query.fullHash);
  prefetchLine(query.name);
  query.mayBeName = true;
  query.mayBeAtDomain = true;
  query.mayBeBelowRoot = m_hasNamesBelowRoot && m_wildcardFilter.mayContain(query.belowRootHash);
  if (query.mayBeBelowRoot) {
    prefetchLine(m_namesBelow.at(query.belowRootHash));
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i != query.suffixCount; ++i) {
    if (m_wildcardFilter.mayContain(query.suffixes[i].hash)) {
      query.suffixes[kept++] = query.suffixes[i];
      prefetchLine(m_domains.at(query.suffixes[i].hash));
    }
  }
  query.suffixCount = kept;
}

// Drops the domain if it has neither the name nor any name. The filters answer before the slots arrive, so that a
// mispredicted branch in `resolve` costs less. Pays only where addresses come one by one.
inline void FrozenIndex::dropAbsent(Query& query) const {
  query.mayBeName = m_nameFilter.mayContain(query.fullHash);
  const bool mayBeAnyName = m_wildcardFilter.mayContain(anyNameHash(query.domainHash));
  query.mayBeAtDomain = query.mayBeName | mayBeAnyName;  // "||" would branch, and be mispredicted half of the time
}

inline void FrozenIndex::resolve(const Query& query, Matches& out) const {
  resolveAt(query, out);
  resolveBelowAll(query, out);
}

// Appends what is at the domain.
inline void FrozenIndex::resolveAt(const Query& query, Matches& out) const {
  if (query.mayBeAtDomain && isDomain(*query.domain, query, query.at + 1)) {
    if (query.mayBeName) {
      appendNamed(*query.name, query, query.domain->number, out);
    }
    if (query.domain->anyName != nullptr) {
      out.push_back(query.domain->anyName);
    }
  }
}

// Appends what is below a suffix.
inline void FrozenIndex::resolveBelow(const Query& query, const Suffix& suffix, Matches& out) const {
  const DomainSlot& domain = *m_domains.at(suffix.hash);
  if (!isDomain(domain, query, suffix.begin)) {
    return;
  }
  if (domain.hasNamesBelow) {
    const std::uint64_t hash = nameHashAt(query.nameHash, suffix.hash);
    if (m_wildcardFilter.mayContain(hash)) {
      appendNamed(*m_namesBelow.at(hash), query, domain.number, out);
    }
  }
  if (domain.anyNameBelow != nullptr) {
    out.push_back(domain.anyNameBelow);
  }
}

// Appends what is below the suffixes and below the root.
inline void FrozenIndex::resolveBelowAll(const Query& query, Matches& out) const {
  // The longest suffix is the most specific one, and comes first.
  for (std::size_t i = query.suffixCount; i-- != 0;) {
    resolveBelow(query, query.suffixes[i], out);
  }
  if (query.mayBeBelowRoot) {
    appendNamed(*m_namesBelow.at(query.belowRootHash), query, 0, out);
  }
  if (m_anyAtAll != nullptr) {
    out.push_back(m_anyAtAll);
  }
}

// Appends the leaf of a slot, if the slot is that of the local part at or below the domain of this number.
inline void FrozenIndex::appendNamed(const NameSlot& slot, const Query& query, std::uint32_t number, Matches& out) {
  if (!(slot.key == query.key.at(number)) || slot.leaf == nullptr) {
    return;
  }
  // Longer than what the slot holds: the slot's comparison covered the first characters and the size (up to 255).
  if (query.at > kInlineName) {
    const char* name = slot.leaf->getNameAsStr();
    if (std::strncmp(name, query.text(), query.at) != 0 || name[query.at] != '\0') {
      return;
    }
  }
  out.push_back(slot.leaf);
}

bool FrozenIndex::isLongDomain(const DomainSlot& slot, const char* text, std::size_t size) {
  return slot.size == size && std::memcmp(size <= kInlineDomain ? slot.text() : slot.longText, text, size) == 0;
}

// Whether a slot is that of the domain, or its suffix, from `begin` on.
inline bool FrozenIndex::isDomain(const DomainSlot& slot, const Query& query, std::size_t begin) {
  constexpr std::size_t kAtOnce = 24;
  const std::size_t size = query.size - begin;
  if (size > kAtOnce) {
    return isLongDomain(slot, query.text() + begin, size);
  }
  const std::uint64_t difference = (slot.words[0] ^ wordAt(query.words, begin)) |
                                   (slot.words[1] ^ wordAt(query.words, begin + 8)) |
                                   (slot.words[2] ^ wordAt(query.words, begin + 16)) | (slot.size ^ size);
  return difference == 0 && slot.number != 0;
}

}  // namespace zaro_addressmatch
