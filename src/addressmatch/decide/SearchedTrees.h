// Trees that are searched side by side: what answers for each, and the searches of one address in a few of them.
//
// An address is split and hashed once for all indexes. The filters of several trees are asked at the same time; only
// the trees that may have something for the address are looked into, and their slots are prefetched together.
//
//   invariant   the trees are asked in their order, and none after the one that decides
//   cost        a word of four filters or so for each tree; slots as in FrozenIndex for the few that are left
//   memory      none of the heap for up to 16 trees
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/decide/Decision.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/index/Query.h"
#include "addressmatch/tree/Level.h"

namespace zaro_addressmatch {

class SearchedTrees {
 public:
  // Trees whose filters are asked together.
  static constexpr std::size_t kTogether = 4;

  // Throws std::bad_alloc.
  explicit SearchedTrees(const std::vector<KxWildcardNode*>& trees) : m_trees(trees), m_indexes(m_few) {
    if (trees.size() > kFew) {
      m_many.reset(new const FrozenIndex*[trees.size()]);
      m_indexes = m_many.get();
    }
    const FrozenIndex** end = m_indexes;
    for (KxWildcardNode* tree : trees) {
      const FrozenIndex* index = tree != nullptr ? Level(*tree).index() : nullptr;
      if (index != nullptr) {
        m_seed = m_seed != nullptr ? m_seed : &index->seed();
        // The seeds of two indexes differ at most in their first words.
        index = index->seed().words[0] == m_seed->words[0] ? index : nullptr;
      }
      m_depths |= index != nullptr ? index->depths() : 0;
      *end++ = index;
    }
  }
  SearchedTrees(const SearchedTrees&) = delete;
  SearchedTrees& operator=(const SearchedTrees&) = delete;

  const std::vector<KxWildcardNode*>& trees() const { return m_trees; }
  std::size_t size() const { return m_trees.size(); }
  KxWildcardNode* tree(std::size_t number) const { return m_trees[number]; }
  // Null for a tree that answers by itself.
  const FrozenIndex* index(std::size_t number) const { return m_indexes[number]; }

  // Splits an address for the indexes. False when there is nothing to split, or when they do not share what it splits
  // into: then every tree answers by itself.
  bool split(Query& query, const char* address) const {
    return m_seed != nullptr && query.split(*m_seed, address, m_depths) && !query.isDotted;
  }

  // The trees from number `first` on, kTogether of them or those that are left, that are to be asked, a bit each. A
  // single tree always is.
  std::uint32_t candidates(std::size_t first, const Query& query) const {
    const std::size_t count = std::min(size() - first, kTogether);
    std::uint32_t found = size() == 1 && m_trees[0] != nullptr ? 1 : 0;
    for (std::size_t i = 0; i != count && size() != 1; ++i) {
      const FrozenIndex* index = m_indexes[first + i];
      if (index != nullptr ? index->mayHave(query) : m_trees[first + i] != nullptr) {
        found |= std::uint32_t{1} << i;
      }
    }
    return found;
  }
  void prefetchFilters(const Query& query) const {
    for (std::size_t i = 0; i != size(); ++i) {
      if (m_indexes[i] != nullptr) {
        m_indexes[i]->prefetchFilters(query);
      }
    }
  }

 private:
  static constexpr std::size_t kFew = 16;

  const std::vector<KxWildcardNode*>& m_trees;
  const FrozenIndex* m_few[kFew];
  const FrozenIndex** m_indexes;
  std::unique_ptr<const FrozenIndex*[]> m_many;
  const HashSeed* m_seed = nullptr;
  std::uint64_t m_depths = 0;
};

}  // namespace zaro_addressmatch
