#include "addressmatch/decide/AddressDecision.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace zaro_addressmatch {

namespace {

using PlainDecision = Decision<NoObserver>;

NoObserver g_noObserver;

// Asks a tree by itself. True when that decides.
bool askTree(KxWildcardNode& tree, std::size_t number, const char* address, PlainDecision& decision) {
  std::vector<KxListedEmailAddress*> leaves;
  if (!tree.findAllMatches(address, leaves)) {
    throw std::bad_alloc();
  }
  return decision.addTree(LeafRange::of(leaves), static_cast<unsigned int>(number));
}

// Calls `visit(number)` for every bit, the lowest first, until one answers true; then true.
template <typename Visit>
inline bool anyBit(std::uint32_t bits, Visit visit) {
  for (; bits != 0; bits &= bits - 1) {
    if (visit(static_cast<unsigned int>(__builtin_ctz(bits)))) {
      return true;
    }
  }
  return false;
}

// The place of an address in a tree; not used if the tree answers by itself.
inline FrozenIndex::Place placeIn(const SearchedTrees& trees, std::size_t tree, const Query& query) {
  const FrozenIndex* index = trees.index(tree);
  return index != nullptr ? index->locate(query) : FrozenIndex::Place();
}

// Asks a tree. True when that decides.
inline bool askTree(const SearchedTrees& trees, std::size_t tree, const char* address, const Query& query,
                    const FrozenIndex::Place& place, PlainDecision& decision) {
  const FrozenIndex* index = trees.index(tree);
  return index != nullptr ? decision.addTree(*index, query, place, static_cast<unsigned int>(tree))
                          : askTree(*trees.tree(tree), tree, address, decision);
}

void decideSplit(const SearchedTrees& trees, const char* address, const Query& query, PlainDecision& decision) {
  for (std::size_t first = 0; first < trees.size(); first += SearchedTrees::kTogether) {
    FrozenIndex::Place places[SearchedTrees::kTogether];
    const std::uint32_t candidates = trees.candidates(first, query);
    anyBit(candidates, [&](unsigned int i) {
      places[i] = placeIn(trees, first + i, query);
      return false;
    });
    if (anyBit(candidates,
               [&](unsigned int i) { return askTree(trees, first + i, address, query, places[i], decision); })) {
      return;
    }
  }
}

}  // namespace

KxMatchResult resultOf(const Outcome& outcome) {
  if (outcome.code == 0) {
    return {0, 0, nullptr, 0};
  }
  return {outcome.code, outcome.winner.tree, outcome.winner.name(), outcome.winner.state};
}

KxMatchResult decideAddress(const SearchedTrees& trees, const char* address) {
  PlainDecision decision(g_noObserver);
  Query query;
  if (trees.split(query, address)) {
    decideSplit(trees, address, query, decision);
  } else {
    askEachTree(trees.trees(), address, decision);
  }
  return resultOf(decision.outcome());
}

void decideTogether(const SearchedTrees& trees, const char* const* addresses, std::size_t count, KxMatchResult* results) {
  struct Undecided {
    Query query;
    std::optional<PlainDecision> decision;
    bool isDecided;
  };
  struct Search {
    std::size_t address;
    std::size_t tree;
    FrozenIndex::Place place;
  };
  Undecided all[kAddressesTogether];
  for (std::size_t i = 0; i != count; ++i) {
    Undecided& one = all[i];
    one.decision.emplace(g_noObserver);
    one.isDecided = !trees.split(one.query, addresses[i]);
    if (one.isDecided) {
      askEachTree(trees.trees(), addresses[i], *one.decision);
    } else {
      trees.prefetchFilters(one.query);
    }
  }
  // What one pass prefetches has arrived when the next pass reads it.
  for (std::size_t first = 0; first < trees.size(); first += SearchedTrees::kTogether) {
    Search searches[kAddressesTogether * SearchedTrees::kTogether];
    Search* end = searches;
    for (std::size_t i = 0; i != count; ++i) {
      if (!all[i].isDecided) {
        anyBit(trees.candidates(first, all[i].query), [&](unsigned int bit) {
          *end++ = {i, first + bit, placeIn(trees, first + bit, all[i].query)};
          return false;
        });
      }
    }
    for (const Search* search = searches; search != end; ++search) {
      Undecided& one = all[search->address];
      one.isDecided = one.isDecided ||
                      askTree(trees, search->tree, addresses[search->address], one.query, search->place, *one.decision);
    }
  }
  for (std::size_t i = 0; i != count; ++i) {
    results[i] = resultOf(all[i].decision->outcome());
  }
}

}  // namespace zaro_addressmatch
