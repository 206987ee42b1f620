// Frozen trees answer from an index. Whatever a walk down their levels would find, they find, in the same order.
#include <algorithm>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "AllocationCount.h"
#include "KxWildcardEmail.h"
#include "MatcherComparison.h"
#include "scripted/Platform.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;
using Leaves = std::vector<KxListedEmailAddress*>;

Texts textsOf(const Leaves& leaves) {
  Texts texts;
  for (const KxListedEmailAddress* leaf : leaves) {
    texts.emplace_back(leaf->getFullAddressAsStr());
  }
  return texts;
}

class FrozenTree : public scripted::PlatformTest {
 protected:
  void add(const Texts& patterns, KxWildcardNode& to) {
    for (const std::string& pattern : patterns) {
      to.addAddressPattern(pattern.c_str(), 1, nullptr, nullptr);
    }
  }
  void add(const Texts& patterns) { add(patterns, tree); }
  static void freeze() { KxWildcardEmail::initScanTimeMode(); }
  static Texts matches(KxWildcardNode& of, const std::string& address) {
    Leaves found;
    return textsOf(of.findMatches(address.c_str(), found));
  }
  Texts matches(const std::string& address) { return matches(tree, address); }

  KxStringtable table;
  KxWildcardRootNode tree{&table};
};

TEST_F(FrozenTree, mostSpecificDomainComesFirstAndAConcreteNameBeforeAny) {
  add({"*@*", "user@*", "*@*.example.test", "user@*.example.test", "*@a.example.test", "user@a.example.test",
       "*@*.test", "user@*.test"});
  freeze();
  EXPECT_THAT(matches("User@A.Example.Test"),
              ElementsAre("user@a.example.test", "*@a.example.test", "user@*.example.test", "*@*.example.test",
                          "user@*.test", "*@*.test", "user@*", "*@*"));
  EXPECT_THAT(matches("other@b.a.example.test"), ElementsAre("*@*.example.test", "*@*.test", "*@*"));
  EXPECT_THAT(matches("user@example.test"), ElementsAre("user@*.test", "*@*.test", "user@*", "*@*"));
}

TEST_F(FrozenTree, bareTextsAreTheirOwnTopLabelAboveAnEmptyOne) {
  add({"user", "a.b", "user@*", "x@.user", "a.b@.a.b", "*@*.user"});
  freeze();
  EXPECT_THAT(matches("user"), ElementsAre("user", "*@*.user", "user@*"));
  EXPECT_THAT(matches("USER@.user"), ElementsAre("user", "*@*.user", "user@*"));
  EXPECT_THAT(matches("x@.user"), ElementsAre("x@.user", "*@*.user"));
  EXPECT_THAT(matches("a.b"), ElementsAre("a.b"));
  EXPECT_THAT(matches("a.b@.a.b"), ElementsAre("a.b@.a.b"));
}

TEST_F(FrozenTree, textOfAPatternWithIgnoredLabelsIsTheFirstOne) {
  add({"user@a.*.example.test", "user@b.*.example.test", "user@*.example.test"});
  freeze();
  EXPECT_THAT(matches("user@c.example.test"), ElementsAre("user@a.*.example.test"));
}

TEST_F(FrozenTree, emptyLabelsAreLabels) {
  add({"user@", "*@", "user@.", "user@a..b", "*@*.", "@", "@a"});
  freeze();
  EXPECT_THAT(matches("user@"), ElementsAre("user@", "*@"));
  EXPECT_THAT(matches("user@."), ElementsAre("user@.", "*@*."));
  EXPECT_THAT(matches("user@a..b"), ElementsAre("user@a..b"));
  EXPECT_THAT(matches("user@a.b"), IsEmpty());
  EXPECT_THAT(matches("@"), ElementsAre("@", "*@"));
  EXPECT_THAT(matches("@a"), ElementsAre("@a"));
  EXPECT_THAT(matches(""), ElementsAre("*@*."));
}

TEST_F(FrozenTree, asteriskInsideAPieceIsACharacter) {
  add({"user@a*b.test", "u*@a.test", "*@*.test"});
  freeze();
  EXPECT_THAT(matches("user@a*b.test"), ElementsAre("user@a*b.test", "*@*.test"));
  EXPECT_THAT(matches("user@axb.test"), ElementsAre("*@*.test"));
  EXPECT_THAT(matches("u*@a.test"), ElementsAre("u*@a.test", "*@*.test"));
}

TEST_F(FrozenTree, patternsCanBeAskedFor) {
  add({"user@example.test", "*@example.test", "*@*.example.test", "user@*", "*"});
  freeze();
  EXPECT_THAT(matches("*"), ElementsAre("*"));
  EXPECT_THAT(matches("*@*"), ElementsAre("*"));
  EXPECT_THAT(matches("*@example.test"), ElementsAre("*@example.test", "*"));
  EXPECT_THAT(matches("user@*.example.test"), ElementsAre("*@*.example.test", "user@*", "*"));
}

TEST_F(FrozenTree, onlyTheFirstAtDivides) {
  add({"a@b@c.test", "*@*.test", "a@b"});
  freeze();
  EXPECT_THAT(matches("a@b@c.test"), ElementsAre("a@b@c.test", "*@*.test"));
  EXPECT_THAT(matches("a@b@c"), IsEmpty());
}

TEST_F(FrozenTree, textsOfEveryLengthAreToldApart) {
  Texts patterns;
  for (std::size_t size = 1; size != 300; ++size) {
    const std::string text(size, 'a');
    patterns.push_back(text + "@b");
    patterns.push_back("b@" + text);
    patterns.push_back("c@*." + text);
  }
  add(patterns);
  freeze();
  for (std::size_t size = 1; size != 300; ++size) {
    const std::string text(size, 'a');
    EXPECT_THAT(matches(text + "@b"), ElementsAre(text + "@b"));
    EXPECT_THAT(matches("b@" + text), ElementsAre("b@" + text));
    EXPECT_THAT(matches("c@x." + text), ElementsAre("c@*." + text));
    std::string other = text;
    other.back() = 'x';
    EXPECT_THAT(matches(other + "@b"), IsEmpty());
    EXPECT_THAT(matches("b@" + other), IsEmpty());
  }
}

TEST_F(FrozenTree, wildcardsBelowManyLabelsAreFound) {
  // Up to the number of labels that an index looks at, and beyond.
  for (const std::size_t labels : {1, 2, 63, 64, 65, 100}) {
    KxStringtable ownTable;
    KxWildcardRootNode deep(&ownTable);
    std::string domain = "test";
    for (std::size_t label = 1; label < labels; ++label) {
      domain.insert(0, "a.");
    }
    add({"*@*." + domain, "*@" + domain}, deep);
    freeze();
    EXPECT_THAT(matches(deep, "user@b." + domain), ElementsAre("*@*." + domain)) << labels;
    EXPECT_THAT(matches(deep, "user@" + domain), ElementsAre("*@" + domain)) << labels;
    EXPECT_THAT(matches(deep, "user@c.b." + domain), ElementsAre("*@*." + domain)) << labels;
  }
}

TEST_F(FrozenTree, wildcardsBelowVeryManyLabelsLieBesideTheIndex) {
  const auto domainOf = [](std::size_t labels) {
    std::string domain = "test";
    for (std::size_t label = 1; label < labels; ++label) {
      domain.insert(0, std::string(1 + label % 3, 'a') + ".");
    }
    return domain;
  };
  Texts patterns = {"user@example.test", "*@*.example.test", "user@*"};
  for (const std::size_t labels : {2, 63, 64, 65, 66, 70, 100}) {
    patterns.push_back("*@*." + domainOf(labels));
    patterns.push_back("user@*." + domainOf(labels));
    patterns.push_back("user@" + domainOf(labels));
  }
  slow::Tree slowTree(nullptr);
  for (const std::string& pattern : patterns) {
    slowTree.add(pattern, 1);
  }
  add(patterns);
  freeze();
  for (std::size_t labels = 1; labels != 105; ++labels) {
    for (const std::string& address : {"user@" + domainOf(labels), "x@" + domainOf(labels),
                                       "user@b." + domainOf(labels), "x@b." + domainOf(labels)}) {
      Texts want;
      for (const slow::Leaf* leaf : slowTree.findMatches(address)) {
        want.push_back(leaf->fullAddress);
      }
      EXPECT_EQ(matches(address), want) << address;
    }
  }
  // A walk would take memory.
  Leaves out;
  out.reserve(16);
  const AllocationCount count;
  tree.findMatches("user@a.example.test", out);
  EXPECT_EQ(count.allocations(), 0u);
  EXPECT_EQ(out.size(), 2u);
}

// As many suffixes as an index ever asks for at once, and more.
TEST_F(FrozenTree, wildcardsAtEveryDepthAreFoundByOneAddress) {
  constexpr std::size_t kDeepest = 70;
  std::vector<std::string> domains = {"a"};
  while (domains.size() != kDeepest) {
    domains.push_back((domains.size() % 2 != 0 ? "b." : "a.") + domains.back());
  }
  Texts patterns;
  slow::Tree slowTree(nullptr);
  for (const std::string& domain : domains) {
    patterns.push_back("*@*." + domain);
    patterns.push_back("user@*." + domain);
    slowTree.add("*@*." + domain, 1);
    slowTree.add("user@*." + domain, 1);
  }
  add(patterns);
  freeze();
  for (const std::string& domain : domains) {
    for (const std::string& address : {"user@" + domain, "user@x." + domain, "other@" + domain, "u@x.y." + domain}) {
      Texts want;
      for (const slow::Leaf* leaf : slowTree.findMatches(address)) {
        want.push_back(leaf->fullAddress);
      }
      ASSERT_EQ(matches(address), want) << address;
    }
  }
  EXPECT_EQ(matches("user@x." + domains.back()).size(), 2 * kDeepest);
}

TEST_F(FrozenTree, emptyTreeMatchesNothing) {
  freeze();
  for (const char* address : {"", "a", "a@b", "*", "a@b.c"}) {
    EXPECT_THAT(matches(address), IsEmpty()) << address;
  }
}

TEST_F(FrozenTree, refusedKindsLeaveALeafThatIsFound) {
  EXPECT_FALSE(tree.addAddressPattern("user@example.test", 64, nullptr, nullptr));
  EXPECT_FALSE(tree.addAddressPattern("*@example.test", 3, nullptr, nullptr));
  freeze();
  EXPECT_THAT(matches("user@example.test"), ElementsAre("user@example.test", "*@example.test"));
}

TEST_F(FrozenTree, treeOverATableThatIsFrozenAlreadyIsFrozenByTheNextCall) {
  add({"known@example.test"});
  freeze();
  KxWildcardRootNode later(&table);
  add({"known@example.test", "unknown@example.test", "known@*.unknown", "*@other.unknown"}, later);
  for (int frozen = 0; frozen != 2; ++frozen) {
    EXPECT_THAT(matches(later, "known@example.test"), ElementsAre("known@example.test"));
    EXPECT_THAT(matches(later, "unknown@example.test"), ElementsAre("unknown@example.test"));
    EXPECT_THAT(matches(later, "known@other.unknown"), ElementsAre("*@other.unknown", "known@*.unknown"));
    freeze();
  }
}

// The index alone answers without memory, a walk does not.
TEST_F(FrozenTree, everyGenerationHasAnIndexWhateverItsTableLacks) {
  add({"known@example.test"});
  freeze();
  const auto make = [](KxStringtable* over) -> std::unique_ptr<KxWildcardNode> {
    return std::unique_ptr<KxWildcardNode>(over != nullptr ? new KxWildcardRootNode(over)
                                                           : KxWildcardEmail::makeNewTree());
  };
  for (KxStringtable* over : {&table, static_cast<KxStringtable*>(nullptr)}) {
    for (int generation = 0; generation != 3; ++generation) {
      const std::string domain = "g" + std::to_string(generation) + ".test";
      const std::unique_ptr<KxWildcardNode> later = make(over);
      add({"known@example.test", "known@*.test", "*@*." + domain, "user@" + domain, "*@" + domain}, *later);
      EXPECT_FALSE(later->addAddressPattern(("user@" + domain).c_str(), 2, nullptr, nullptr));
      EXPECT_THAT(matches(*later, "user@" + domain), ElementsAre("user@" + domain, "*@" + domain));
      freeze();
      Leaves out;
      out.reserve(16);
      const AllocationCount count;
      later->findMatches("known@example.test", out);
      later->findMatches(("User@" + domain).c_str(), out);
      later->findMatches(("known@a." + domain).c_str(), out);
      EXPECT_EQ(count.allocations(), 0u);
      EXPECT_EQ(textsOf(out), (Texts{"known@example.test", "known@*.test", "user@" + domain, "*@" + domain,
                                     "*@*." + domain, "known@*.test"}));
    }
  }
}

TEST_F(FrozenTree, levelLockedByHandFindsWhatItsLockedTableHas) {
  for (const auto& [pattern, topLevel] :
       {std::pair("user@example.alabelthatnokeyofadomainholds.test", "test"), std::pair("user", "user")}) {
    KxStringtable own;
    KxWildcardRootNode root(&own);
    ASSERT_TRUE(root.addAddressPattern(pattern, 1, nullptr, nullptr));
    own.lock();
    KxWildcardNode* level = root._findMatchingChild(*own.getStringtableRef(topLevel));
    ASSERT_NE(level, nullptr);
    level->lock();
    EXPECT_TRUE(root.addAddressPattern(pattern, 16, nullptr, nullptr));
    Leaves found;
    root.findMatches(pattern, found);
    ASSERT_EQ(found.size(), 1u) << pattern;
    EXPECT_EQ(found[0]->getState(), 17u) << pattern;
  }
}

TEST_F(FrozenTree, leafWithoutATextOverALockedTableIsFoundAgain) {
  KxStringtable own;
  own.lock();
  KxWildcardRootNode root(&own);
  const KxIndexedString none(nullptr);
  const KxIndexedString name("user");
  const KxIndexedString label("test");
  for (const KxEmailBelongsTo kind : {1u, 16u}) {
    KxWildcardNode::LabelStack labels;
    labels.push(&label);
    EXPECT_TRUE(root.addAddressPattern(&none, &name, labels, kind, nullptr, nullptr));
  }
  Leaves found;
  root.findMatches("user@test", found);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0]->getState(), 17u);
}

TEST_F(FrozenTree, textsThatALockedTableLacksAreCopiesOfTheTreesOwn) {
  add({"known@example.test"});
  freeze();
  const std::size_t size = table.size();
  KxWildcardRootNode later(&table);
  add({"known@example.test", "unknown@example.test", "known@other.test"}, later);
  EXPECT_EQ(table.size(), size);
  for (int frozen = 0; frozen != 2; ++frozen, freeze()) {
    Leaves found;
    later.findMatches("known@example.test", found);
    later.findMatches("unknown@example.test", found);
    later.findMatches("known@other.test", found);
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0]->getFullAddressAsPtr(), table.getRef(found[0]->getFullAddressAsPtr()));
    EXPECT_EQ(found[1]->getNameAsPtr()->getIndex(), KxIndexedString::DeepCopy);
    EXPECT_EQ(found[2]->getFullAddressAsPtr()->getIndex(), KxIndexedString::DeepCopy);
    EXPECT_EQ(found[2]->getNameAsPtr(), found[0]->getNameAsPtr());
  }
}

// A table that its owner locks while a tree over it is filled.
TEST_F(FrozenTree, treeWhoseTableIsLockedWhileItIsFilledIsFilledOn) {
  Texts patterns;
  for (int number = 0; number != 40; ++number) {
    patterns.push_back("user" + std::to_string(number) + "@example.test");
    patterns.push_back("*@d" + std::to_string(number) + ".test");
  }
  const auto middle = patterns.begin() + 37;
  add({patterns.begin(), middle});
  table.lock();
  add({middle, patterns.end()});
  for (int frozen = 0; frozen != 2; ++frozen) {
    for (const std::string& pattern : patterns) {
      EXPECT_THAT(matches(pattern.front() == '*' ? "x" + pattern.substr(1) : pattern), ElementsAre(pattern));
      EXPECT_EQ(tree.addAddressPattern(pattern.c_str(), 16, nullptr, nullptr), frozen == 0) << pattern;
    }
    freeze();
  }
}

// Callers may lock a level. Then it finds only texts that its table knows, and a walk tells which.
TEST_F(FrozenTree, levelThatWasLockedByHandRejectsWhatItsTableLacks) {
  add({"known@example.test"});
  freeze();
  KxWildcardRootNode later(&table);
  add({"known@example.test"}, later);
  later.lock();
  EXPECT_TRUE(later.addAddressPattern("known@unknown", 1, nullptr, nullptr));
  EXPECT_TRUE(later.addAddressPattern("known@unknown", 2, nullptr, nullptr));  // not found again
  EXPECT_THAT(matches(later, "known@unknown"), IsEmpty());
  freeze();
  EXPECT_THAT(matches(later, "known@example.test"), ElementsAre("known@example.test"));
}

TEST_F(FrozenTree, handleOfAnotherTableIsComparedByItsRank) {
  add({"a@test", "b@test"});
  KxStringtable other;
  for (const char* text : {"x", "y", "z"}) {
    other.getStringtableRef(text);
  }
  freeze();
  KxWildcardRootNode later(&table);
  add({"a@test"}, later);
  KxWildcardNode* level = later._findMatchingChild(*table.getRef("test"));
  ASSERT_NE(level, nullptr);
  // The rank of "y" is that of an entry of the table.
  const KxIndexedString* foreign = other.getRef("y");
  const KxIndexedString* same = table._findInStringtable(foreign);
  ASSERT_NE(same, nullptr);
  EXPECT_TRUE(level->_addOrModifyLeaf(foreign, foreign, 1, nullptr, nullptr));
  EXPECT_EQ(level->_findMatchingLeafNode(*foreign, true), level->_findMatchingLeafNode(*same, true));
  EXPECT_FALSE(level->_addOrModifyLeaf(foreign, foreign, 2, nullptr, nullptr));
}

TEST_F(FrozenTree, patternAfterTheFreezeIsFoundAsAWalkFindsIt) {
  add({"known@example.test", "other@known.test", "*@*.example.test"});
  freeze();
  EXPECT_TRUE(tree.addAddressPattern("other@example.test", 1, nullptr, nullptr));    // known texts
  EXPECT_TRUE(tree.addAddressPattern("unknown@example.test", 1, nullptr, nullptr));  // stored out of reach
  EXPECT_TRUE(tree.addAddressPattern("*@*.known.test", 1, nullptr, nullptr));
  EXPECT_FALSE(tree.addAddressPattern("known@example.test", 16, nullptr, nullptr));  // frozen
  EXPECT_THAT(matches("other@example.test"), ElementsAre("other@example.test"));
  EXPECT_THAT(matches("unknown@example.test"), IsEmpty());
  EXPECT_THAT(matches("a@b.known.test"), ElementsAre("*@*.known.test"));
  EXPECT_THAT(matches("known@example.test"), ElementsAre("known@example.test"));
  freeze();
  EXPECT_THAT(matches("unknown@example.test"), IsEmpty());
}

// The index alone answers without memory, a walk does not.
TEST_F(FrozenTree, patternAfterTheFreezeTakesTheIndexFromTheAddressesThatItConcernsOnly) {
  add({"known@example.test", "other@known.test", "*@*.example.test", "known@example", "known@*"});
  freeze();
  struct Case {
    const char* pattern;
    std::vector<std::string> walked;
  };
  const Case cases[] = {
      {"other@example.test", {"other@example.test", "x@EXAMPLE.test"}},
      {"*@*.known.test", {"a@b.known.test", "a@c.b.known.test"}},
      {"known@a.*.known", {"known@b.known"}},
      {"unknown@example", {"unknown@example"}},
      {"user@test", {"a@test"}},
  };
  Leaves out;
  out.reserve(16);
  const auto allocations = [&](const std::string& address) {
    out.clear();
    const AllocationCount count;
    tree.findMatches(address.c_str(), out);
    return count.allocations();
  };
  for (const Case& one : cases) {
    for (const std::string& address : one.walked) {
      EXPECT_EQ(allocations(address), 0u) << address;
    }
    EXPECT_TRUE(tree.addAddressPattern(one.pattern, 1, nullptr, nullptr));
    for (const std::string& address : one.walked) {
      EXPECT_NE(allocations(address), 0u) << address;
    }
  }
  for (const char* address : {"known@a.example.test", "other@known.test", "known@a.test", "x@known", "x@y"}) {
    EXPECT_EQ(allocations(address), 0u) << address;
  }
  EXPECT_THAT(matches("known@a.example.test"), ElementsAre("*@*.example.test", "known@*"));
  EXPECT_THAT(matches("a@c.b.known.test"), ElementsAre("*@*.known.test"));
  // Refused, and so nothing changes.
  EXPECT_FALSE(tree.addAddressPattern("other@known.test", 16, nullptr, nullptr));
  EXPECT_EQ(allocations("other@known.test"), 0u);
  // Concerns every address.
  EXPECT_TRUE(tree.addAddressPattern("other@*", 1, nullptr, nullptr));
  EXPECT_THAT(matches("other@y"), ElementsAre("other@*"));
}

TEST_F(FrozenTree, thousandsOfPatternsAfterTheFreezeAreFound) {
  Texts patterns;
  for (int number = 0; number != 3000; ++number) {
    patterns.push_back("user@d" + std::to_string(number) + ".test");
  }
  add(patterns);
  freeze();
  const std::string longText(100, 'l');
  for (int number = 0; number != 3000; ++number) {
    const std::string domain = "d" + std::to_string(number) + ".test";
    EXPECT_TRUE(tree.addAddressPattern((number % 2 == 0 ? "*@" + domain : "*@*." + domain).c_str(), 1, nullptr, nullptr));
  }
  for (int number = 0; number != 3000; ++number) {
    const std::string domain = "d" + std::to_string(number) + ".test";
    if (number % 2 == 0) {
      EXPECT_THAT(matches("user@" + domain), ElementsAre("user@" + domain, "*@" + domain));
      EXPECT_THAT(matches("user@a." + domain), IsEmpty());
    } else {
      EXPECT_THAT(matches("user@" + domain), ElementsAre("user@" + domain));
      EXPECT_THAT(matches("user@" + longText + "." + domain), ElementsAre("*@*." + domain));
    }
  }
}

TEST_F(FrozenTree, refusedPatternAfterTheFreezeChangesNothing) {
  add({"known@example.test"});
  freeze();
  EXPECT_FALSE(tree.addAddressPattern("known@example.test", 16, "note", nullptr));
  EXPECT_THAT(matches("known@example.test"), ElementsAre("known@example.test"));
}

TEST_F(FrozenTree, patternAtAnInnerLevelAfterTheFreezeIsFound) {
  add({"a@b.test", "c@test", "*@*.d.test"});
  freeze();
  const KxIndexedString* label = table.getRef("test");
  KxWildcardNode* inner = tree._findMatchingChild(*label);
  ASSERT_NE(inner, nullptr);
  // An inner level takes the top label unseen.
  EXPECT_TRUE(inner->addAddressPattern("c@b.test", 1, nullptr, nullptr));
  EXPECT_THAT(matches("c@b.test"), ElementsAre("c@b.test"));
  EXPECT_THAT(matches(*inner, "a@b.other"), ElementsAre("a@b.test"));
}

TEST_F(FrozenTree, leavesAndLevelsThatWereAddedByHandAreFoundAndTwiceIfTheyAreTwice) {
  for (const bool before : {true, false}) {
    KxStringtable ownTable;
    KxWildcardRootNode handmade(&ownTable);
    add({"user@test", "*@test"}, handmade);
    KxWildcardNode* level = handmade._findMatchingChild(*ownTable.getStringtableRef("test"));
    ASSERT_NE(level, nullptr);
    if (!before) {
      freeze();
    }
    EXPECT_TRUE(level->_addToLeafVector(new KxListedEmailAddress(&ownTable, "second@test", "user")));
    auto* child = new KxWildcardNode(&ownTable, ownTable.getStringtableRef("user"));
    EXPECT_TRUE(child->_addOrModifyLeaf(ownTable.getStringtableRef("user"), ownTable.getStringtableRef("user@test"), 1,
                                        nullptr, nullptr));
    EXPECT_TRUE(level->_addToChildVector(child));
    if (before) {
      freeze();
    }
    EXPECT_EQ(matches(handmade, "user@test").size(), 2u);
    EXPECT_THAT(matches(handmade, "user@user.test"), ElementsAre("user@test"));
  }
}

// --- Filling ---

TEST_F(FrozenTree, bigLevelsAreFilledInAnyOrderAndFoundAtAnyTime) {
  constexpr unsigned int kMany = 20000;
  Texts patterns;
  for (unsigned int i = 0; i != kMany; ++i) {
    patterns.push_back("user" + std::to_string(i) + "@big.test");
    patterns.push_back("*@d" + std::to_string(i) + ".test");
  }
  std::shuffle(patterns.begin(), patterns.end(), std::mt19937(5));
  KxWildcardRootNode floating(nullptr);
  KxStringtable locked;
  locked.lock();
  KxWildcardRootNode later(&locked);
  KxWildcardNode* const roots[] = {&tree, &floating, &later};
  for (KxWildcardNode* root : roots) {
    for (std::size_t i = 0; i != patterns.size(); ++i) {
      ASSERT_TRUE(root->addAddressPattern(patterns[i].c_str(), 1, nullptr, nullptr));
      if (i % 5000 == 4999) {
        ASSERT_EQ(matches(*root, patterns[i / 2].front() == '*' ? "x" + patterns[i / 2].substr(1) : patterns[i / 2]),
                  Texts{patterns[i / 2]});
      }
    }
    // Again: each has its leaf already.
    for (const std::string& pattern : patterns) {
      ASSERT_TRUE(root->addAddressPattern(pattern.c_str(), 16, nullptr, nullptr));
    }
  }
  freeze();
  for (KxWildcardNode* root : roots) {
    for (const std::string& pattern : patterns) {
      Leaves found;
      root->findMatches(pattern.front() == '*' ? ("x" + pattern.substr(1)).c_str() : pattern.c_str(), found);
      ASSERT_EQ(textsOf(found), Texts{pattern});
      ASSERT_EQ(found[0]->getState(), 17u);
    }
  }
}

TEST_F(FrozenTree, domainsOfAllShapesKeepApartWhileFilling) {
  // Long ones, ones with inner wildcards, ones that end alike.
  const Texts patterns = {"a@x.test",   "b@X.TEST",     "*@*.x.test",
                          "c@x.*.test", "d@*.y.x.test", "e@" + std::string(40, 'l') + ".x.test",
                          "f@*",        "g@*.*",        "h@*x.test"};
  add(patterns);
  slow::Tree slowTree(nullptr);
  for (const std::string& pattern : patterns) {
    slowTree.add(pattern, 1);
  }
  freeze();
  for (const std::string& pattern : patterns) {
    for (const std::string& address :
         Texts{pattern, "a@x.test", "b@x.test", "q@z.x.test", "c@r.test", "d@a.y.x.test", "f@g"}) {
      Texts want;
      for (const slow::Leaf* leaf : slowTree.findMatches(address)) {
        want.push_back(leaf->fullAddress);
      }
      EXPECT_EQ(matches(address), want) << address;
    }
  }
}

// --- Memory ---

TEST_F(FrozenTree, lookUpOfAShortAddressTakesNoMemoryAndThatOfALongOneTakesOnePiece) {
  add({"user@example.test", "*@*.example.test", "user@*", "*@" + std::string(80, 'a') + ".test", "*@*"});
  freeze();
  Leaves out;
  out.reserve(16);
  for (const std::size_t size : {1, 30, 45, 46, 47, 200, 5000}) {
    const std::string address = "user@" + std::string(size, 'a') + ".example.test";
    const AllocationCount count;
    tree.findMatches(address.c_str(), out);
    EXPECT_EQ(count.allocations(), address.size() < 64 ? 0u : 1u) << address.size();
    EXPECT_EQ(out.size(), 3u);
    out.clear();
  }
}

TEST_F(FrozenTree, lookUpOfATextWithoutAnAtTakesNoMemoryUnlessItIsLong) {
  add({"*@*", "user@*", "a.b@*"});
  freeze();
  Leaves out;
  out.reserve(16);
  for (const std::string& text : Texts{"", "<>", "*", "user", "a.b", std::string(30, 'x'), std::string(100, 'x')}) {
    const AllocationCount count;
    tree.findMatches(text.c_str(), out);
    EXPECT_EQ(count.allocations(), text.size() <= 30 ? 0u : 1u) << text;
  }
}

TEST_F(FrozenTree, decisionTakesNoMemory) {
  std::vector<std::unique_ptr<KxWildcardRootNode>> owned;
  std::vector<KxWildcardNode*> trees;
  for (int i = 0; i != 16; ++i) {
    owned.push_back(std::make_unique<KxWildcardRootNode>(&table));
    trees.push_back(owned.back().get());
    // Candidates of the second tier in every other tree, and exceptions to them.
    const KxEmailBelongsTo kind = i % 2 == 0 ? 4 : 32;
    ASSERT_TRUE(trees.back()->addAddressPattern("*@*.tier.test", kind, nullptr, nullptr));
    ASSERT_TRUE(trees.back()->addAddressPattern("*@*.kept.test", i < 8 ? 8 : 0, nullptr, nullptr));
  }
  ASSERT_TRUE(trees[11]->addAddressPattern("*@*.example.test", 1, nullptr, nullptr));
  freeze();
  const auto allocations = [&trees](const std::string& address) {
    const AllocationCount count;
    KxWildcardEmail::matchEmailAddress(address.c_str(), trees, nullptr, nullptr, nullptr);
    return count.allocations();
  };
  for (const std::string& address :
       Texts{"user@other.test", "user@a.example.test", "user@a.tier.test", "user@a.kept.test", "user", "", "<>", "*"}) {
    EXPECT_EQ(allocations(address), 0u) << address;
  }
  EXPECT_EQ(allocations(std::string(70, 'x') + "@a.example.test"), 1u);  // for its lower case
}

// --- Decisions ---

// Memory that is not to be looked at: it holds other bytes for a while.
class Spoilt {
 public:
  Spoilt(void* begin, std::size_t size)
      : m_begin(static_cast<unsigned char*>(begin)), m_bytes(m_begin, m_begin + size) {
    std::fill_n(m_begin, size, static_cast<unsigned char>(0xA5));
  }
  ~Spoilt() { std::copy(m_bytes.begin(), m_bytes.end(), m_begin); }
  Spoilt(const Spoilt&) = delete;
  Spoilt& operator=(const Spoilt&) = delete;

 private:
  unsigned char* m_begin;
  std::vector<unsigned char> m_bytes;
};

struct Decided {
  unsigned int code;
  unsigned int tree;
  std::string name;
  KxEmailBelongsTo kind;

  friend bool operator==(const Decided& one, const Decided& other) {
    return one.code == other.code && one.tree == other.tree && one.name == other.name && one.kind == other.kind;
  }
  friend std::ostream& operator<<(std::ostream& out, const Decided& decided) {
    return out << decided.code << " by tree " << decided.tree << ": " << decided.name << " of kind " << decided.kind;
  }
};

Decided decided(const std::string& address, std::vector<KxWildcardNode*> trees) {
  KxMatchResult result = {99, 99, "unset", 99};
  result.code =
      KxWildcardEmail::matchEmailAddress(address.c_str(), trees, &result.treeIndex, &result.name, &result.belongsTo);
  return {result.code, result.treeIndex, result.name != nullptr ? result.name : "", result.belongsTo};
}

Decided decidedInBatch(const std::string& address, std::vector<KxWildcardNode*> trees) {
  const char* const addresses[] = {"nobody@nowhere.invalid", address.c_str()};
  KxMatchResult results[2];
  KxWildcardEmail::matchEmailAddressBatch(addresses, 2, trees, results);
  return {results[1].code, results[1].treeIndex, results[1].name != nullptr ? results[1].name : "", results[1].belongsTo};
}

TEST_F(FrozenTree, decisionLooksAtNoLeaf) {
  KxWildcardRootNode later(&table);
  ASSERT_TRUE(tree.addAddressPattern("*@*.example.test", 4, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("user@*", 8, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("*@*", 17, nullptr, nullptr));
  ASSERT_TRUE(later.addAddressPattern("user@a.example.test", 2, nullptr, nullptr));
  ASSERT_TRUE(later.addAddressPattern("*@a.example.test", 1, nullptr, nullptr));
  ASSERT_TRUE(later.addAddressPattern("user@*.example.test", 1, nullptr, nullptr));
  freeze();
  Leaves leaves;
  tree.findMatches("user@a.example.test", leaves);
  later.findMatches("user@a.example.test", leaves);
  ASSERT_EQ(leaves.size(), 6u);
  std::vector<std::unique_ptr<Spoilt>> spoilt;
  for (KxListedEmailAddress* leaf : leaves) {
    spoilt.push_back(std::make_unique<Spoilt>(leaf, sizeof *leaf));
  }
  const Decided first = decided("user@a.example.test", {&tree, &later});
  const Decided second = decided("user@b.example.test", {&tree});
  const Decided inBatch = decidedInBatch("user@a.example.test", {&tree, &later});
  spoilt.clear();
  EXPECT_EQ(first, (Decided{130, 1, "user@a.example.test", 2}));
  EXPECT_EQ(second, (Decided{2, 0, "*@*.example.test", 4}));
  EXPECT_EQ(inBatch, first);
}

TEST_F(FrozenTree, leafThatMissedTheFreezeIsAskedForItsKind) {
  KxListedEmailAddress other(nullptr, "x@y.test", "x");
  ASSERT_TRUE(tree.addAddressPattern("user@example.test", 0, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("*@example.test", 0, nullptr, nullptr));
  Leaves leaves;
  tree.findMatches("user@example.test", leaves);
  for (const KxListedEmailAddress* leaf : leaves) {
    KxWildcardEmail::_lockOnInit.replace(leaf, &other);
  }
  freeze();
  EXPECT_EQ(decided("user@example.test", {&tree}), (Decided{0, 0, "", 0}));
  ASSERT_TRUE(leaves.at(1)->addMembership(2));
  EXPECT_EQ(decided("user@example.test", {&tree}), (Decided{2, 0, "*@example.test", 2}));
  ASSERT_TRUE(leaves.at(0)->addMembership(1));
  EXPECT_EQ(decided("user@example.test", {&tree}), (Decided{129, 0, "user@example.test", 1}));
}

TEST_F(FrozenTree, weightIsThatOfThePatternsTextWhereverItStands) {
  // Handles may say another text than the place; labels left of a "*" count.
  const KxIndexedString text("*@x.example.test");
  const KxIndexedString name("user");
  KxWildcardNode::LabelStack labels;
  const KxIndexedString label("test");
  labels.push(&label);
  ASSERT_TRUE(tree.addAddressPattern(&text, &name, labels, 1, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("*@test", 2, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("other@*.test", 1, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("*@b.c.*.d.test", 2, nullptr, nullptr));
  freeze();
  EXPECT_EQ(decided("user@test", {&tree}), (Decided{129, 0, "*@x.example.test", 1}));
  EXPECT_EQ(decided("other@a.d.test", {&tree}), (Decided{129, 0, "other@*.test", 1}));
  EXPECT_EQ(decided("any@a.d.test", {&tree}), (Decided{2, 0, "*@b.c.*.d.test", 2}));
}

// --- Many at a time ---

TEST_F(FrozenTree, batchAnswersAsOneByOneCallsDo) {
  Texts patterns;
  for (int i = 0; i != 500; ++i) {
    patterns.push_back("user" + std::to_string(i) + "@d" + std::to_string(i % 50) + ".test");
    patterns.push_back("*@*.d" + std::to_string(i % 70) + ".test");
  }
  add(patterns);
  freeze();
  Texts texts;
  for (int i = 0; i != 1000; ++i) {
    texts.push_back("user" + std::to_string(i) + "@" + (i % 3 == 0 ? "a.d" : "d") + std::to_string(i % 80) + ".test");
    texts.push_back(i % 2 == 0 ? "bare" + std::to_string(i) : std::string(70, 'x') + "@y.d1.test");
  }
  std::vector<const char*> addresses = {nullptr};
  for (const std::string& text : texts) {
    addresses.push_back(text.c_str());
  }
  for (const std::size_t count :
       {std::size_t{0}, std::size_t{1}, std::size_t{23}, std::size_t{24}, std::size_t{25}, addresses.size()}) {
    Leaves matches(3);
    std::vector<std::size_t> ends(3);
    KxWildcardEmail::findMatchesBatch(tree, addresses.data(), count, matches, ends);
    ASSERT_EQ(ends.size(), count);
    Leaves want;
    for (std::size_t i = 0; i != count; ++i) {
      tree.findMatches(addresses[i], want);
      ASSERT_EQ(ends[i], want.size());
    }
    EXPECT_EQ(matches, want);
  }
}

TEST_F(FrozenTree, batchOfDecisionsIsThatOfSingleOnes) {
  KxWildcardRootNode second(&table);
  ASSERT_TRUE(tree.addAddressPattern("*@*.one.test", 4, nullptr, nullptr));
  ASSERT_TRUE(tree.addAddressPattern("user@a.one.test", 1, nullptr, nullptr));
  ASSERT_TRUE(second.addAddressPattern("*@*", 2, nullptr, nullptr));
  ASSERT_TRUE(second.addAddressPattern("*@*.one.test", 8, nullptr, nullptr));
  freeze();
  std::vector<KxWildcardNode*> trees = {nullptr, &tree, &second};
  const char* const texts[] = {"user@a.one.test", "other@a.one.test", "user@two.test", "bare", nullptr, ""};
  std::vector<const char*> addresses;
  for (int i = 0; i != 300; ++i) {
    addresses.push_back(texts[i % 6]);
  }
  std::vector<KxMatchResult> results(addresses.size());
  KxWildcardEmail::matchEmailAddressBatch(addresses.data(), addresses.size(), trees, results.data());
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    KxMatchResult want = {};
    want.code = KxWildcardEmail::matchEmailAddress(addresses[i], trees, &want.treeIndex, &want.name, &want.belongsTo);
    EXPECT_EQ(results[i].code, want.code) << i;
    EXPECT_EQ(results[i].treeIndex, want.treeIndex) << i;
    EXPECT_EQ(results[i].name, want.name) << i;
    EXPECT_EQ(results[i].belongsTo, want.belongsTo) << i;
  }
}

// Up to eight neighbours share what tells which of them has something; a big one among small ones does not.
TEST_F(FrozenTree, treesThatWereFrozenTogetherAnswerInAnyOrderAndCompany) {
  constexpr std::size_t kTrees = 22;
  constexpr std::size_t kBig = 5;
  std::mt19937 random(7);
  const auto upTo = [&random](std::size_t highest) { return random() % (highest + 1); };
  const auto domain = [&] {
    std::string text = "test";
    for (std::size_t labels = upTo(8); labels != 0; --labels) {
      text = std::string(1, static_cast<char>('a' + upTo(2))) + "." + text;
    }
    return text;
  };
  const auto name = [&] { return "user" + std::to_string(upTo(20)); };
  std::vector<std::unique_ptr<KxWildcardNode>> frozen(kTrees);
  std::vector<std::unique_ptr<KxWildcardNode>> walked(kTrees);
  const auto addTo = [&](std::size_t number, const std::string& pattern) {
    const KxEmailBelongsTo kind = KxEmailBelongsTo{1} << upTo(5);
    frozen[number]->addAddressPattern(pattern.c_str(), kind, nullptr, nullptr);
    walked[number]->addAddressPattern(pattern.c_str(), kind, nullptr, nullptr);
  };
  const auto make = [&](std::size_t number) {
    frozen[number] = std::make_unique<KxWildcardRootNode>(&table);
    walked[number] = std::make_unique<KxWildcardRootNode>(nullptr);
    for (std::size_t patterns = number == kBig ? 20000 : upTo(number < 12 ? 20 : 300); patterns != 0; --patterns) {
      const std::string any = upTo(2) == 0 ? "*" : name();
      const std::string at = upTo(200) == 0 ? "*" : upTo(1) == 0 ? "*." + domain() : domain();
      addTo(number, (number == kBig ? name() + std::to_string(patterns) : any) + "@" + at);
    }
  };
  const auto compare = [&] {
    for (int i = 0; i != 2000; ++i) {
      std::vector<KxWildcardNode*> trees;
      std::vector<KxWildcardNode*> twins;
      const bool inOrder = upTo(1) == 0;
      for (std::size_t next = inOrder ? 0 : upTo(kTrees - 1), left = upTo(24); left != 0; --left) {
        trees.push_back(frozen[next].get());
        twins.push_back(walked[next].get());
        next = inOrder ? (next + 1) % kTrees : upTo(kTrees - 1);
      }
      const std::string address = name() + "@" + domain();
      const Decided want = decided(address, twins);
      ASSERT_EQ(decided(address, trees), want) << address;
      ASSERT_EQ(decidedInBatch(address, trees), want) << address;
      for (std::size_t one = 0; one != trees.size(); ++one) {
        ASSERT_EQ(matches(*trees[one], address), matches(*twins[one], address)) << address;
      }
    }
  };
  for (std::size_t number = 0; number != kTrees; ++number) {
    make(number);
    if (number == 11 || number == 18) {
      freeze();
    }
  }
  freeze();
  compare();

  // Some leave the company: for others at the same places, for a walk, or for a walk of some addresses.
  for (const std::size_t number : {1u, 8u, 13u}) {
    make(number);
  }
  compare();
  freeze();
  addTo(2, "user1@test");
  addTo(15, "user2@*");
  compare();
}

TEST_F(FrozenTree, treesThatAreNotFrozenAnswerBatchesToo) {
  add({"user@example.test"});
  const char* const addresses[] = {"user@example.test", "x@y", "USER@example.test"};
  Leaves matches;
  std::vector<std::size_t> ends;
  KxWildcardEmail::findMatchesBatch(tree, addresses, 3, matches, ends);
  EXPECT_THAT(ends, ElementsAre(1, 1, 2));
}

}  // namespace
