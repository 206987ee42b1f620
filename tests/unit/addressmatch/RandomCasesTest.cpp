// The library against the slow matcher, over random small cases.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "AddressTexts.h"
#include "MatcherComparison.h"
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
  return wanted != nullptr ? static_cast<unsigned int>(std::strtoul(wanted, nullptr, 10)) : 850;
}

// Patterns are mostly of single kinds; the others must be refused or ignored.
unsigned int randomKinds(Random& random) {
  static const unsigned int kKinds[] = {1, 2, 4, 8, 16, 32, 1, 2, 4, 8, 16, 32, 0, 17, 48, 3, 24, 64, 65, 127};
  return kKinds[upTo(random, sizeof kKinds / sizeof kKinds[0] - 1)];
}

// One case: three generations of trees. Later ones bring texts that the locked table lacks.
class Case {
 public:
  explicit Case(unsigned int seed) : m_random(seed) {}

  void run() {
    // A few cases have more trees than are looked at together.
    makeTrees(1 + upTo(m_random, upTo(m_random, 9) == 0 ? 9 : 2));
    addPatterns(8);
    ask();
    m_comparison.freeze();
    ask();
    addPatterns(3);
    m_generation = "g";
    makeTrees(upTo(m_random, 1));
    addPatterns(6);
    ask();
    m_comparison.freeze();
    ask();
    addPatterns(3);
    ask();
    m_comparison.dropTree(0);
    m_generation = "c";
    makeTrees(1);
    addPatterns(8);
    m_comparison.freeze();
    ask();
  }
  const slow::MatcherComparison& comparison() const { return m_comparison; }

 private:
  void makeTrees(std::size_t count) {
    for (; count != 0; --count) {
      m_comparison.makeTree();
    }
  }

  void addPatterns(std::size_t highest) {
    for (std::size_t count = upTo(m_random, highest); count != 0; --count) {
      m_patterns.push_back(randomText());
      const std::size_t tree = upTo(m_random, m_comparison.trees() - 1);
      const std::string& pattern = m_patterns.back();
      const unsigned int kinds = randomKinds(m_random);
      m_comparison.add(tree, pattern, kinds);
      m_comparison.addByHand(tree, pattern, kinds);
      if (upTo(m_random, 7) == 0) {
        m_comparison.removeKinds(tree, m_patterns[upTo(m_random, m_patterns.size() - 1)], randomKinds(m_random));
      }
      if (upTo(m_random, 7) == 0) {
        m_comparison.addMany(tree, {randomText(), pattern, randomText()}, randomKinds(m_random));
      }
    }
  }

  // Half of the texts of a later generation have a piece that the first one had not.
  std::string randomText() {
    std::string text = randomAddressText(m_random);
    switch (m_generation.empty() ? 0 : upTo(m_random, 3)) {
      case 1:
        return m_generation + text;
      case 2:
        return text + (upTo(m_random, 1) == 0 ? "." : "") + m_generation;
      default:
        return text;
    }
  }

  void ask() {
    for (int query = 0; query != 4; ++query) {
      // Patterns are asked for too.
      const bool known = !m_patterns.empty() && upTo(m_random, 3) == 0;
      m_comparison.ask(known ? m_patterns[upTo(m_random, m_patterns.size() - 1)] : randomText());
    }
    m_comparison.askTogether();
  }

  Random m_random;
  std::string m_generation;
  slow::MatcherComparison m_comparison;
  std::vector<std::string> m_patterns;
};

class RandomCases : public scripted::PlatformTest, public testing::WithParamInterface<unsigned int> {};

TEST_P(RandomCases, answersAreThoseOfTheSlowMatcher) {
  unsigned long comparisons = 0;
  for (unsigned int number = 0; number < numberOfCases(); ++number) {
    const unsigned int seed = number * kShares + GetParam();
    Case oneCase(seed);
    oneCase.run();
    ASSERT_EQ(oneCase.comparison().difference(), "") << "case " << seed;
    comparisons += oneCase.comparison().comparisons();
  }
  std::printf("%u cases, %lu comparisons\n", numberOfCases(), comparisons);
  EXPECT_THAT(scripted::platform().log.lines(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Share, RandomCases, testing::Range(0u, kShares));

}  // namespace
