#include "addressmatch/decide/AddressDecision.h"

#include <algorithm>
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

// A tree that is to be asked for an address.
struct Search {
  unsigned int tree;
  const FrozenIndex* index;  // null for a tree that answers by itself
  FrozenIndex::Place place;  // of no meaning for such a tree

  void begin(const Query& query, unsigned int ofTree, const FrozenIndex* ofIndex, Presence presence) {
    tree = ofTree;
    index = ofIndex;
    if (index != nullptr) {
      index->locate(query, presence, place);
    }
  }
};

// Asks a tree. True when that decides.
inline bool askTree(const SearchedTrees& trees, const Search& search, const char* address, const Query& query,
                    PlainDecision& decision) {
  return search.index != nullptr ? decision.addTree(*search.index, query, search.place, search.tree)
                                 : askTree(*trees.trees()[search.tree], search.tree, address, decision);
}

// Decides by the index of the only tree. False when that does not answer.
bool decideByIndex(const FrozenIndex& index, const char* address, PlainDecision& decision) {
  Query query;
  if (!query.split(index.seed(), address, index.depths()) || query.isDotted) {
    return false;
  }
  FrozenIndex::Place place;
  index.locate(query, index.filters().ask(query).in(index.slice()), place);
  decision.addTree(index, query, place, 0);
  return true;
}

void decideSplit(const SearchedTrees& trees, const char* address, const Query& query, PlainDecision& decision) {
  constexpr std::size_t kMost = SearchedTrees::Run::kMost;
  for (const SearchedTrees::Run* run = trees.begin(); run != trees.end();) {
    // Those of one run or more, so that their cache misses overlap.
    Search searches[2 * kMost];
    Search* end = searches;
    for (; run != trees.end() && end <= searches + kMost; ++run) {
      run->forEachCandidate(query, [&](unsigned int tree, const FrozenIndex* index, Presence presence) {
        (end++)->begin(query, tree, index, presence);
      });
    }
    for (const Search* search = searches; search != end; ++search) {
      if (askTree(trees, *search, address, query, decision)) {
        return;
      }
    }
  }
}

void decideOver(const std::vector<KxWildcardNode*>& trees, const char* address, PlainDecision& decision) {
  const SearchedTrees searched(trees);
  Query query;
  if (searched.split(query, address)) {
    decideSplit(searched, address, query, decision);
  } else {
    askEachTree(trees, address, decision);
  }
}

// What a caller gets of an outcome.
inline void give(const Outcome& outcome, KxMatchResult& result) {
  result.code = outcome.code;
  const bool isThere = outcome.code != 0;
  result.treeIndex = isThere ? outcome.winner->tree : 0;
  result.name = isThere ? outcome.winner->name() : nullptr;
  result.belongsTo = isThere ? outcome.winner->state : 0;
}

}  // namespace

void decideAddress(const std::vector<KxWildcardNode*>& trees, const char* address, KxMatchResult& result) {
  PlainDecision decision(g_noObserver);
  // A single tree needs nothing of what brings several side by side, which takes a tenth of the time in a small one.
  const FrozenIndex* only = trees.size() == 1 && trees[0] != nullptr ? Level(*trees[0]).index() : nullptr;
  if (only == nullptr) {
    decideOver(trees, address, decision);
  } else if (!decideByIndex(*only, address, decision)) {
    askEachTree(trees, address, decision);
  }
  give(decision.outcome(), result);
}

void decideTogether(const SearchedTrees& trees, const char* const* addresses, std::size_t count, KxMatchResult* results) {
  struct Undecided {
    Query query;
    std::optional<PlainDecision> decision;
    bool isDecided;
  };
  struct SearchOf {
    std::size_t address;
    Search search;
  };
  Undecided all[kAddressesTogether];
  for (std::size_t i = 0; i != count; ++i) {
    Undecided& one = all[i];
    one.decision.emplace(g_noObserver);
    one.isDecided = !trees.split(one.query, addresses[i]);
    if (one.isDecided) {
      askEachTree(trees.trees(), addresses[i], *one.decision);
    } else {
      std::for_each(trees.begin(), trees.end(), [&one](const SearchedTrees::Run& run) { run.prefetch(one.query); });
    }
  }
  // What one pass prefetches has arrived when the next pass reads it.
  for (const SearchedTrees::Run& run : trees) {
    SearchOf searches[kAddressesTogether * SearchedTrees::Run::kMost];
    SearchOf* end = searches;
    for (std::size_t i = 0; i != count; ++i) {
      if (!all[i].isDecided) {
        run.forEachCandidate(all[i].query, [&](unsigned int tree, const FrozenIndex* index, Presence presence) {
          end->address = i;
          (end++)->search.begin(all[i].query, tree, index, presence);
        });
      }
    }
    for (const SearchOf* one = searches; one != end; ++one) {
      Undecided& ofAddress = all[one->address];
      ofAddress.isDecided = ofAddress.isDecided ||
                            askTree(trees, one->search, addresses[one->address], ofAddress.query, *ofAddress.decision);
    }
  }
  for (std::size_t i = 0; i != count; ++i) {
    give(all[i].decision->outcome(), results[i]);
  }
}

}  // namespace zaro_addressmatch
