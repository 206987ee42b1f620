#include "KxWildcardNode.h"

#include <pthread.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "KxWildcardEmail.h"
#include "VirtualSlots.h"
#include "scripted/Platform.h"

namespace {

using scripted::platform;
using scripted::trace;
using testing::ElementsAre;
using testing::IsEmpty;
using LabelStack = KxWildcardNode::LabelStack;
using Texts = std::vector<std::string>;

constexpr unsigned int kEntry = 0xFFFFFFFDu;
const char* const kNoText = nullptr;
const KxIndexedString* const kNoHandle = nullptr;

std::vector<KxListedEmailAddress*> leavesFor(KxWildcardNode& tree, const std::string& address) {
  std::vector<KxListedEmailAddress*> found;
  tree.findMatches(address.c_str(), found);
  return found;
}

Texts matches(KxWildcardNode& tree, const std::string& address) {
  Texts texts;
  for (const KxListedEmailAddress* leaf : leavesFor(tree, address)) {
    texts.emplace_back(leaf->getFullAddressAsStr());
  }
  return texts;
}

bool add(KxWildcardNode& tree, const char* pattern, KxEmailBelongsTo kind = 1, const char* annotation = nullptr,
         std::string* owner = nullptr) {
  return tree.addAddressPattern(pattern, kind, annotation, owner);
}

class WildcardNode : public scripted::PlatformTest {
 protected:
  // Freezes `tree` and all else that is queued.
  static void freeze() { KxWildcardEmail::initScanTimeMode(); }

  KxStringtable table;
  KxWildcardRootNode tree{&table};
  KxWildcardRootNode floating{nullptr};
};

// --- Shape ---

TEST_F(WildcardNode, virtualOperationsAreInOrder) {
  using Node = KxWildcardNode;
  using Add = bool (Node::*)(const KxIndexedString*, const KxIndexedString*, LabelStack&, KxEmailBelongsTo, const char*,
                             std::string*);
  EXPECT_EQ(slotOf(&Node::lock), 0u);
  EXPECT_EQ(slotOf(&Node::isLocked), 1u);
  EXPECT_EQ(slotOf(&Node::_lock), 2u);
  // The destructor takes two.
  EXPECT_EQ(slotOf(static_cast<Add>(&Node::addAddressPattern)), 5u);
  EXPECT_EQ(slotOf(&Node::_findMatchingChild), 6u);
  EXPECT_EQ(slotOf(&Node::_matchWildcard), 7u);
  EXPECT_EQ(slotOf(&Node::_findMatchingLeafNode), 8u);
  EXPECT_EQ(slotOf(&Node::_matchLeafWildcard), 9u);
  EXPECT_EQ(slotOf(&Node::_matchesThisNode), 10u);
  EXPECT_EQ(slotOf(&Node::_addToLeafVector), 11u);
  EXPECT_EQ(slotOf(&Node::_addToChildVector), 12u);
  EXPECT_EQ(slotOf(&Node::_addOrModifyLeaf), 13u);
  EXPECT_TRUE(std::has_virtual_destructor<Node>::value);
}

TEST_F(WildcardNode, lockableBaseComesBeforeTheNamedOne) {
  EXPECT_EQ(baseOffset<KxLockableClass>(tree), 0u);
  EXPECT_EQ(baseOffset<KxIndexedStringNamedClass>(tree), sizeof(KxLockableClass));
}

TEST_F(WildcardNode, namesOfTheThreeKinds) {
  const KxIndexedString label("label");
  const KxWildcardNode node(&table, &label);
  const KxWildcardedWildcardNode wildcard(&table);
  EXPECT_EQ(node.getNameAsPtr(), table.getRef("label"));
  EXPECT_EQ(wildcard.getNameAsPtr(), table.getRef("*"));
  EXPECT_EQ(tree.getNameAsPtr(), table.getRef(""));
  EXPECT_STREQ(floating.getNameAsStr(), "");
}

// --- What each kind of level does, one operation at a time ---

class LevelOperations : public WildcardNode {
 protected:
  LevelOperations() {
    add(tree, "user@test");
    add(tree, "*@test");
    add(tree, "user@*.test");
    add(tree, "*@*.test");
    add(tree, "user@example.test");
    level = tree._findMatchingChild(KxIndexedString("test"));
  }

  const KxIndexedString user{"user"};
  const KxIndexedString nobody{"nobody"};
  const KxIndexedString example{"example"};
  KxWildcardNode* level = nullptr;
};

TEST_F(LevelOperations, ordinaryLevelTakesOneLabelWhateverItIs) {
  LabelStack stack;
  const KxIndexedString* consumed = &user;
  EXPECT_FALSE(level->_matchesThisNode(stack, consumed));
  EXPECT_EQ(consumed, nullptr);
  stack.push(&nobody);
  stack.push(&user);
  EXPECT_TRUE(level->_matchesThisNode(stack, consumed));
  EXPECT_EQ(consumed, &user);
  EXPECT_EQ(stack.size(), 1u);
}

TEST_F(LevelOperations, wildcardLevelAndRootTakeNone) {
  KxWildcardedWildcardNode wildcard(&table);
  for (KxWildcardNode* node : {static_cast<KxWildcardNode*>(&wildcard), static_cast<KxWildcardNode*>(&tree)}) {
    LabelStack stack;
    stack.push(&nobody);
    const KxIndexedString* consumed = &user;
    EXPECT_TRUE(node->_matchesThisNode(stack, consumed));
    EXPECT_EQ(consumed, nullptr);
    EXPECT_EQ(stack.size(), 1u);
    stack.pop();
    EXPECT_TRUE(node->_matchesThisNode(stack, consumed));
  }
}

TEST_F(LevelOperations, childrenAreFoundByLabel) {
  ASSERT_NE(level, nullptr);
  EXPECT_STREQ(level->getNameAsStr(), "test");
  EXPECT_NE(level->_findMatchingChild(example), nullptr);
  EXPECT_EQ(level->_findMatchingChild(nobody), nullptr);
  EXPECT_EQ(level->_findMatchingChild(KxStringtable::_theWildcardIndexedString), nullptr);
  KxWildcardedWildcardNode wildcard(&table);
  KxWildcardNode& base = wildcard;
  const KxIndexedString label("example");
  base._addToChildVector(new KxWildcardNode(&table, &label));
  EXPECT_EQ(base._findMatchingChild(label), nullptr);
}

TEST_F(LevelOperations, wildcardChildIsThereOrNot) {
  EXPECT_TRUE(level->_matchWildcard(nobody));
  EXPECT_FALSE(tree._matchWildcard(nobody));
  EXPECT_FALSE(level->_findMatchingChild(example)->_matchWildcard(nobody));
  KxWildcardedWildcardNode wildcard(&table);
  EXPECT_FALSE(wildcard._matchWildcard(nobody));
}

TEST_F(LevelOperations, leavesAreFoundAtTheEndOnly) {
  EXPECT_NE(level->_findMatchingLeafNode(user, true), nullptr);
  EXPECT_EQ(level->_findMatchingLeafNode(user, false), nullptr);
  EXPECT_EQ(level->_findMatchingLeafNode(nobody, true), nullptr);
  EXPECT_TRUE(level->_matchLeafWildcard(nobody, true));
  EXPECT_FALSE(level->_matchLeafWildcard(nobody, false));
  KxWildcardNode* child = level->_findMatchingChild(example);
  EXPECT_FALSE(child->_matchLeafWildcard(user, true));
}

TEST_F(LevelOperations, wildcardLevelFindsLeavesEverywhere) {
  KxWildcardedWildcardNode wildcard(&table);
  for (const bool atEnd : {false, true}) {
    EXPECT_EQ(wildcard._findMatchingLeafNode(user, atEnd), nullptr);
    EXPECT_FALSE(wildcard._matchLeafWildcard(user, atEnd));
  }
  wildcard._addOrModifyLeaf(&user, &user, 1, nullptr, nullptr);
  wildcard._addOrModifyLeaf(&KxStringtable::_theWildcardIndexedString, &user, 1, nullptr, nullptr);
  for (const bool atEnd : {false, true}) {
    EXPECT_NE(wildcard._findMatchingLeafNode(user, atEnd), nullptr);
    EXPECT_EQ(wildcard._findMatchingLeafNode(nobody, atEnd), nullptr);
    EXPECT_TRUE(wildcard._matchLeafWildcard(user, atEnd));
  }
}

TEST_F(LevelOperations, frozenLevelRejectsKeysThatAreInNoTable) {
  const KxIndexedString* sample = table.getStringtableRef("sample");
  KxIndexedString copy("example");
  copy._setIndex(0xFFFFFFFFu);
  EXPECT_NE(level->_findMatchingChild(copy), nullptr);
  freeze();
  // The texts are there, yet these handles are not the table's.
  EXPECT_EQ(level->_findMatchingChild(example), nullptr);
  EXPECT_EQ(level->_findMatchingChild(copy), nullptr);
  EXPECT_EQ(level->_findMatchingLeafNode(user, true), nullptr);
  EXPECT_NE(level->_findMatchingChild(*table.getRef("example")), nullptr);
  EXPECT_NE(level->_findMatchingLeafNode(*table.getRef("user"), true), nullptr);
  EXPECT_EQ(level->_findMatchingChild(*sample), nullptr);
}

TEST_F(LevelOperations, lockedNodeOverAnOpenTableStillSearchesTexts) {
  level->lock();
  EXPECT_TRUE(level->isLocked());
  EXPECT_NE(level->_findMatchingChild(example), nullptr);
  EXPECT_NE(level->_findMatchingLeafNode(user, true), nullptr);
  EXPECT_FALSE(level->_findMatchingChild(example)->isLocked());
  EXPECT_FALSE(level->_findMatchingLeafNode(user, true)->isLocked());
}

TEST_F(LevelOperations, nodesWithKeysThatTheTableDoesNotKnowSearchTexts) {
  freeze();
  KxWildcardRootNode late(&table);
  add(late, "user@new");
  add(late, "new@test");
  freeze();
  EXPECT_TRUE(late.isLocked());
  EXPECT_EQ(matches(late, "user@new"), Texts{"user@new"});
  EXPECT_EQ(matches(late, "new@test"), Texts{"new@test"});
}

TEST_F(LevelOperations, nothingIsNotAdded) {
  EXPECT_FALSE(level->_addToChildVector(nullptr));
  EXPECT_FALSE(level->_addToLeafVector(nullptr));
}

// --- The sorted vectors ---

std::vector<KxListedEmailAddress*> leavesNamed(const Texts& names,
                                               std::vector<std::unique_ptr<KxListedEmailAddress>>& keep) {
  std::vector<KxListedEmailAddress*> leaves;
  for (const std::string& name : names) {
    keep.push_back(std::make_unique<KxListedEmailAddress>(nullptr, (name + "@x").c_str(), name.c_str()));
    leaves.push_back(keep.back().get());
  }
  return leaves;
}

struct PositionCase {
  Texts names;
  const char* item;
  unsigned int want;
};

TEST_F(WildcardNode, insertPositionIsAfterWhatIsNotGreater) {
  const PositionCase cases[] = {
      {{}, "a", 0},
      {{"b"}, "a", 0},
      {{"b"}, "b", 1},
      {{"b"}, "c", 1},
      {{"b", "d"}, "a", 0},
      {{"b", "d"}, "b", 1},
      {{"b", "d"}, "c", 1},
      {{"b", "d"}, "d", 2},
      {{"b", "d"}, "e", 2},
      {{"b", "b", "b", "d"}, "b", 3},
      {{"a", "b", "c", "d", "e"}, "c", 3},
      {{"a", "b", "c", "d", "e"}, "", 0},
  };
  for (const PositionCase& test : cases) {
    std::vector<std::unique_ptr<KxListedEmailAddress>> keep;
    const auto leaves = leavesNamed(test.names, keep);
    KxListedEmailAddress item(nullptr, "x@x", test.item);
    EXPECT_EQ(findInsertPosi(leaves, &item), test.want) << testing::PrintToString(test.names) << " + " << test.item;

    std::vector<KxWildcardNode*> nodes;
    for (const std::string& name : test.names) {
      const KxIndexedString label(name.c_str());
      nodes.push_back(new KxWildcardNode(nullptr, &label));
    }
    const KxIndexedString label(test.item);
    KxWildcardNode node(nullptr, &label);
    EXPECT_EQ(findInsertPosi(nodes, &node), test.want);
    for (KxWildcardNode* made : nodes) {
      delete made;
    }
  }
}

TEST_F(WildcardNode, missingNameCountsAsEmptyInTheVectors) {
  std::vector<std::unique_ptr<KxListedEmailAddress>> keep;
  const auto leaves = leavesNamed({"", "a"}, keep);
  KxListedEmailAddress nameless(nullptr, "x@x", kNoText);
  EXPECT_EQ(findInsertPosi(leaves, &nameless), 1u);
}

TEST_F(WildcardNode, everySizeOfVectorIsSearchedRight) {
  Texts names;
  for (char letter = 'b'; letter <= 'z'; letter = static_cast<char>(letter + 2)) {
    std::vector<std::unique_ptr<KxListedEmailAddress>> keep;
    const auto leaves = leavesNamed(names, keep);
    for (char wanted = 'a'; wanted <= 'z'; ++wanted) {
      const std::string text(1, wanted);
      const auto position = std::find(names.begin(), names.end(), text);
      KxListedEmailAddress* want =
          position != names.end() ? leaves[static_cast<std::size_t>(position - names.begin())] : nullptr;
      const KxIndexedString key(text.c_str());
      EXPECT_EQ((binarySearchInPointerVector<KxListedEmailAddress, KxIndexedString>(leaves, key)), want);
      EXPECT_EQ(findInsertPosi(leaves, std::make_unique<KxListedEmailAddress>(nullptr, "x@x", text.c_str()).get()),
                std::upper_bound(names.begin(), names.end(), text) - names.begin());
    }
    names.emplace_back(1, letter);
  }
}

TEST_F(WildcardNode, ofTwoNeighboursTheFirstEqualOneIsFound) {
  std::vector<std::unique_ptr<KxListedEmailAddress>> keep;
  const auto leaves = leavesNamed({"a", "a"}, keep);
  EXPECT_EQ(binarySearchInPointerVector(leaves, KxIndexedString("a")), leaves[0]);
  const auto three = leavesNamed({"a", "b", "b"}, keep);
  EXPECT_EQ(binarySearchInPointerVector(three, KxIndexedString("b")), three[1]);
  const std::vector<KxWildcardNode*> none;
  EXPECT_EQ(binarySearchInPointerVector(none, KxIndexedString("a")), nullptr);
}

// --- Adding ---

TEST_F(WildcardNode, patternIsStoredInLowerCase) {
  EXPECT_TRUE(add(tree, "User@Example.TEST"));
  EXPECT_EQ(matches(tree, "uSER@eXAMPLE.test"), Texts{"user@example.test"});
  EXPECT_EQ(leavesFor(tree, "user@example.test")[0]->getNameAsPtr(), table.getRef("user"));
  EXPECT_EQ(table._findInStringtable("User"), nullptr);
}

TEST_F(WildcardNode, letterCaseOfOtherAlphabetsCounts) {
  add(tree, "\xc3\x9c@b");
  EXPECT_THAT(matches(tree, "\xc3\xbc@b"), IsEmpty());
  EXPECT_EQ(matches(tree, "\xc3\x9c@b").size(), 1u);
}

TEST_F(WildcardNode, secondKindOfAPatternJoinsItsLeaf) {
  for (KxWildcardNode* either : {&tree, &floating}) {
    for (const char* pattern : {"user@example.test", "*@example.test"}) {
      EXPECT_TRUE(add(*either, pattern, 1));
      EXPECT_TRUE(add(*either, pattern, 16));
      EXPECT_FALSE(add(*either, pattern, 2));
      EXPECT_EQ(leavesFor(*either, pattern)[0]->getState(), 17u) << pattern;
    }
    EXPECT_EQ(matches(*either, "user@example.test").size(), 2u);
  }
}

TEST_F(WildcardNode, refusedKindLeavesTheLeaf) {
  EXPECT_FALSE(add(tree, "user@example.test", 64));
  EXPECT_FALSE(add(tree, "*@example.test", 3));
  for (const KxListedEmailAddress* leaf : leavesFor(tree, "user@example.test")) {
    EXPECT_EQ(leaf->getState(), 0u);
  }
  EXPECT_EQ(matches(tree, "user@example.test").size(), 2u);
  add(tree, "user@example.test", 1);
  EXPECT_FALSE(add(tree, "user@example.test", 2));
  EXPECT_EQ(leavesFor(tree, "user@example.test")[0]->getState(), 1u);
}

TEST_F(WildcardNode, labelsLeftOfAWildcardAreIgnored) {
  EXPECT_TRUE(add(tree, "user@a.*.example.test", 1));
  EXPECT_TRUE(add(tree, "user@*.example.test", 16));
  EXPECT_EQ(matches(tree, "user@b.example.test"), Texts{"user@a.*.example.test"});
  EXPECT_EQ(leavesFor(tree, "user@b.example.test")[0]->getState(), 17u);
  EXPECT_EQ(table._findInStringtable("a"), nullptr);
}

TEST_F(WildcardNode, wildcardAloneKeepsItsText) {
  add(tree, "*");
  EXPECT_EQ(matches(tree, "any@where.test"), Texts{"*"});
  add(tree, "*@*", 16);
  EXPECT_EQ(matches(tree, "any@where.test"), Texts{"*"});
  EXPECT_EQ(leavesFor(tree, "a@b")[0]->getState(), 17u);
}

TEST_F(WildcardNode, annotationIsTheLastOneGiven) {
  std::string owner = "owner";
  for (const char* pattern : {"user@test", "*@test"}) {
    add(tree, pattern, 1, "first");
    EXPECT_EQ(leavesFor(tree, pattern)[0]->getAnnotation(), "first") << pattern;
    add(tree, pattern, 16);
    EXPECT_EQ(leavesFor(tree, pattern)[0]->getAnnotation(), "first") << pattern;
    EXPECT_FALSE(add(tree, pattern, 2, "refused"));
    EXPECT_EQ(leavesFor(tree, pattern)[0]->getAnnotation(), "refused") << pattern;
    add(tree, pattern, 0, "");
    EXPECT_EQ(leavesFor(tree, pattern)[0]->getAnnotation(), "") << pattern;
  }
}

TEST_F(WildcardNode, ownersAreKeptAtWildcardLeavesOnly) {
  std::string first = "first";
  std::string second = "second";
  add(tree, "*@test", 1, nullptr, &first);
  add(tree, "*@test", 2, nullptr, &second);
  add(tree, "user@test", 1, nullptr, &first);
  const auto leaves = leavesFor(tree, "user@test");
  EXPECT_THAT(leaves[0]->getRelatedPolicyOwners(), IsEmpty());
  EXPECT_THAT(leaves[1]->getRelatedPolicyOwners(), ElementsAre(&first, &second));
  EXPECT_TRUE(leaves[0]->isOwnerless());
  EXPECT_TRUE(leaves[1]->isOwnerless());
  EXPECT_THAT(platform().log.lines(),
              ElementsAre(trace("KxListedEmailAddress::addRelatedPolicyOwner() pNewPolicyOwner=first"),
                          trace("KxListedEmailAddress::addRelatedPolicyOwner() pNewPolicyOwner=second")));
}

TEST_F(WildcardNode, nullPatternIsRefusedAndNullAddressMatchesNothing) {
  add(tree, "*");
  EXPECT_FALSE(add(tree, nullptr));
  std::vector<KxListedEmailAddress*> found;
  EXPECT_EQ(&tree.findMatches(nullptr, found), &found);
  EXPECT_THAT(found, IsEmpty());
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(WildcardNode, addingASplitPatternLeavesTheStackAsItWas) {
  const KxIndexedString full("user@example.test");
  const KxIndexedString name("user");
  const KxIndexedString example("example");
  const KxIndexedString test("test");
  LabelStack stack;
  stack.push(&example);
  stack.push(&test);
  EXPECT_TRUE(tree.addAddressPattern(&full, &name, stack, 1, nullptr, nullptr));
  ASSERT_EQ(stack.size(), 2u);
  EXPECT_EQ(stack.top(), &test);
  EXPECT_EQ(matches(tree, "user@example.test"), Texts{"user@example.test"});
}

TEST_F(WildcardNode, splitPatternWithoutTextsHasEmptyOnes) {
  const KxIndexedString test("test");
  LabelStack stack;
  stack.push(&test);
  EXPECT_TRUE(tree.addAddressPattern(kNoHandle, kNoHandle, stack, 1, nullptr, nullptr));
  EXPECT_EQ(matches(tree, "@test"), Texts{""});
}

TEST_F(WildcardNode, ordinaryLevelAsRootTakesTheTopLabelUnseen) {
  const KxIndexedString label("label");
  KxWildcardNode node(&table, &label);
  EXPECT_TRUE(add(node, "user@example.test"));
  EXPECT_EQ(matches(node, "user@example.other").size(), 1u);
  LabelStack empty;
  EXPECT_FALSE(node.addAddressPattern(&label, &label, empty, 1, nullptr, nullptr));
  std::vector<KxListedEmailAddress*> found;
  node.findMatches(&label, empty, found);
  EXPECT_THAT(found, IsEmpty());
}

TEST_F(WildcardNode, patternsThatEndAtTheRootAreFoundThere) {
  const KxIndexedString text("text");
  LabelStack empty;
  EXPECT_TRUE(tree.addAddressPattern(&text, &text, empty, 1, nullptr, nullptr));
  std::vector<KxListedEmailAddress*> found;
  tree.findMatches(&text, empty, found);
  EXPECT_EQ(found.size(), 1u);
  // A split text always has a label, so no address gets there.
  EXPECT_THAT(matches(tree, "text"), IsEmpty());
}

// A level that refuses what it is given.
class FullNode : public KxWildcardNode {
 public:
  explicit FullNode(KxStringtable* table) : KxWildcardNode(table, kNoHandle) {}
  bool _matchesThisNode(LabelStack& /*labels*/, const KxIndexedString*& consumed) override {
    consumed = nullptr;
    return true;
  }
  bool _addToLeafVector(KxListedEmailAddress* /*leaf*/) override { return false; }
  bool _addToChildVector(KxWildcardNode* /*child*/) override { return false; }
};

TEST_F(WildcardNode, refusedChildOrLeafIsDestroyedAndThePatternRefused) {
  FullNode node(&table);
  const KxIndexedString name("user");
  LabelStack empty;
  EXPECT_FALSE(add(node, "user@test"));
  EXPECT_FALSE(node.addAddressPattern(&name, &name, empty, 1, nullptr, nullptr));
  EXPECT_TRUE(node.addAddressPattern(&name, &KxStringtable::_theWildcardIndexedString, empty, 1, nullptr, nullptr));
}

// A level that takes its label or refuses it.
class Door : public KxWildcardNode {
 public:
  Door(KxStringtable* table, const KxIndexedString& label) : KxWildcardNode(table, &label) {}
  bool _matchesThisNode(LabelStack& labels, const KxIndexedString*& consumed) override {
    consumed = nullptr;
    return isOpen && KxWildcardNode::_matchesThisNode(labels, consumed);
  }
  bool isOpen = true;
};

TEST_F(WildcardNode, nothingIsFoundOrAddedBelowALevelThatRefusesItsLabel) {
  const KxIndexedString top("test");
  const KxIndexedString label("door");
  EXPECT_TRUE(add(tree, "user@*.test"));
  EXPECT_TRUE(add(tree, "*@*"));
  Door* door = new Door(&table, label);
  ASSERT_TRUE(tree._findMatchingChild(top)->_addToChildVector(door));
  EXPECT_TRUE(add(tree, "user@door.test"));
  EXPECT_TRUE(add(tree, "user@*.door.test"));
  EXPECT_THAT(matches(tree, "user@door.test"), ElementsAre("user@door.test", "user@*.test", "*@*"));
  EXPECT_THAT(matches(tree, "user@a.door.test"), ElementsAre("user@*.door.test", "user@*.test", "*@*"));
  door->isOpen = false;
  EXPECT_THAT(matches(tree, "user@door.test"), ElementsAre("user@*.test", "*@*"));
  EXPECT_THAT(matches(tree, "user@a.door.test"), ElementsAre("user@*.test", "*@*"));
  EXPECT_FALSE(add(tree, "other@door.test"));
  EXPECT_FALSE(add(tree, "other@b.door.test"));
  LabelStack labels;
  labels.push(&label);
  labels.push(&top);
  const KxIndexedString name("other");
  const KxIndexedString full("other@door.test");
  EXPECT_FALSE(tree.addAddressPattern(&full, &name, labels, 1, nullptr, nullptr));
  ASSERT_EQ(labels.size(), 2u);
  EXPECT_EQ(labels.top(), &top);
  door->isOpen = true;
  EXPECT_THAT(matches(tree, "other@door.test"), ElementsAre("*@*"));
  EXPECT_THAT(matches(tree, "other@b.door.test"), ElementsAre("*@*"));
}

// --- Matching ---

struct MatchCase {
  const char* label;
  Texts patterns;
  const char* address;
  Texts want;  // in order
};

const MatchCase kMatchCases[] = {
    {"empty tree", {}, "user@example.test", {}},
    {"exact", {"user@example.test"}, "USER@Example.Test", {"user@example.test"}},
    {"exact, not below", {"user@example.test"}, "user@a.example.test", {}},
    {"exact, not above", {"user@example.test"}, "user@test", {}},
    {"exact, other name", {"user@example.test"}, "users@example.test", {}},
    {"any name", {"*@example.test"}, "x@example.test", {"*@example.test"}},
    {"any name, empty", {"*@example.test"}, "@example.test", {"*@example.test"}},
    {"any name, not below", {"*@example.test"}, "x@a.example.test", {}},
    {"sub-domain", {"user@*.example.test"}, "user@a.example.test", {"user@*.example.test"}},
    {"deep sub-domain", {"user@*.example.test"}, "user@b.a.example.test", {"user@*.example.test"}},
    {"sub-domain, not the domain", {"user@*.example.test"}, "user@example.test", {}},
    {"sub-domain, other name", {"user@*.example.test"}, "other@a.example.test", {}},
    {"any name below", {"*@*.example.test"}, "x@a.example.test", {"*@*.example.test"}},
    {"any name below, not at", {"*@*.example.test"}, "x@example.test", {}},
    {"empty sub-domain", {"*@*.example.test"}, "x@.example.test", {"*@*.example.test"}},
    {"any domain", {"user@*"}, "user@b", {"user@*"}},
    {"any domain, deep", {"user@*"}, "user@a.b.c", {"user@*"}},
    {"any domain, empty", {"user@*"}, "user@", {"user@*"}},
    {"any domain, bare", {"user@*"}, "user", {"user@*"}},
    {"everything", {"*"}, "x@y.z", {"*"}},
    {"everything, bare", {"*"}, "bare", {"*"}},
    {"everything, empty", {"*"}, "", {"*"}},
    {"everything, itself", {"*@*"}, "*", {"*@*"}},
    {"bare pattern, bare text", {"example.test"}, "Example.Test", {"example.test"}},
    {"bare pattern, mail", {"example.test"}, "user@example.test", {}},
    {"star within a label", {"user@a*b"}, "user@axb", {}},
    {"star within a label, itself", {"user@a*b"}, "user@a*b", {"user@a*b"}},
    {"star within a name", {"us*@test"}, "user@test", {}},
    {"star within a name, itself", {"us*@test"}, "us*@test", {"us*@test"}},
    {"two stars", {"**@test"}, "user@test", {}},
    {"star asked for", {"*@test", "user@test"}, "*@test", {"*@test"}},
    {"domain star asked for", {"*@*.test", "*@a.test"}, "x@*.test", {"*@*.test"}},
    {"star labels only", {"user@*.*"}, "user@a", {"user@*.*"}},
    {"left of a star", {"user@a.*.test"}, "user@b.test", {"user@a.*.test"}},
    {"empty label", {"user@a..test"}, "user@a..test", {"user@a..test"}},
    {"empty label is a label", {"user@a.test"}, "user@a..test", {}},
    {"trailing dot", {"user@test."}, "user@test", {}},
    {"trailing dot, itself", {"user@test."}, "user@test.", {"user@test."}},
    {"second at", {"a@b@c"}, "a@b@c", {"a@b@c"}},
    {"most specific domain first",
     {"*@*", "user@*", "*@*.example.test", "user@*.example.test", "*@a.example.test", "user@a.example.test"},
     "user@a.example.test",
     {"user@a.example.test", "*@a.example.test", "user@*.example.test", "*@*.example.test", "user@*", "*@*"}},
    {"every level of wildcard",
     {"*@*.c", "*@*.b.c", "*@*", "user@*.b.c"},
     "user@a.b.c",
     {"user@*.b.c", "*@*.b.c", "*@*.c", "*@*"}},
};

TEST_F(WildcardNode, addressFindsEveryPatternThatContainsIt) {
  for (const MatchCase& test : kMatchCases) {
    KxStringtable ownTable;
    KxWildcardRootNode overTable(&ownTable);
    KxWildcardRootNode without(nullptr);
    for (const std::string& pattern : test.patterns) {
      EXPECT_TRUE(add(overTable, pattern.c_str()));
      EXPECT_TRUE(add(without, pattern.c_str()));
    }
    EXPECT_EQ(matches(overTable, test.address), test.want) << test.label;
    EXPECT_EQ(matches(without, test.address), test.want) << test.label << ", floating";
    const std::size_t texts = ownTable.size();
    freeze();
    EXPECT_EQ(matches(overTable, test.address), test.want) << test.label << ", frozen";
    EXPECT_EQ(ownTable.size(), texts);
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(WildcardNode, matchesAreAppended) {
  add(tree, "*");
  std::vector<KxListedEmailAddress*> found = {nullptr};
  EXPECT_EQ(&tree.findMatches("a@b", found), &found);
  tree.findMatches("a@b", found);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[0], nullptr);
  EXPECT_EQ(found[1], found[2]);
}

TEST_F(WildcardNode, searchingForASplitAddressLeavesTheStackAsItWas) {
  add(tree, "user@example.test");
  add(tree, "*@*.test");
  const KxIndexedString name("user");
  const KxIndexedString example("example");
  const KxIndexedString test("test");
  LabelStack stack;
  stack.push(&example);
  stack.push(&test);
  std::vector<KxListedEmailAddress*> found;
  tree.findMatches(&name, stack, found);
  EXPECT_EQ(found.size(), 2u);
  ASSERT_EQ(stack.size(), 2u);
  EXPECT_EQ(stack.top(), &test);
  found.clear();
  tree.findMatches(kNoHandle, stack, found);
  EXPECT_EQ(found.size(), 1u);
}

TEST_F(WildcardNode, completeSearchSaysSo) {
  std::vector<KxListedEmailAddress*> found;
  EXPECT_TRUE(tree.findAllMatches("a@b", found));
  EXPECT_TRUE(tree.findAllMatches(nullptr, found));
}

TEST_F(WildcardNode, longAddressesAndDeepDomainsWork) {
  const std::string name(5000, 'n');
  std::string domain = "top";
  for (int i = 0; i < 500; ++i) {
    domain.insert(0, std::string(i % 70 + 1u, 'd') + ".");
  }
  const std::string address = name + "@" + domain;
  add(tree, address.c_str());
  add(tree, ("*@*." + domain).c_str());
  add(tree, "*@*.top");
  EXPECT_EQ(matches(tree, address), (Texts{address, "*@*.top"}));
  EXPECT_EQ(matches(tree, name + "@deeper." + domain), (Texts{"*@*." + domain, "*@*.top"}));
  freeze();
  EXPECT_EQ(matches(tree, address), (Texts{address, "*@*.top"}));
}

// --- Frozen ---

TEST_F(WildcardNode, freezingLocksEveryNodeAndLeaf) {
  add(tree, "user@example.test");
  add(tree, "*@example.test");
  freeze();
  EXPECT_TRUE(tree.isLocked());
  EXPECT_TRUE(tree._findMatchingChild(*table.getRef("test"))->isLocked());
  for (const KxListedEmailAddress* leaf : leavesFor(tree, "user@example.test")) {
    EXPECT_TRUE(leaf->isLocked());
  }
}

TEST_F(WildcardNode, storedPatternIsRefusedAfterTheFreezeButAnnotated) {
  add(tree, "user@example.test");
  add(tree, "*@example.test");
  freeze();
  EXPECT_FALSE(add(tree, "user@example.test", 16, "note"));
  EXPECT_FALSE(add(tree, "*@example.test", 16, "note"));
  for (const KxListedEmailAddress* leaf : leavesFor(tree, "user@example.test")) {
    EXPECT_EQ(leaf->getState(), 1u);
    EXPECT_EQ(leaf->getAnnotation(), "note");
  }
}

TEST_F(WildcardNode, newPatternOfKnownTextsIsFoundAfterTheFreeze) {
  add(tree, "user@example.test");
  add(tree, "other@test");
  freeze();
  EXPECT_TRUE(add(tree, "other@example.test"));
  EXPECT_TRUE(add(tree, "*@test"));
  EXPECT_EQ(matches(tree, "other@example.test").size(), 1u);
  EXPECT_EQ(matches(tree, "x@test").size(), 1u);
  // The new leaf is open until the next freeze.
  EXPECT_TRUE(add(tree, "other@example.test", 16));
  freeze();
  EXPECT_FALSE(add(tree, "other@example.test", 0));
}

TEST_F(WildcardNode, newPatternOfAnUnknownTextIsStoredOutOfReachAfterTheFreeze) {
  add(tree, "user@example.test");
  freeze();
  const std::size_t queued = KxWildcardEmail::_lockOnInit.size();
  for (int time = 1; time <= 2; ++time) {
    EXPECT_TRUE(add(tree, "new@example.test"));
    EXPECT_TRUE(add(tree, "user@new.test"));
    EXPECT_TRUE(add(tree, "user@other.new"));
    EXPECT_FALSE(add(tree, "user@new.test", 64));
  }
  // A leaf; a node and a leaf; two nodes and a leaf; a node and a leaf: twice.
  EXPECT_EQ(KxWildcardEmail::_lockOnInit.size(), queued + 16);
  for (const char* address : {"new@example.test", "user@new.test", "user@other.new"}) {
    EXPECT_THAT(matches(tree, address), IsEmpty());
  }
  freeze();
  EXPECT_THAT(matches(tree, "new@example.test"), IsEmpty());
  EXPECT_EQ(matches(tree, "user@example.test").size(), 1u);
}

TEST_F(WildcardNode, treeMadeAfterTheFreezeIsFrozenByTheNext) {
  add(tree, "user@example.test");
  freeze();
  KxWildcardRootNode second(&table);
  EXPECT_TRUE(add(second, "user@example.test"));
  EXPECT_TRUE(add(second, "new@new.test"));
  EXPECT_EQ(matches(second, "new@new.test").size(), 1u);
  freeze();
  EXPECT_TRUE(second.isLocked());
  EXPECT_EQ(matches(second, "user@example.test").size(), 1u);
  EXPECT_EQ(matches(second, "new@new.test").size(), 1u);
}

TEST_F(WildcardNode, leavesOfABigLevelStaySortedThroughTheFreeze) {
  Texts names;
  for (int i = 0; i < 500; ++i) {
    names.push_back(std::to_string(i * 7919 % 500));
    add(tree, (names.back() + "@test").c_str());
    add(tree, ("user@" + names.back() + ".test").c_str());
  }
  for (const bool frozen : {false, true}) {
    if (frozen) {
      freeze();
    }
    for (const std::string& name : names) {
      EXPECT_EQ(matches(tree, name + "@test"), Texts{name + "@test"});
      EXPECT_EQ(matches(tree, "user@" + name + ".test"), Texts{"user@" + name + ".test"});
    }
    EXPECT_THAT(matches(tree, "500@test"), IsEmpty());
  }
}

TEST_F(WildcardNode, leafTextsAreTheTablesEntries) {
  add(tree, "user@example.test");
  const KxListedEmailAddress* leaf = leavesFor(tree, "user@example.test")[0];
  EXPECT_EQ(leaf->getFullAddressAsPtr(), table.getRef("user@example.test"));
  EXPECT_EQ(leaf->getFullAddress().getIndex(), kEntry);
  // The empty name of the root, two labels, the local part, the whole pattern.
  EXPECT_EQ(table.size(), 5u);
}

// Runs an action on a stack that a call for each of thousands of labels would overflow.
void runOnASmallStack(std::function<void()> action) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 512 * 1024), 0);
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &action), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST_F(WildcardNode, patternOfManyLabelsTakesNoDeepCalls) {
  std::string domain;
  for (int i = 0; i < 20000; ++i) {
    domain += "a.";
  }
  const std::string pattern = "user@" + domain + "test";
  const std::string dots = "user@" + std::string(65000, '.');
  for (KxStringtable* used : {&table, static_cast<KxStringtable*>(nullptr)}) {
    runOnASmallStack([&] {
      KxWildcardRootNode deep(used);
      for (const std::string& text : {pattern, dots, "*@" + domain + "test", std::string("user@*.a.test"),
                                      "*@*." + domain + "test", std::string("*")}) {
        EXPECT_TRUE(add(deep, text.c_str()));
      }
      freeze();
      EXPECT_THAT(matches(deep, pattern), ElementsAre(pattern, "*@" + domain + "test", "user@*.a.test", "*"));
      EXPECT_THAT(matches(deep, "user@b." + domain + "test"),
                  ElementsAre("*@*." + domain + "test", "user@*.a.test", "*"));
      EXPECT_THAT(matches(deep, dots), ElementsAre(dots, "*"));
    });
  }
}

}  // namespace
