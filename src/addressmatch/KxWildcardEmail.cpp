#include "KxWildcardEmail.h"

#include <memory>
#include <new>
#include <typeinfo>

#include "Decision.h"
#include "KxMatchExplanation.h"
#include "LibraryLifetime.h"
#include "Memory.h"
#include "PolicyLog.h"
#include "TreeState.h"

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

// Writes down what the decision tells.
class Recorder {
 public:
  explicit Recorder(std::vector<KxMatchCandidate>& candidates) : m_candidates(candidates) {}

  void fed(const std::vector<KxListedEmailAddress*>& leaves, unsigned int tree) {
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
  if (isUnloaded()) {
    return;
  }
  std::vector<std::shared_ptr<TreeState>> trees;
  while (!_lockOnInit.empty()) {
    KxLockableClass* object = _lockOnInit.front();
    _lockOnInit.pop();
    if (object == nullptr) {
      PolicyLog::log(LogLevel::Error,
                     "KxWildcardEmail::initScanTimeMode has found a NULL pointer on the _lockOnInit queue.");
      continue;
    }
    if (typeid(*object) == typeid(KxWildcardRootNode)) {
      withinMemory([&] { trees.push_back(static_cast<KxWildcardRootNode*>(object)->_ownTree); });
    }
    object->lock();
  }
  for (const std::shared_ptr<TreeState>& tree : trees) {
    if (tree != nullptr && !withinMemory([&] { tree->freeze(); })) {
      PolicyLog::log(LogLevel::Error, "KxWildcardEmail::initScanTimeMode: out of memory; a tree will be searched slowly");
    }
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
  const bool decided = outcome.code != 0;
  give(treeIndex, decided ? outcome.winner.tree : 0);
  give<const char*>(name, decided ? outcome.winner.address->getString() : nullptr);
  give(belongsTo, decided ? outcome.winner.state : 0);
  return outcome.code;
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
      recorder.fed(leaves, static_cast<unsigned int>(tree));
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
