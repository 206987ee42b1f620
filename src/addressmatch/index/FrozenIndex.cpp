#include "addressmatch/index/FrozenIndex.h"

#include "addressmatch/index/SuffixHash.h"

namespace zaro_addressmatch {

bool FrozenIndex::find(const char* address, Matches& out) const {
  Query query;
  if (!query.split(m_seed, address, m_belowDepths)) {
    return true;
  }
  if (!answers(query)) {
    return false;
  }
  prefetchPilots(query);
  Place place;
  locate(query, m_filters->ask(query).in(m_slice), place);
  visit(query, place, [&](IndexedLeaf leaf) { out.push_back(leaf.references.leafIn(m_pointers)); });
  return true;
}

std::size_t FrozenIndex::findEach(const char* const* addresses, std::size_t count, Matches& out,
                                  std::vector<std::size_t>& ends) const {
  constexpr std::size_t kTogether = 24;
  struct Search {
    Query query;
    bool isThere;
    Place place;
  };
  Search searches[kTogether];
  // Three passes over each group: what one pass prefetches has arrived when the next pass reads it.
  for (std::size_t first = 0; first < count;) {
    const std::size_t most = std::min(count - first, kTogether);
    std::size_t size = 0;
    for (; size != most; ++size) {
      Search& search = searches[size];
      search.isThere = search.query.split(m_seed, addresses[first + size], m_belowDepths);
      if (!search.isThere) {
        continue;
      }
      if (!answers(search.query)) {
        break;
      }
      prefetchPilots(search.query);
      m_filters->prefetch(search.query);
    }
    for (std::size_t i = 0; i != size; ++i) {
      Search& search = searches[i];
      if (search.isThere) {
        locate(search.query, m_filters->ask(search.query).in(m_slice), search.place);
      }
    }
    for (std::size_t i = 0; i != size; ++i) {
      const Search& search = searches[i];
      if (search.isThere) {
        visit(search.query, search.place, [&](IndexedLeaf leaf) { out.push_back(leaf.references.leafIn(m_pointers)); });
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

std::vector<Query::Suffix> FrozenIndex::deepSuffixes(const Query& query) const {
  std::vector<Query::Suffix> suffixes;
  SuffixHash hash(m_seed, query.text(), query.size);
  auto depth = m_deepDepths.begin();
  std::size_t dot = query.size;
  for (unsigned int labels = 1; depth != m_deepDepths.end() && (dot = query.lastDotBefore(dot)) != 0; ++labels) {
    if (labels == *depth) {
      ++depth;
      const std::uint64_t suffixHash = hash.from(dot + 1);
      if (mayHaveWildcard(suffixHash)) {
        suffixes.push_back({suffixHash, dot + 1, labels});
      }
    }
  }
  return suffixes;
}

bool FrozenIndex::isLongName(const NameSlot& slot, const Query& query) const {
  const char* name = slot.leaf.leafIn(m_pointers)->getNameAsStr();
  return std::strncmp(name, query.text(), query.at) == 0 && name[query.at] == '\0';
}

bool FrozenIndex::isLongDomain(const DomainSlot& slot, const char* text, std::size_t size) {
  return slot.size == size && std::memcmp(size <= kInlineDomain ? slot.text() : slot.longText, text, size) == 0;
}

}  // namespace zaro_addressmatch
