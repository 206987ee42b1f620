// Patterns that are added many at once, beside the same ones added one by one; and what filling relies on.
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AddressTexts.h"
#include "KxWildcardEmail.h"
#include "scripted/Platform.h"

namespace {

using slow::Random;
using slow::randomAddressText;
using slow::upTo;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

std::vector<const char*> pointersTo(const Texts& texts) {
  std::vector<const char*> pointers;
  for (const std::string& text : texts) {
    pointers.push_back(text.c_str());
  }
  return pointers;
}

enum class Kind { Floating, OverATable, OverALockedTable };

// A tree without a table, or with its own, which may be locked beforehand and have some of the texts.
class Subject {
 public:
  explicit Subject(Kind kind) : m_table(tableFor(kind)), m_tree(m_table.get()) {}

  KxWildcardNode& tree() { return m_tree; }
  std::size_t texts() const { return m_table != nullptr ? m_table->size() : 0; }

  // What is found, and what is known of it.
  Texts matches(const std::string& address) {
    std::vector<KxListedEmailAddress*> found;
    Texts texts;
    for (const KxListedEmailAddress* leaf : m_tree.findMatches(address.c_str(), found)) {
      texts.push_back(std::string(leaf->getFullAddressAsStr()) + " " + leaf->getNameAsStr() + " " +
                      std::to_string(leaf->getWeight()) + " " + std::to_string(leaf->getState()) + " " +
                      leaf->getAnnotation() + " " + std::to_string(leaf->getRelatedPolicyOwners().size()));
    }
    return texts;
  }

 private:
  static std::unique_ptr<KxStringtable> tableFor(Kind kind) {
    if (kind == Kind::Floating) {
      return nullptr;
    }
    auto table = std::make_unique<KxStringtable>();
    if (kind == Kind::OverALockedTable) {
      for (const char* text : {"a", "user", "test", "*", "a@b", "*@a.b", "user1@example.test"}) {
        table->getStringtableRef(text);
      }
      table->lock();
    }
    return table;
  }

  std::unique_ptr<KxStringtable> m_table;
  KxWildcardRootNode m_tree;
};

class ManyPatterns : public scripted::PlatformTest, public testing::WithParamInterface<Kind> {
 protected:
  // Adds patterns to both trees.
  void add(const Texts& patterns, KxEmailBelongsTo kinds, const char* annotation = nullptr) {
    std::vector<const char*> pointers = pointersTo(patterns);
    std::vector<bool> want;
    for (const char* pattern : pointers) {
      want.push_back(oneByOne.tree().addAddressPattern(pattern, kinds, annotation, &owner));
    }
    const std::unique_ptr<bool[]> got(new bool[patterns.size()]);
    const std::size_t count =
        together.tree().addAddressPatterns(pointers.data(), pointers.size(), kinds, annotation, &owner, got.get());
    EXPECT_EQ(std::vector<bool>(got.get(), got.get() + patterns.size()), want);
    EXPECT_EQ(count, static_cast<std::size_t>(std::count(want.begin(), want.end(), true)));
    EXPECT_EQ(together.texts(), oneByOne.texts());
  }
  void expectSameMatches(const Texts& addresses) {
    for (const std::string& address : addresses) {
      EXPECT_EQ(together.matches(address), oneByOne.matches(address)) << address;
    }
  }

  std::string owner = "owner";
  Subject oneByOne{GetParam()};
  Subject together{GetParam()};
};

TEST_P(ManyPatterns, areStoredAsOneByOne) {
  for (unsigned int seed = 0; seed != 60; ++seed) {
    Random random(seed);
    Texts patterns;
    for (std::size_t count = upTo(random, 120); count != 0; --count) {
      patterns.push_back(upTo(random, 9) == 0 && !patterns.empty() ? patterns[upTo(random, patterns.size() - 1)]
                                                                   : randomAddressText(random));
    }
    add(patterns, 1u << upTo(random, 6), upTo(random, 1) == 0 ? "note" : nullptr);
    expectSameMatches(patterns);
  }
  Texts addresses;
  Random random(99);
  std::generate_n(std::back_inserter(addresses), 500, [&random] { return randomAddressText(random); });
  expectSameMatches(addresses);
  KxWildcardEmail::initScanTimeMode();
  expectSameMatches(addresses);
}

TEST_P(ManyPatterns, ofBigLevelsAndLongTextsAreStoredAsOneByOne) {
  Texts patterns;
  for (int number = 0; number != 3000; ++number) {
    const std::string text = std::to_string(number * 7919 % 3000);
    patterns.push_back("User" + text + "@example.test");
    patterns.push_back("user@" + text + ".example.test");
    patterns.push_back("*@*." + text + ".test");
    patterns.push_back(std::string(number % 200, 'x') + "@y." + std::string(number % 90, 'z') + ".test");
  }
  add(patterns, 1);
  add({patterns.begin(), patterns.begin() + 500}, 16);
  add({patterns.begin(), patterns.begin() + 500}, 2);
  KxWildcardEmail::initScanTimeMode();
  expectSameMatches(patterns);
}

TEST_P(ManyPatterns, tellWhichOfThemWereRefused) {
  const char* const patterns[] = {"user@a", nullptr, "*@a", "user@a", nullptr};
  bool added[5] = {};
  EXPECT_EQ(together.tree().addAddressPatterns(patterns, 5, 1, nullptr, nullptr, added), 3u);
  EXPECT_THAT(added, ElementsAre(true, false, true, true, false));
  // Two first tiers are not allowed together; the leaf stays what it was.
  EXPECT_EQ(together.tree().addAddressPatterns(patterns, 5, 2, nullptr, nullptr, added), 0u);
  EXPECT_THAT(added, ElementsAre(false, false, false, false, false));
  EXPECT_THAT(together.matches("user@a"), ElementsAre("user@a user 5002 1  0", "*@a * 4002 1  0"));
}

TEST_P(ManyPatterns, needNoArrayOfResults) {
  const char* const pattern = "user@a";
  EXPECT_EQ(together.tree().addAddressPatterns(&pattern, 1, 1), 1u);
  EXPECT_EQ(together.tree().addAddressPatterns(nullptr, 0, 1), 0u);
}

TEST_P(ManyPatterns, afterTheFreezeAreTreatedAsOneByOne) {
  add({"user@a.test", "*@b.test"}, 1);
  KxWildcardEmail::initScanTimeMode();
  add({"user@a.test", "user@b.test", "new@a.test", "*@new.test", "*", "bare"}, 16);
  expectSameMatches({"user@a.test", "user@b.test", "new@a.test", "x@new.test", "bare"});
}

TEST_P(ManyPatterns, canBeAddedBelowALevel) {
  const KxIndexedString label("label");
  KxWildcardNode level(nullptr, &label);
  const char* const patterns[] = {"user@example.test", "*@example.test"};
  EXPECT_EQ(level.addAddressPatterns(patterns, 2, 1), 2u);
  std::vector<KxListedEmailAddress*> found;
  EXPECT_EQ(level.findMatches("user@example.other", found).size(), 2u);
}

std::string treeKind(const testing::TestParamInfo<Kind>& kind) {
  static const char* const kNames[] = {"floating", "overATable", "overALockedTable"};
  return kNames[static_cast<int>(kind.param)];
}

INSTANTIATE_TEST_SUITE_P(Trees, ManyPatterns, testing::Values(Kind::Floating, Kind::OverATable, Kind::OverALockedTable),
                         treeKind);

// --- A leaf or level is found again, whichever way it came in ---

class FoundAgain : public scripted::PlatformTest, public testing::WithParamInterface<bool> {
 protected:
  static KxStringtable* frozenIf(bool isFrozen, KxStringtable& table) {
    if (isFrozen) {
      KxWildcardEmail::initScanTimeMode();
    }
    return &table;
  }
  std::size_t leavesFor(const char* address) {
    std::vector<KxListedEmailAddress*> found;
    return tree.findMatches(address, found).size();
  }
  bool add(const char* pattern, KxEmailBelongsTo kind) {
    return tree.addAddressPattern(pattern, kind, nullptr, nullptr);
  }

  KxStringtable table;
  KxWildcardRootNode tree{frozenIf(GetParam(), table)};
  const KxIndexedString other{"other@text"};
  const KxIndexedString user{"user"};
  const KxIndexedString test{"test"};
};

TEST_P(FoundAgain, leafOfASplitPatternWithAnotherAddress) {
  ASSERT_TRUE(add("x@test", 1));
  KxWildcardNode::LabelStack labels;
  labels.push(&test);
  ASSERT_TRUE(tree.addAddressPattern(&other, &user, labels, 1, nullptr, nullptr));
  EXPECT_FALSE(add("user@test", 2));
  EXPECT_EQ(leavesFor("user@test"), 1u);
}

TEST_P(FoundAgain, leafThatALevelWasGivenWithAnotherAddress) {
  ASSERT_TRUE(add("x@test", 1));
  KxWildcardNode* level = tree._findMatchingChild(test);
  ASSERT_NE(level, nullptr);
  ASSERT_TRUE(level->_addOrModifyLeaf(&user, &other, 1, nullptr, nullptr));
  EXPECT_FALSE(add("user@test", 2));
  EXPECT_EQ(leavesFor("user@test"), 1u);
}

TEST_P(FoundAgain, leafAndLevelsOfABareText) {
  ASSERT_TRUE(add("user", 1));
  EXPECT_FALSE(add("user@.user", 2));
  EXPECT_TRUE(add("x@user", 1));
  EXPECT_EQ(leavesFor("user@.user"), 1u);
  EXPECT_EQ(leavesFor("x@user"), 1u);
}

TEST_P(FoundAgain, leafOfAWildcardLevelWhoseOtherLabelsDiffer) {
  ASSERT_TRUE(add("user@a.*.test", 1));
  EXPECT_FALSE(add("user@b.*.test", 2));
  EXPECT_FALSE(add("user@*.test", 2));
  EXPECT_EQ(leavesFor("user@c.test"), 1u);
  // The root's empty label, "test", "*", "user" and the first address.
  EXPECT_EQ(table.size(), GetParam() ? 0u : 5u);
}

TEST_P(FoundAgain, levelOfASplitPattern) {
  KxWildcardNode::LabelStack labels;
  const KxIndexedString example("example");
  labels.push(&example);
  labels.push(&test);
  ASSERT_TRUE(tree.addAddressPattern(&other, &KxStringtable::_theWildcardIndexedString, labels, 1, nullptr, nullptr));
  EXPECT_TRUE(add("user@example.test", 1));
  EXPECT_FALSE(add("*@example.test", 2));
  EXPECT_EQ(leavesFor("user@example.test"), 2u);
}

TEST_P(FoundAgain, levelsAboveOthersAndThoseOfLongDomains) {
  const std::string longDomain = std::string(40, 'l') + ".example.test";
  for (const std::string& domain : {std::string("a.b.example.test"), longDomain, std::string("b.example.test"),
                                    std::string("example.test"), std::string("test")}) {
    ASSERT_TRUE(add(("user@" + domain).c_str(), 1));
    EXPECT_FALSE(add(("user@" + domain).c_str(), 2)) << domain;
    EXPECT_TRUE(add(("*@*." + domain).c_str(), 1));
    EXPECT_FALSE(add(("*@*." + domain).c_str(), 2)) << domain;
  }
  EXPECT_EQ(leavesFor("user@a.b.example.test"), 4u);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_EQ(leavesFor("user@a.b.example.test"), 4u);
  EXPECT_EQ(leavesFor(("user@" + longDomain).c_str()), 3u);
}

INSTANTIATE_TEST_SUITE_P(Tables, FoundAgain, testing::Bool(), [](const testing::TestParamInfo<bool>& isFrozen) {
  return isFrozen.param ? "frozen" : "open";
});

// --- Big tables ---

class BigTable : public scripted::PlatformTest {
 protected:
  BigTable() {
    for (int number = 0; number != 5000; ++number) {
      texts.push_back(std::to_string(number * 7919 % 5000) + std::string(number % 41, '.'));
    }
    texts.push_back(std::string(100000, 'a'));
    texts.push_back(std::string(100000, 'a') + "b");
    texts.push_back("");
    texts.push_back("\xff\xfe");
    texts.push_back("12345678");
    for (const std::string& text : texts) {
      entries.push_back(table.getStringtableRef(text.c_str()));
    }
  }

  Texts texts;
  KxStringtable table;
  std::vector<const KxIndexedString*> entries;
};

TEST_F(BigTable, holdsEachTextOnceInItsPlace) {
  EXPECT_EQ(table.size(), texts.size());
  for (std::size_t i = 0; i != texts.size(); ++i) {
    ASSERT_EQ(entries[i]->getString(), texts[i]);
    ASSERT_EQ(entries[i]->getIndex(), KxIndexedString::TableEntry);
    ASSERT_EQ(table.getStringtableRef(texts[i].c_str()), entries[i]);
    ASSERT_EQ(table._findInStringtable(texts[i].c_str()), entries[i]);
  }
  EXPECT_EQ(table._findInStringtable("5000"), nullptr);
  EXPECT_THAT(scripted::platform().log.lines(), IsEmpty());
}

TEST_F(BigTable, ranksItsEntriesInTextOrder) {
  table.lock();
  std::vector<std::pair<std::string, unsigned int>> ranks;
  for (std::size_t i = 0; i != texts.size(); ++i) {
    ranks.emplace_back(texts[i], entries[i]->getIndex());
  }
  std::sort(ranks.begin(), ranks.end());
  for (std::size_t i = 0; i != ranks.size(); ++i) {
    ASSERT_EQ(ranks[i].second, i) << ranks[i].first;
  }
  EXPECT_EQ(table.getRef(texts[4321].c_str()), entries[4321]);
}

TEST_F(BigTable, findsByTheRankOfAnotherTable) {
  KxStringtable other;
  for (const std::string& text : texts) {
    other.getStringtableRef((text + "x").c_str());
  }
  other.lock();
  table.lock();
  const KxIndexedString* foreign = other.getRef((texts[4000] + "x").c_str());
  const KxIndexedString* found = table._findInStringtable(foreign);
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found->getIndex(), foreign->getIndex());
}

}  // namespace
