#include "KxWildcardEmail.h"

#include <algorithm>
#include <new>

#include "KxMatchExplanation.h"
#include "PolicyLog.h"
#include "addressmatch/decide/AddressDecision.h"
#include "addressmatch/decide/Decision.h"
#include "addressmatch/decide/SearchedTrees.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/text/Memory.h"
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

void describe(const Outcome& outcome, KxMatchExplanation& explanation) {
  explanation.code = outcome.code;
  if (outcome.code != 0) {
    explanation.treeIndex = outcome.winner->tree;
    explanation.name = outcome.winner->name();
    explanation.belongsTo = outcome.winner->state;
  }
  explanation.tier = outcome.tier;
  explanation.weightA = outcome.weightA;
  explanation.weightB = outcome.weightB;
  explanation.baseCode = outcome.baseCode;
  explanation.addedCode = outcome.addedCode;
  explanation.bothKinds = outcome.addedCode != 0;
}

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
  KxMatchResult result = {0, 0, nullptr, 0};
  if (!withinMemory([&] { decideAddress(trees, address, result); })) {
    logNoMemory(address);
  }
  give(treeIndex, result.treeIndex);
  give(name, result.name);
  give(belongsTo, result.belongsTo);
  return result.code;
}

void KxWildcardEmail::matchEmailAddressBatch(const char* const* addresses, std::size_t count,
                                             std::vector<KxWildcardNode*>& trees, KxMatchResult* results) {
  std::size_t decided = 0;
  const bool complete = withinMemory([&] {
    const SearchedTrees searched(trees);
    for (; decided < count; decided += std::min(count - decided, kAddressesTogether)) {
      decideTogether(searched, addresses + decided, std::min(count - decided, kAddressesTogether), results + decided);
    }
  });
  if (complete) {
    return;
  }
  // One by one, to know for which of them memory runs out.
  for (; decided < count; ++decided) {
    KxMatchResult& result = results[decided];
    result.code = matchEmailAddress(addresses[decided], trees, &result.treeIndex, &result.name, &result.belongsTo);
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
  Recorder recorder(explanation.candidates);
  const bool complete = withinMemory([&] {
    Decision<Recorder> decision(recorder);
    explanation.treesSearched = askEachTree(trees, address, decision);
    describe(decision.outcome(), explanation);
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
