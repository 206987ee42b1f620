// The library against the slow matcher, over random small cases.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "AddressTexts.h"
#include "KxWildcardEmail.h"
#include "SlowMatcher.h"
#include "scripted/Platform.h"

namespace {

using slow::Random;
using slow::randomAddressText;
using slow::upTo;

// So that they can run side by side.
constexpr unsigned int kShares = 4;

// Of each share; a run may ask for more.
unsigned int numberOfCases() {
  const char* wanted = std::getenv("ZARO_RANDOM_CASES");
  return wanted != nullptr ? static_cast<unsigned int>(std::strtoul(wanted, nullptr, 10)) : 2500;
}

std::string shown(const std::string& text, unsigned int state, unsigned int weight) {
  return "\"" + text + "\" state " + std::to_string(state) + " weight " + std::to_string(weight);
}

// Patterns are mostly of single kinds; the others must be refused or ignored.
unsigned int randomKinds(Random& random) {
  static const unsigned int kKinds[] = {1, 2, 4, 8, 16, 32, 1, 2, 4, 8, 16, 32, 0, 17, 48, 3, 24, 64, 65, 127};
  return kKinds[upTo(random, sizeof kKinds / sizeof kKinds[0] - 1)];
}

// A tree and its slow counterpart.
struct Pair {
  Pair(KxStringtable* table, slow::Table* slowTable)
      : tree(std::make_unique<KxWildcardRootNode>(table)), slowTree(std::make_unique<slow::Tree>(slowTable)) {}

  std::unique_ptr<KxWildcardNode> tree;
  std::unique_ptr<slow::Tree> slowTree;
};

// One case: a few trees over one table and as many floating ones, through two freezes.
class Case {
 public:
  explicit Case(unsigned int seed) : m_random(seed) { m_story = "case " + std::to_string(seed) + "\n"; }

  bool run() {
    makeTrees(1 + upTo(m_random, 2));
    addPatterns(8);
    compareAll("unlocked");
    freeze();
    compareAll("frozen");
    addPatterns(3);
    makeTrees(upTo(m_random, 1));
    addPatterns(4);
    compareAll("added after the freeze");
    freeze();
    compareAll("frozen again");
    addPatterns(3);
    compareAll("added after the second freeze");
    expectEqual(std::to_string(m_slowTable.texts.size()), std::to_string(m_table.size()), "size of the table");
    return m_good;
  }

  unsigned long comparisons() const { return m_comparisons; }

 private:
  void makeTrees(std::size_t count) {
    for (; count != 0; --count) {
      m_pairs.emplace_back(&m_table, &m_slowTable);
      m_floating.emplace_back(nullptr, nullptr);
    }
  }

  void addPatterns(std::size_t highest) {
    for (std::size_t count = upTo(m_random, highest); count != 0; --count) {
      const std::string pattern = randomAddressText(m_random);
      const unsigned int kinds = randomKinds(m_random);
      const std::size_t tree = upTo(m_random, m_pairs.size() - 1);
      m_patterns.push_back(pattern);
      m_story += "  tree " + std::to_string(tree) + " + \"" + pattern + "\" " + std::to_string(kinds) + "\n";
      add(m_pairs[tree], pattern, kinds);
      add(m_floating[tree], pattern, kinds);
    }
  }

  void add(Pair& pair, const std::string& pattern, unsigned int kinds) {
    const bool want = pair.slowTree->add(pattern, kinds);
    const bool got = pair.tree->addAddressPattern(pattern.c_str(), kinds, nullptr, nullptr);
    expectEqual(want ? "added" : "refused", got ? "added" : "refused", "\"" + pattern + "\"");
  }

  void freeze() {
    m_story += "  freeze\n";
    KxWildcardEmail::initScanTimeMode();
    m_slowTable.locked = true;
    for (Pair& pair : m_pairs) {
      pair.slowTree->lock();
    }
  }

  void compareAll(const std::string& when) {
    for (int query = 0; query != 4; ++query) {
      // Patterns are asked for too.
      const bool known = !m_patterns.empty() && upTo(m_random, 3) == 0;
      const std::string address = known ? m_patterns[upTo(m_random, m_patterns.size() - 1)] : randomAddressText(m_random);
      compare(m_pairs, address, when);
      compare(m_floating, address, "floating, " + when);
    }
  }

  void compare(const std::vector<Pair>& pairs, const std::string& address, const std::string& when) {
    std::vector<KxWildcardNode*> trees;
    std::vector<const slow::Tree*> slowTrees;
    for (const Pair& pair : pairs) {
      trees.push_back(pair.tree.get());
      slowTrees.push_back(pair.slowTree.get());
      std::vector<KxListedEmailAddress*> found;
      std::string got;
      for (const KxListedEmailAddress* leaf : pair.tree->findMatches(address.c_str(), found)) {
        got += shown(leaf->getFullAddressAsStr(), leaf->getState(), leaf->getWeight()) + "\n";
      }
      std::string want;
      for (const slow::Leaf* leaf : pair.slowTree->findMatches(address)) {
        want += shown(leaf->fullAddress, leaf->state, slow::weightOf(leaf->fullAddress)) + "\n";
      }
      expectEqual(want, got, "matches of \"" + address + "\", " + when);
    }

    const slow::Decision want = slow::decide(slowTrees, address);
    unsigned int tree = 99;
    const char* name = "unset";
    KxEmailBelongsTo state = 99;
    const unsigned int code = KxWildcardEmail::matchEmailAddress(address.c_str(), trees, &tree, &name, &state);
    expectEqual(shown(want.name, want.state, want.code * 1000 + want.tree),
                shown(name != nullptr ? name : "", state, code * 1000 + tree),
                "decision on \"" + address + "\", " + when);
  }

  void expectEqual(const std::string& want, const std::string& got, const std::string& what) {
    ++m_comparisons;
    if (want != got && m_good) {
      m_good = false;
      ADD_FAILURE() << m_story << what << "\n want: " << want << "\n got:  " << got;
    }
  }

  Random m_random;
  std::string m_story;
  bool m_good = true;
  unsigned long m_comparisons = 0;
  // The table goes last.
  KxStringtable m_table;
  slow::Table m_slowTable;
  std::vector<Pair> m_pairs;
  std::vector<Pair> m_floating;
  std::vector<std::string> m_patterns;
};

class RandomCases : public scripted::PlatformTest, public testing::WithParamInterface<unsigned int> {};

TEST_P(RandomCases, answersAreThoseOfTheSlowMatcher) {
  unsigned long comparisons = 0;
  bool good = true;
  for (unsigned int number = 0; good && number < numberOfCases(); ++number) {
    Case oneCase(number * kShares + GetParam());
    good = oneCase.run();
    comparisons += oneCase.comparisons();
  }
  std::printf("%u cases, %lu comparisons\n", numberOfCases(), comparisons);
  EXPECT_THAT(scripted::platform().log.lines(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Share, RandomCases, testing::Range(0u, kShares));

}  // namespace
