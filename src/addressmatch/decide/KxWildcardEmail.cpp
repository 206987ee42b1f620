#include "KxWildcardEmail.h"

#include <algorithm>
#include <new>
#include <numeric>

#include "KxMatchExplanation.h"
#include "PolicyLog.h"
#include "addressmatch/decide/Decision.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/tree/Freezing.h"

using namespace zaro_addressmatch;

namespace {

template <typename Value>
void give(Value* output, Value value) {
  if (output != nullptr) {
    *output = value;
  }
}

void logNoMemory(const char* address) {
  PolicyLog::log(LogLevel::Error, "KxWildcardEmail::matchEmailAddress: out of memory; nothing is decided for %s",
                 address);
}

KxMatchResult resultOf(const Outcome& outcome) {
  if (outcome.code == 0) {
    return {0, 0, nullptr, 0};
  }
  return {outcome.code, outcome.winner.tree, outcome.winner.address->getString(), outcome.winner.state};
}

// Decides a group of addresses together: tree after tree, as long as one of them is undecided.
class GroupDecision {
 public:
  static constexpr std::size_t kSize = 96;

  // Both operations throw std::bad_alloc.
  GroupDecision(const char* const* addresses, std::size_t count) : m_undecided(addresses, addresses + count) {
    m_positions.resize(count);
    std::iota(m_positions.begin(), m_positions.end(), std::size_t{0});
    m_decisions.assign(count, Decision<NoObserver>(m_observer));
  }

  void decide(const std::vector<KxWildcardNode*>& trees, KxMatchResult* results) {
    for (std::size_t tree = 0; tree != trees.size() && !m_undecided.empty(); ++tree) {
      if (trees[tree] != nullptr) {
        search(*trees[tree], static_cast<unsigned int>(tree));
      }
    }
    for (std::size_t i = 0; i != m_decisions.size(); ++i) {
      results[i] = resultOf(m_decisions[i].outcome());
    }
  }

 private:
  void search(KxWildcardNode& tree, unsigned int number) {
    m_leaves.clear();
    m_ends.clear();
    if (!tree.findAllMatches(m_undecided.data(), m_undecided.size(), m_leaves, m_ends)) {
      throw std::bad_alloc();
    }
    for (const KxListedEmailAddress* leaf : m_leaves) {
      prefetchLine(leaf);
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i != m_ends.size(); ++i) {
      KxListedEmailAddress* const* first = m_leaves.data() + (i != 0 ? m_ends[i - 1] : 0);
      if (!m_decisions[m_positions[i]].addTree({first, m_leaves.data() + m_ends[i]}, number)) {
        m_undecided[kept] = m_undecided[i];
        m_positions[kept++] = m_positions[i];
      }
    }
    m_undecided.resize(kept);
    m_positions.resize(kept);
  }

  NoObserver m_observer;
  std::vector<const char*> m_undecided;
  std::vector<std::size_t> m_positions;  // of the undecided among all
  std::vector<Decision<NoObserver>> m_decisions;
  std::vector<KxListedEmailAddress*> m_leaves;
  std::vector<std::size_t> m_ends;
};

// Records what the decision reports.
class Recorder {
 public:
  explicit Recorder(std::vector<KxMatchCandidate>& candidates) : m_candidates(candidates) {}

  void fed(const LeafRange& leaves, unsigned int tree) {
    for (const KxListedEmailAddress* leaf : leaves) {
      m_candidates.push_back(
          {leaf, tree, leaf->getWeight(), leaf->getState(), KxMatchCandidate::NotSearched, KxMatchCandidate::kNone, 0});
    }
  }
  void ignored(std::size_t leaf) { note(leaf, KxMatchCandidate::Ignored); }
  void lighter(std::size_t leaf, std::size_t heavier) { note(leaf, KxMatchCandidate::Lighter, heavier); }
  void later(std::size_t leaf, std::size_t earlier) { note(leaf, KxMatchCandidate::Later, earlier); }
  void tied(std::size_t leaf, std::size_t winner) { note(leaf, KxMatchCandidate::Tied, winner); }
  void removed(std::size_t leaf, std::size_t exception) { note(leaf, KxMatchCandidate::Removed, exception); }
  void outranked(std::size_t leaf, std::size_t winner) { note(leaf, KxMatchCandidate::Outranked, winner); }
  void decided(std::size_t leaf) { note(leaf, KxMatchCandidate::Decided); }
  void exception(std::size_t leaf, std::size_t removals) {
    note(leaf, KxMatchCandidate::Exception);
    m_candidates[leaf].removed = removals;
  }

 private:
  void note(std::size_t leaf, KxMatchCandidate::Fate fate, std::size_t other = KxMatchCandidate::kNone) {
    m_candidates[leaf].fate = fate;
    m_candidates[leaf].other = other;
  }

  std::vector<KxMatchCandidate>& m_candidates;
};

}  // namespace

void KxWildcardEmail::initScanTimeMode() {
  if (!isUnloaded()) {
    freezeAll(_lockOnInit);
  }
}

KxWildcardNode* KxWildcardEmail::makeNewTree() {
  return new (std::nothrow) KxWildcardRootNode(isUnloaded() ? nullptr : &_defaultScanTimeStringtable);
}

KxWildcardNode* KxWildcardEmail::makeNewFloatingTree() {
  return new (std::nothrow) KxWildcardRootNode(nullptr);
}

unsigned char KxWildcardEmail::matchEmailAddress(const char* address, std::vector<KxWildcardNode*>& trees,
                                                 unsigned int* treeIndex, const char** name, KxEmailBelongsTo* belongsTo) {
  Outcome outcome;
  NoObserver observer;
  if (!withinMemory([&] { decideOver(trees, address, observer, outcome); })) {
    logNoMemory(address);
  }
  const KxMatchResult result = resultOf(outcome);
  give(treeIndex, result.treeIndex);
  give(name, result.name);
  give(belongsTo, result.belongsTo);
  return result.code;
}

void KxWildcardEmail::matchEmailAddressBatch(const char* const* addresses, std::size_t count,
                                             std::vector<KxWildcardNode*>& trees, KxMatchResult* results) {
  for (std::size_t first = 0; first < count; first += GroupDecision::kSize) {
    const std::size_t size = std::min(count - first, GroupDecision::kSize);
    if (withinMemory([&] { GroupDecision(addresses + first, size).decide(trees, results + first); })) {
      continue;
    }
    // One by one, to know for which of them memory runs out.
    for (std::size_t i = first; i != first + size; ++i) {
      KxMatchResult& result = results[i];
      result.code = matchEmailAddress(addresses[i], trees, &result.treeIndex, &result.name, &result.belongsTo);
    }
  }
}

void KxWildcardEmail::findMatchesBatch(KxWildcardNode& tree, const char* const* addresses, std::size_t count,
                                       std::vector<KxListedEmailAddress*>& matches, std::vector<std::size_t>& ends) {
  matches.clear();
  ends.clear();
  tree.findAllMatches(addresses, count, matches, ends);
}

unsigned char KxWildcardEmail::explainEmailAddress(const char* address, std::vector<KxWildcardNode*>& trees,
                                                   KxMatchExplanation& explanation) {
  explanation = KxMatchExplanation();
  Outcome outcome;
  Recorder recorder(explanation.candidates);
  const bool complete = withinMemory([&] {
    explanation.treesSearched = decideOver(trees, address, recorder, outcome);
    for (std::size_t tree = explanation.treesSearched; tree < trees.size(); ++tree) {
      std::vector<KxListedEmailAddress*> leaves;
      if (trees[tree] != nullptr && !trees[tree]->findAllMatches(address, leaves)) {
        throw std::bad_alloc();
      }
      recorder.fed(LeafRange::of(leaves), static_cast<unsigned int>(tree));
    }
  });
  if (!complete) {
    logNoMemory(address);
    explanation = KxMatchExplanation();
    explanation.complete = false;
    return explanation.code;
  }
  explanation.code = outcome.code;
  if (outcome.code != 0) {
    explanation.treeIndex = outcome.winner.tree;
    explanation.name = outcome.winner.address->getString();
    explanation.belongsTo = outcome.winner.state;
  }
  explanation.tier = outcome.tier;
  explanation.weightA = outcome.weightA;
  explanation.weightB = outcome.weightB;
  explanation.baseCode = outcome.baseCode;
  explanation.addedCode = outcome.addedCode;
  explanation.bothKinds = outcome.addedCode != 0;
  return explanation.code;
}

char* KxWildcardEmail::allocateNewEmailAddressString(const char* emailAddress) {
  return newScratch(emailAddress);
}

void KxWildcardEmail::cleanupDomainStack(KxWildcardNode::LabelStack* labels, KxStringtable* /*table*/) {
  if (labels != nullptr) {
    releaseLabels(*labels);
  }
}

void KxWildcardEmail::_addToLockOnInit(KxLockableClass* object) {
  registerForLock(object);
}
