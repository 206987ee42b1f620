// Trees that are searched side by side: what answers for each, and the searches of one address in a few of them.
//
// An address is split and hashed once for all indexes. Trees that were frozen together share their filters, which tell at
// once which of them may have something for the address; only these are looked into, and their slots are prefetched together.
//
//   invariant   the trees are asked in their order, and none after the one that decides
//   cost        four cache lines or so for the filters of up to eight trees that were frozen together; slots as in FrozenIndex
//               for the few that are left
//   memory      none of the heap for up to 16 trees
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/index/Query.h"
#include "addressmatch/index/SharedFilters.h"
#include "addressmatch/tree/Level.h"

namespace zaro_addressmatch {

class SearchedTrees {
 public:
  // Neighbours that share their filters, in the order of their slices; or a tree that answers by itself.
  class Run {
   public:
    // The most trees.
    static constexpr std::size_t kMost = SlicedFilter::kMostSets;

    // Prefetches what `forEachCandidate` reads, and what `locate` reads of a tree that will surely be taken.
    void prefetch(const Query& query) const {
      if (m_filters == nullptr) {
        return;
      }
      m_filters->prefetch(query);
      if (hasOneTree()) {
        m_indexes[firstSlice()]->prefetchPilots(query);
      }
    }
    // Calls `take(tree, index, presence)` for every tree that is to be asked, in order. The index is null for a tree
    // that answers by itself.
    template <typename Take>
    void forEachCandidate(const Query& query, const Take& take) const {
      if (m_filters == nullptr) {
        take(m_trees[0], nullptr, Presence{0});
        return;
      }
      const PresenceRows rows = m_filters->ask(query);
      if (hasOneTree()) {
        // Where to look need not wait for the filters.
        const unsigned int slice = firstSlice();
        take(m_trees[slice], m_indexes[slice], rows.in(slice));
        return;
      }
      for (std::uint32_t slices = (rows.slices() | m_filters->alwaysAsked) & m_slices; slices != 0; slices &= slices - 1) {
        const auto slice = static_cast<unsigned int>(__builtin_ctz(slices));
        take(m_trees[slice], m_indexes[slice], rows.in(slice));
      }
    }

   private:
    friend class SearchedTrees;

    // For runs with filters.
    bool hasOneTree() const { return (m_slices & (m_slices - 1)) == 0; }
    unsigned int firstSlice() const { return static_cast<unsigned int>(__builtin_ctz(m_slices)); }
    // Returns the slice's bit.
    std::uint32_t add(unsigned int slice, unsigned int tree, const FrozenIndex& index) {
      m_trees[slice] = tree;
      m_indexes[slice] = &index;
      return std::uint32_t{1} << slice;
    }
    // Adds the trees behind the one of a slice as far as they are those of the next slices: trees that were frozen
    // together are mostly asked in their order. Returns the last one added.
    KxWildcardNode* const* addNeighbours(unsigned int slice, KxWildcardNode* const* tree, KxWildcardNode* const* end,
                                         KxWildcardNode* const* first, std::uint32_t& slices) {
      const unsigned int step = m_filters->sliceStep;
      for (slice += step; slice < kMost && tree + 1 != end && tree[1] != nullptr; slice += step) {
        const SharedFilters::Member& member = m_filters->members[slice];
        if (member.root.load(std::memory_order_relaxed) != tree[1]) {
          break;
        }
        ++tree;
        slices |= add(slice, static_cast<unsigned int>(tree - first), *member.index);
      }
      return tree;
    }

    const SharedFilters* m_filters;  // null for a tree that answers by itself
    std::uint32_t m_slices;          // of the trees
    // By slice; uninitialised where there is none.
    unsigned int m_trees[kMost];
    const FrozenIndex* m_indexes[kMost];
  };

  // Throws std::bad_alloc.
  explicit SearchedTrees(const std::vector<KxWildcardNode*>& trees) : m_trees(trees), m_first(m_few) {
    if (trees.size() > kFew) {
      m_many = std::make_unique<Run[]>(trees.size());
      m_first = m_many.get();
    }
    m_end = m_first;
    Run* run = nullptr;
    const SharedFilters* filters = nullptr;  // of the run
    std::uint32_t slices = 0;
    KxWildcardNode* const* tree = trees.data();
    KxWildcardNode* const* const end = tree + trees.size();
    for (; tree != end; ++tree) {
      if (*tree == nullptr) {
        continue;
      }
      const FrozenIndex* index = Level(**tree).index();
      if (index == nullptr || &index->filters() != filters || std::uint32_t{1} << index->slice() <= slices) {
        run = m_end++;
        filters = begin(*run, numberOf(tree), index);
        slices = 0;
        if (filters == nullptr) {
          continue;
        }
      }
      slices |= run->add(index->slice(), numberOf(tree), *index);
      if (!isUnloaded()) {
        tree = run->addNeighbours(index->slice(), tree, end, trees.data(), slices);
      }
      run->m_slices = slices;
    }
  }
  SearchedTrees(const SearchedTrees&) = delete;
  SearchedTrees& operator=(const SearchedTrees&) = delete;

  const std::vector<KxWildcardNode*>& trees() const { return m_trees; }
  const Run* begin() const { return m_first; }
  const Run* end() const { return m_end; }

  // Splits an address for the indexes. False when there is nothing to split, or when they do not share what it splits
  // into: then every tree answers by itself.
  bool split(Query& query, const char* address) const {
    return m_seed != nullptr && query.split(*m_seed, address, m_depths) && !query.isDotted;
  }

 private:
  static constexpr std::size_t kFew = 16;

  unsigned int numberOf(KxWildcardNode* const* tree) const { return static_cast<unsigned int>(tree - m_trees.data()); }

  // Begins a run with a tree. Returns the filters of the run.
  const SharedFilters* begin(Run& run, unsigned int tree, const FrozenIndex* index) {
    run.m_filters = nullptr;
    run.m_trees[0] = tree;
    if (index != nullptr) {
      m_seed = m_seed != nullptr ? m_seed : &index->seed();
      // The seeds of two indexes differ at most in their first words.
      if (index->seed().words[0] == m_seed->words[0]) {
        m_depths |= index->filters().depths;
        run.m_filters = &index->filters();
      }
    }
    return run.m_filters;
  }

  const std::vector<KxWildcardNode*>& m_trees;
  Run m_few[kFew];
  Run* m_first;
  Run* m_end;
  std::unique_ptr<Run[]> m_many;
  const HashSeed* m_seed = nullptr;
  std::uint64_t m_depths = 0;
};

}  // namespace zaro_addressmatch
