#include "addressmatch/index/Query.h"

#include "addressmatch/index/SuffixHash.h"
#include "addressmatch/text/AddressText.h"

namespace zaro_addressmatch {

namespace {

// Of a suffix of a short address, as SuffixHash has it.
inline std::uint64_t hashFrom(const Query& query, const HashSeed& seed, std::size_t begin) {
  return hashWords(seed, query.size - begin,
                   [&query, begin](std::size_t offset) { return wordAt(query.words, begin + offset); });
}

// `one` or `other`, without a branch: the sizes of texts cannot be predicted.
inline std::uint64_t choose(bool isOne, std::uint64_t one, std::uint64_t other) {
  return other ^ ((one ^ other) & (std::uint64_t{0} - std::uint64_t{isOne}));
}

// The hash of a domain of up to 32 bytes.
inline std::uint64_t hashShort(const std::uint64_t (&words)[4], std::size_t size, const HashSeed& seed) {
  const bool isLong = size > 16;
  const std::uint64_t state = mixed(words[0] ^ seed.words[0], words[1] ^ seed.words[1]);
  return hashLast(seed, choose(isLong, state, seed.words[0]), choose(isLong, words[2], words[0]),
                  choose(isLong, words[3], words[1]), size);
}

// Hashes the domain, the local part, and the two together.
inline void hashPieces(Query& query, const HashSeed& seed) {
  std::uint64_t domain[4];
  fourWordsAt(query.words, query.at + 1, domain);
  std::copy_n(domain, 3, query.domain);
  if (query.domainSize() <= sizeof domain) {
    query.domainHash = hashShort(domain, query.domainSize(), seed);
  } else {
    query.domainHash = query.isShort() ? hashFrom(query, seed, query.at + 1)
                                       : SuffixHash(seed, query.text(), query.size).from(query.at + 1);
  }
  // The local part's first 24 bytes with zeros behind its end, whatever follows in the address. Those are all that a
  // slot holds; up to 16 they are also all that is hashed, so that most local parts take no second pass.
  const std::size_t size = query.at;
  const std::size_t inTwo = std::min<std::size_t>(size, 16);
  const std::uint64_t name[3] = {bytesWithin(query.words[0], inTwo, 0), bytesWithin(query.words[1], inTwo, 8),
                                 bytesWithin(query.words[2], std::min<std::size_t>(size - inTwo, 8), 0)};
  query.nameHash =
      size <= 16 ? hashLast(seed, seed.words[0], name[0], name[1], size) : hashText(seed, query.text(), size);
  query.key = NameKey::of(name, size);
  query.fullHash = nameHashAt(seed, query.nameHash, query.domainHash);
  query.belowRootHash = nameHashAt(seed, query.nameHash, kNoDomainHash);
}

// `nextDot()` is the position of the next dot of the domain, from its end on, or 0; `hashOf(begin)` the hash of the
// suffix from a byte on, the shortest first.
template <typename NextDot, typename HashOf>
inline void hashSuffixes(Query& query, std::uint64_t depths, NextDot nextDot, HashOf hashOf) {
  query.suffixCount = 0;
  query.labelCount = 1;
  for (std::size_t dot = nextDot(); dot != 0; dot = nextDot()) {
    if ((depths & 1) != 0) {
      query.suffixes[query.suffixCount++] = {hashOf(dot + 1), dot + 1, query.labelCount};
    }
    ++query.labelCount;
    depths >>= 1;
  }
}

}  // namespace

bool Query::split(const HashSeed& seed, const char* address, std::uint64_t depths) {
  if (address == nullptr) {
    return false;
  }
  size = std::strlen(address);
  isDotted = false;
  std::uint64_t dots = 0;
  if (size >= kShort) {
    dots = splitLong(address);
  } else {
    // No branch depends on a character: where "@" and the dots are is a bit mask of at most 64 bits.
    const Marks marks = lowerMarked(address, size, m_room);
    if (marks.ats == 0) {
      dots = splitBare(address);
    } else {
      words = m_room;
      // The first "@" counts, as in `splitAddress`; dots before it belong to the local part.
      at = static_cast<std::size_t>(__builtin_ctzll(marks.ats));
      dots = marks.dots & ~std::uint64_t{1} << at;
    }
  }
  hashPieces(*this, seed);
  if (isShort()) {
    const auto nextDot = [&dots] {
      if (dots == 0) {
        return std::size_t{0};
      }
      const auto dot = static_cast<std::size_t>(63 - __builtin_clzll(dots));
      dots ^= std::uint64_t{1} << dot;
      return dot;
    };
    hashSuffixes(*this, depths, nextDot, [this, &seed](std::size_t begin) { return hashFrom(*this, seed, begin); });
  } else {
    std::size_t end = size;
    SuffixHash hash(seed, text(), size);
    hashSuffixes(
        *this, depths, [this, &end] { return end = lastDotBefore(end); },
        [&hash](std::size_t begin) { return hash.from(begin); });
  }
  return true;
}

std::uint64_t Query::splitLong(const char* address) {
  return std::memchr(address, '@', size) != nullptr ? takeLowered(roomFor(size), address) : splitBare(address);
}

// A text S without "@" has the labels "" and S and the local part S, as "S@.S" has them. If S has a dot, only the
// top-level label S would do, which no domain of an index has: nor has any the label "*".
std::uint64_t Query::splitBare(const char* address) {
  const std::size_t bareSize = size;
  isDotted = std::memchr(address, '.', bareSize) != nullptr;
  const bool hasDomain = !isDotted && !isWildcard(address);
  size = hasDomain ? 2 * bareSize + 2 : bareSize + 2;
  std::uint64_t* room = roomFor(size);
  // Written where it then stays.
  char* text = reinterpret_cast<char*>(room);
  std::memcpy(text, address, bareSize);
  text[bareSize] = '@';
  text[bareSize + 1] = hasDomain ? '.' : '*';
  std::memcpy(text + bareSize + 2, address, size - bareSize - 2);
  return takeLowered(room, text);
}

// Takes a text with "@" of `size` characters, which may lie in the room already.
std::uint64_t Query::takeLowered(std::uint64_t* room, const char* text) {
  lower(text, size, room);
  words = room;
  at = static_cast<std::size_t>(static_cast<const char*>(std::memchr(room, '@', size)) - this->text());
  std::uint64_t dots = 0;
  for (std::size_t i = at + 1; i < std::min(size, kShort); ++i) {
    dots |= std::uint64_t{this->text()[i] == '.'} << i;
  }
  return dots;
}

std::uint64_t* Query::roomFor(std::size_t textSize) {
  if (textSize < kShort) {
    return m_room;
  }
  m_long.reset(new std::uint64_t[wordsFor(textSize)]);
  return m_long.get();
}

}  // namespace zaro_addressmatch
