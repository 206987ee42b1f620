// The library and the slow matcher side by side: every step is made by both, and the first difference is kept.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "SlowMatcher.h"

namespace slow {

// A few trees over one table of their own; beside each of them a floating tree, one over the process's default table,
// one over a table that no other tree shares, and one that is put together by hand. Those apart have no exceptions:
// whether these reach over tables is not theirs to say.
class MatcherComparison {
 public:
  MatcherComparison() {
    m_slowDefaultTable.instead = [](const std::string& text) {
      return KxWildcardEmail::_defaultScanTimeStringtable._findInStringtable(text.c_str()) != nullptr;
    };
  }

  void makeTree() {
    m_pairs.emplace_back(&m_table, &m_slowTable);
    m_floating.emplace_back(nullptr, nullptr);
    m_scanTime.emplace_back(std::unique_ptr<KxWildcardNode>(KxWildcardEmail::makeNewTree()),
                            &KxWildcardEmail::_defaultScanTimeStringtable, &m_slowDefaultTable);
    m_apart.push_back(std::make_unique<Apart>());
    m_byHand.emplace_back(&m_handTable, &m_slowHandTable);
  }
  void dropTree(std::size_t tree) {
    const auto position = static_cast<std::ptrdiff_t>(tree);
    m_steps.push_back("tree " + std::to_string(tree) + " goes");
    m_pairs.erase(m_pairs.begin() + position);
    m_floating.erase(m_floating.begin() + position);
    m_scanTime.erase(m_scanTime.begin() + position);
    m_apart.erase(m_apart.begin() + position);
    m_byHand.erase(m_byHand.begin() + position);
  }
  std::size_t trees() const { return m_pairs.size(); }

  void add(std::size_t tree, const std::string& pattern, unsigned int kinds) {
    m_steps.push_back("tree " + std::to_string(tree) + " + \"" + pattern + "\" " + std::to_string(kinds));
    add(m_pairs[tree], pattern, kinds);
    add(m_floating[tree], pattern, kinds);
    add(m_scanTime[tree], pattern, kinds);
    constexpr unsigned int kExceptions = 16 | 32;
    add(m_apart[tree]->pair, pattern, kinds & ~kExceptions);
  }
  // In one call of the library.
  void addMany(std::size_t tree, const std::vector<std::string>& patterns, unsigned int kinds) {
    for (const std::string& pattern : patterns) {
      m_steps.push_back("tree " + std::to_string(tree) + " + together \"" + pattern + "\" " + std::to_string(kinds));
    }
    addMany(m_pairs[tree], patterns, kinds);
    addMany(m_floating[tree], patterns, kinds);
    addMany(m_scanTime[tree], patterns, kinds);
  }
  // Makes the levels and the leaf that the pattern takes, as far as callers can, and puts them into the tree.
  void addByHand(std::size_t tree, const std::string& pattern, unsigned int kinds) {
    m_steps.push_back("tree " + std::to_string(tree) + " + by hand \"" + pattern + "\" " + std::to_string(kinds));
    Pair& pair = m_byHand[tree];
    const std::string text = lowered(pattern);
    const Split parts = split(text);
    const bool hasWildcard =
        parts.localPart == "*" || parts.labels.end() != std::find(parts.labels.begin(), parts.labels.end(), "*");
    const bool want = pair.slowTree->add(pattern, kinds);
    // What callers put into a frozen level is theirs to order.
    const bool got =
        hasWildcard || pair.tree->isLocked() ? addSplit(pair, text, kinds) : addObjects(pair, text, parts, kinds);
    expectEqual(resultText(want), resultText(got), "\"" + pattern + "\", by hand");
  }
  // Takes kinds from the leaf with the text of the pattern, if there is one.
  void removeKinds(std::size_t tree, const std::string& pattern, unsigned int kinds) {
    m_steps.push_back("tree " + std::to_string(tree) + " - \"" + pattern + "\" " + std::to_string(kinds));
    removeKinds(m_pairs[tree], pattern, kinds);
    removeKinds(m_floating[tree], pattern, kinds);
    removeKinds(m_scanTime[tree], pattern, kinds);
    removeKinds(m_byHand[tree], pattern, kinds);
  }

  // Freezes what was made since the last time (and whatever else the process has queued).
  void freeze() {
    m_steps.emplace_back("freeze");
    KxWildcardEmail::initScanTimeMode();
    m_slowTable.locked = true;
    m_slowHandTable.locked = true;
    for (std::vector<Pair>* pairs : {&m_pairs, &m_scanTime, &m_byHand}) {
      for (Pair& pair : *pairs) {
        pair.slowTree->lock();
      }
    }
    for (const std::unique_ptr<Apart>& apart : m_apart) {
      apart->slowTable.locked = true;
      apart->pair.slowTree->lock();
    }
    expectEqual(std::to_string(m_slowTable.texts.size()), std::to_string(m_table.size()), "size of the table");
  }

  // Asks every tree for its matches, and all of them for a decision.
  void ask(const std::string& address) {
    ask(m_pairs, address, "");
    ask(m_floating, address, ", floating");
    ask(m_scanTime, address, ", over the default table");
    ask(m_byHand, address, ", made by hand");
    m_asked.push_back(address);
  }
  // Asks again for what was asked since the last time, for many addresses at a time and over trees of several sorts.
  void askTogether() {
    Trees mixed;
    Trees apart;
    for (std::size_t tree = 0; tree != trees(); ++tree) {
      mixed.add(m_pairs[tree]);
      mixed.addNull();
      mixed.add(m_floating[tree]);
      apart.add(m_apart[tree]->pair);
    }
    askTogether(mixed, ", mixed with floating trees");
    askTogether(apart, ", a table for each tree");
    Trees many;
    for (const Pair& pair : m_pairs) {
      many.add(pair);
    }
    constexpr std::size_t kMany = 20;
    while (many.trees.size() < kMany) {
      many.addNull();
      many.add(m_pairs[many.trees.size() % trees()]);
    }
    askTogether(many, ", many trees");
    m_asked.clear();
  }

  unsigned long comparisons() const { return m_comparisons; }
  // Where the answers parted first, and the steps before; empty as long as they are the same.
  const std::string& difference() const { return m_difference; }

 private:
  struct Pair {
    Pair(KxStringtable* ofTable, Table* slowTable)
        : Pair(std::make_unique<KxWildcardRootNode>(ofTable), ofTable, slowTable) {}
    Pair(std::unique_ptr<KxWildcardNode> made, KxStringtable* ofTable, Table* slowTable)
        : table(ofTable), tree(std::move(made)), slowTree(std::make_unique<Tree>(slowTable)) {}

    KxStringtable* table;
    std::unique_ptr<KxWildcardNode> tree;
    std::unique_ptr<Tree> slowTree;
  };

  // A tree over a table of its own.
  struct Apart {
    KxStringtable table;  // goes last
    Table slowTable;
    Pair pair{&table, &slowTable};
  };
  // The trees of a call.
  struct Trees {
    std::vector<KxWildcardNode*> trees;
    std::vector<const Tree*> slowTrees;

    void add(const Pair& pair) {
      trees.push_back(pair.tree.get());
      slowTrees.push_back(pair.slowTree.get());
    }
    void addNull() {
      trees.push_back(nullptr);
      slowTrees.push_back(nullptr);
    }
  };

  void askTogether(Trees& of, const std::string& how) {
    std::vector<const char*> addresses;
    for (const std::string& address : m_asked) {
      addresses.push_back(address.c_str());
    }
    std::vector<KxMatchResult> results(addresses.size());
    KxWildcardEmail::matchEmailAddressBatch(addresses.data(), addresses.size(), of.trees, results.data());
    for (std::size_t i = 0; i != addresses.size(); ++i) {
      const std::string want = shown(decide(of.slowTrees, m_asked[i]));
      expectEqual(want, shown(results[i]), "decision on \"" + m_asked[i] + "\" among many" + how);
      KxMatchResult result = {99, 99, "unset", 99};
      result.code =
          KxWildcardEmail::matchEmailAddress(addresses[i], of.trees, &result.treeIndex, &result.name, &result.belongsTo);
      expectEqual(want, shown(result), "decision on \"" + m_asked[i] + "\"" + how);
    }
  }
  static std::string shown(const KxMatchResult& result) {
    return shown(Decision{result.code, result.treeIndex, result.name != nullptr ? result.name : "", result.belongsTo});
  }

  static std::string shown(const std::string& text, unsigned int state, unsigned int weight) {
    return "\"" + text + "\" of kind " + std::to_string(state) + " weighs " + std::to_string(weight) + "\n";
  }

  void add(Pair& pair, const std::string& pattern, unsigned int kinds) {
    const bool want = pair.slowTree->add(pattern, kinds);
    const bool got = pair.tree->addAddressPattern(pattern.c_str(), kinds, nullptr, nullptr);
    expectEqual(resultText(want), resultText(got), "\"" + pattern + "\"");
  }
  static std::string resultText(bool isAdded) { return isAdded ? "added" : "refused"; }

  void addMany(Pair& pair, const std::vector<std::string>& patterns, unsigned int kinds) {
    std::string want;
    std::vector<const char*> texts;
    for (const std::string& pattern : patterns) {
      want += pair.slowTree->add(pattern, kinds) ? '1' : '0';
      texts.push_back(pattern.c_str());
    }
    const std::unique_ptr<bool[]> added(new bool[texts.size()]);
    const std::size_t count =
        pair.tree->addAddressPatterns(texts.data(), texts.size(), kinds, nullptr, nullptr, added.get());
    std::string got;
    for (std::size_t i = 0; i != texts.size(); ++i) {
      got += added[i] ? '1' : '0';
    }
    expectEqual(want, got, "patterns added together");
    expectEqual(std::to_string(std::count(want.begin(), want.end(), '1')), std::to_string(count), "how many were added");
  }

  static bool addSplit(Pair& pair, const std::string& text, unsigned int kinds) {
    const std::unique_ptr<char[]> room(KxWildcardEmail::allocateNewEmailAddressString(text.c_str()));
    KxWildcardNode::LabelStack labels;
    KxWildcardNode::parseAddress(pair.table, text.c_str(), room.get(), labels);
    const KxIndexedString* name = KxWildcardNode::getEmailAddressName(labels);
    const KxIndexedString* whole = pair.table->getStringtableRef(text.c_str());
    const bool added = pair.tree->addAddressPattern(whole, name, labels, kinds, nullptr, nullptr);
    KxStringtable::cleanupReference(whole);
    labels.push(name);
    KxWildcardEmail::cleanupDomainStack(&labels, nullptr);
    return added;
  }

  static bool addObjects(Pair& pair, const std::string& text, const Split& parts, unsigned int kinds) {
    KxWildcardNode* level = pair.tree.get();
    for (auto label = parts.labels.rbegin(); label != parts.labels.rend(); ++label) {
      const KxIndexedString* handle = pair.table->getStringtableRef(label->c_str());
      KxWildcardNode* child = level->_findMatchingChild(*handle);
      if (child == nullptr) {
        child = new KxWildcardNode(pair.table, handle);
        level->_addToChildVector(child);
      }
      KxStringtable::cleanupReference(handle);
      level = child;
    }
    const KxIndexedString* name = pair.table->getStringtableRef(parts.localPart.c_str());
    KxListedEmailAddress* leaf = level->_findMatchingLeafNode(*name, true);
    KxStringtable::cleanupReference(name);
    if (leaf == nullptr) {
      leaf = new KxListedEmailAddress(pair.table, text.c_str(), parts.localPart.c_str());
      level->_addToLeafVector(leaf);
    }
    return leaf->addMembership(kinds);
  }

  void removeKinds(Pair& pair, const std::string& pattern, unsigned int kinds) {
    const std::string text = lowered(pattern);
    std::vector<KxListedEmailAddress*> found;
    pair.tree->findMatches(text.c_str(), found);
    const auto leaf = std::find_if(found.begin(), found.end(),
                                   [&](const KxListedEmailAddress* one) { return one->getFullAddressAsStr() == text; });
    const bool want = pair.slowTree->removeKinds(text, kinds);
    const bool got = leaf != found.end() && (*leaf)->removeMembership(kinds);
    expectEqual(want ? "taken" : "kept", got ? "taken" : "kept", "kinds of \"" + pattern + "\"");
  }

  void ask(const std::vector<Pair>& pairs, const std::string& address, const std::string& how) {
    std::vector<KxWildcardNode*> trees;
    std::vector<const Tree*> slowTrees;
    std::string matches;
    for (const Pair& pair : pairs) {
      trees.push_back(pair.tree.get());
      slowTrees.push_back(pair.slowTree.get());
      std::string want;
      for (const Leaf* leaf : pair.slowTree->findMatches(address)) {
        want += shown(leaf->fullAddress, leaf->state, weightOf(leaf->fullAddress));
      }
      std::string got;
      std::vector<KxListedEmailAddress*> found;
      for (const KxListedEmailAddress* leaf : pair.tree->findMatches(address.c_str(), found)) {
        got += shown(leaf->getFullAddressAsStr(), leaf->getState(), leaf->getWeight());
      }
      expectEqual(want, got, "matches of \"" + address + "\"" + how);
      expectEqual(got, shown(walked(*pair.tree, pair.table, address)), "walk for \"" + address + "\"" + how);
      expectEqual(got, askedInBatch(*pair.tree, address), "batch of \"" + address + "\"" + how);
      matches += got;
    }
    askForDecision(trees, decide(slowTrees, address), matches, address, how);
  }

  using Leaves = std::vector<KxListedEmailAddress*>;

  static std::string shown(const Leaves& leaves) {
    std::string text;
    for (const KxListedEmailAddress* leaf : leaves) {
      text += shown(leaf->getFullAddressAsStr(), leaf->getState(), leaf->getWeight());
    }
    return text;
  }

  // What the levels of the tree answer, whatever stands in for them.
  static Leaves walked(KxWildcardNode& tree, KxStringtable* table, const std::string& address) {
    const std::string text = lowered(address);
    const std::unique_ptr<char[]> room(KxWildcardEmail::allocateNewEmailAddressString(text.c_str()));
    KxWildcardNode::LabelStack labels;
    KxWildcardNode::parseAddress(table, text.c_str(), room.get(), labels);
    const KxIndexedString* name = KxWildcardNode::getEmailAddressName(labels);
    Leaves found;
    tree.findMatches(name, labels, found);
    if (name != nullptr) {
      labels.push(name);
    }
    KxWildcardEmail::cleanupDomainStack(&labels, nullptr);
    return found;
  }

  // The address as the second of three, of which the others must not be mixed up with it.
  static std::string askedInBatch(KxWildcardNode& tree, const std::string& address) {
    const char* const addresses[] = {"a@b", address.c_str(), nullptr};
    Leaves matches(1);
    std::vector<std::size_t> ends(1);
    KxWildcardEmail::findMatchesBatch(tree, addresses, 3, matches, ends);
    Leaves first;
    tree.findMatches("a@b", first);
    if (ends.size() != 3 || ends[0] != first.size() || ends[2] != ends[1] || matches.size() != ends[2]) {
      return "other ends";
    }
    const auto from = [&matches](std::size_t position) {
      return matches.begin() + static_cast<std::ptrdiff_t>(position);
    };
    return shown(Leaves(from(ends[0]), from(ends[1])));
  }

  void askForDecision(std::vector<KxWildcardNode*>& trees, const Decision& want, const std::string& matches,
                      const std::string& address, const std::string& how) {
    Decision got = {99, 99, "unset", 99};
    const char* name = "unset";
    got.code = KxWildcardEmail::matchEmailAddress(address.c_str(), trees, &got.tree, &name, &got.state);
    got.name = name != nullptr ? name : "";
    expectEqual(shown(want), shown(got), "decision on \"" + address + "\"" + how);

    const char* const addresses[] = {address.c_str(), "a@b", address.c_str()};
    KxMatchResult results[3];
    KxWildcardEmail::matchEmailAddressBatch(addresses, 3, trees, results);
    for (const std::size_t i : {std::size_t{0}, std::size_t{2}}) {
      expectEqual(shown(want), shown(results[i]), "decision on \"" + address + "\" in a batch" + how);
    }

    KxMatchExplanation explanation;
    got.code = KxWildcardEmail::explainEmailAddress(address.c_str(), trees, explanation);
    got = {got.code, explanation.treeIndex, explanation.name != nullptr ? explanation.name : "", explanation.belongsTo};
    expectEqual(shown(want), shown(got), "explanation of \"" + address + "\"" + how);
    std::string candidates;
    for (const KxMatchCandidate& candidate : explanation.candidates) {
      candidates += shown(candidate.leaf->getFullAddressAsStr(), candidate.state, candidate.weight);
    }
    expectEqual(matches, candidates, "candidates for \"" + address + "\"" + how);
  }

  static std::string shown(const Decision& decision) {
    return std::to_string(decision.code) + " by tree " + std::to_string(decision.tree) + ": \"" + decision.name +
           "\" of kind " + std::to_string(decision.state);
  }

  void expectEqual(const std::string& want, const std::string& got, const std::string& what) {
    ++m_comparisons;
    if (want != got && m_difference.empty()) {
      m_difference = lastSteps() + what + "\n want: " + want + "\n got:  " + got;
    }
  }

  std::string lastSteps() const {
    constexpr std::size_t kShown = 40;
    std::string text;
    for (std::size_t step = m_steps.size() > kShown ? m_steps.size() - kShown : 0; step != m_steps.size(); ++step) {
      text += m_steps[step] + "\n";
    }
    return text;
  }

  std::vector<std::string> m_steps;
  std::vector<std::string> m_asked;
  std::string m_difference;
  unsigned long m_comparisons = 0;
  // The tables go last.
  KxStringtable m_table;
  KxStringtable m_handTable;
  Table m_slowTable;
  Table m_slowDefaultTable;
  Table m_slowHandTable;
  std::vector<Pair> m_pairs;
  std::vector<Pair> m_floating;
  std::vector<Pair> m_scanTime;
  std::vector<Pair> m_byHand;
  std::vector<std::unique_ptr<Apart>> m_apart;
};

}  // namespace slow
