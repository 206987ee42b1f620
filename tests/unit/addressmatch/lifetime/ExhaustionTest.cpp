// Every allocation of every operation fails once. A program of its own, since it replaces operator new.
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "FailingAllocations.h"
#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "scripted/Platform.h"

namespace {

using scripted::error;
using scripted::platform;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

// The patterns that were there before, and one that is added.
const char* const kPatterns[] = {"user@example.test", "*@example.test", "*@*.test", "user@other.test"};
const char* const kNewPatterns[] = {
    "new@example.test", "user@new.test", "user@a.b.new", "*@fresh.example.test", "*@*.fresh", "*", "bare",
    "user@x.*.fresh"};

// More labels than one block of the stack holds.
std::string deepDomain() {
  std::string domain = "deep";
  for (int i = 0; i < 200; ++i) {
    domain += ".deep";
  }
  return domain;
}

const std::string kNoMatch = "KxWildcardNode::findMatches: out of memory; no match is reported for ";
const std::string kNothingDecided = "KxWildcardEmail::matchEmailAddress: out of memory; nothing is decided for ";

enum class Over { Nothing, ATable, ALockedTable };

class Exhaustion : public scripted::PlatformTest, public testing::WithParamInterface<Over> {
 protected:
  static std::unique_ptr<KxStringtable> newTable() {
    if (GetParam() == Over::Nothing) {
      return nullptr;
    }
    auto made = std::make_unique<KxStringtable>();
    if (GetParam() == Over::ALockedTable) {
      made->getStringtableRef("user");
      made->getStringtableRef("fresh");
      made->lock();
    }
    return made;
  }

  Exhaustion() { table = renewTree(); }

  // Makes the tree anew, with the old patterns; the caller keeps the table as long as the tree.
  std::unique_ptr<KxStringtable> renewTree() {
    std::unique_ptr<KxStringtable> made = newTable();
    tree = std::make_unique<KxWildcardRootNode>(made.get());
    for (const char* pattern : kPatterns) {
      EXPECT_TRUE(tree->addAddressPattern(pattern, 1, "note", nullptr));
    }
    return made;
  }

  std::vector<std::string> matches(const std::string& address) {
    std::vector<KxListedEmailAddress*> found;
    std::vector<std::string> texts;
    for (const KxListedEmailAddress* leaf : tree->findMatches(address.c_str(), found)) {
      texts.push_back(std::string(leaf->getFullAddressAsStr()) + " " + std::to_string(leaf->getWeight()));
    }
    return texts;
  }

  void expectOldPatterns() {
    EXPECT_EQ(matches("user@example.test").front(), "user@example.test 5003");
    EXPECT_EQ(matches("x@example.test").front(), "*@example.test 4003");
    EXPECT_EQ(matches("user@other.test").front(), "user@other.test 5003");
    EXPECT_EQ(matches("x@x.test").front(), "*@*.test 2002");
  }

  std::unique_ptr<KxStringtable> table;
  std::unique_ptr<KxWildcardNode> tree;
};

TEST_P(Exhaustion, patternIsAddedWholeOrRefusedAndCanBeAddedAgain) {
  std::string owner = "owner";
  std::vector<std::string> patterns(std::begin(kNewPatterns), std::end(kNewPatterns));
  patterns.push_back("user@" + deepDomain());
  for (const std::string& pattern : patterns) {
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
      const std::unique_ptr<KxStringtable> ownTable = renewTree();
      bool added = false;
      failed = failsAt(allocation, [&] {
        added = tree->addAddressPattern(pattern.c_str(), 1, "a longer annotation than fits", &owner);
      });
      EXPECT_TRUE(failed || added) << pattern;
      if (added) {
        EXPECT_EQ(matches(pattern).front().substr(0, pattern.size()), pattern) << pattern << " " << allocation;
      }
      expectOldPatterns();
      EXPECT_TRUE(tree->addAddressPattern(pattern.c_str(), 0, nullptr, nullptr)) << pattern << " " << allocation;
      const auto want = matches(pattern);
      ASSERT_THAT(want, Not(IsEmpty())) << pattern << " " << allocation;
      EXPECT_EQ(want.front().substr(0, pattern.size()), pattern);
      KxWildcardEmail::initScanTimeMode();
      expectOldPatterns();
      EXPECT_EQ(matches(pattern), want);
      tree.reset();
    }
  }
}

TEST_P(Exhaustion, searchFindsEverythingOrNothingAndSaysSo) {
  tree->addAddressPattern(("user@" + deepDomain()).c_str(), 1, nullptr, nullptr);
  for (const std::string& address :
       {std::string("user@example.test"), std::string("unknown@unknown.test"), "user@" + deepDomain()}) {
    const auto want = matches(address);
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
      platform().log.clear();
      std::vector<KxListedEmailAddress*> found;
      bool complete = false;
      failed = failsAt(allocation, [&] { complete = tree->findAllMatches(address.c_str(), found); });
      if (complete) {
        EXPECT_EQ(found.size(), want.size());
        EXPECT_THAT(platform().log.lines(), IsEmpty());
      } else {
        EXPECT_THAT(found, IsEmpty());
        EXPECT_THAT(platform().log.lines(), ElementsAre(error(kNoMatch + address)));
      }
      EXPECT_TRUE(failed || complete);
      platform().log.clear();
      found.clear();
      failsAt(allocation, [&] { tree->findMatches(address.c_str(), found); });
      if (found.empty() && !want.empty()) {
        EXPECT_THAT(platform().log.lines(), ElementsAre(error(kNoMatch + address)));
      } else {
        EXPECT_EQ(found.size(), want.size());
      }
    }
    EXPECT_EQ(matches(address), want);
  }
}

TEST_P(Exhaustion, splitSearchFindsEverythingOrNothing) {
  const KxIndexedString name("user");
  const KxIndexedString example("example");
  const KxIndexedString test("test");
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    platform().log.clear();
    KxWildcardNode::LabelStack labels;
    labels.push(&example);
    labels.push(&test);
    std::vector<KxListedEmailAddress*> found;
    failed = failsAt(allocation, [&] { tree->findMatches(&name, labels, found); });
    EXPECT_EQ(found.size(), failed ? 0u : 3u);
    EXPECT_EQ(labels.size(), 2u);
    if (failed) {
      EXPECT_THAT(platform().log.lines(), ElementsAre(error(kNoMatch + "user")));
    }
  }
}

// The line names the address at which the search has stopped.
TEST_P(Exhaustion, batchFindsEverythingOrNothingAndNamesTheAddress) {
  const std::string deep = "user@" + deepDomain();
  tree->addAddressPattern(deep.c_str(), 1, nullptr, nullptr);
  const char* const addresses[] = {"user@example.test", deep.c_str(), "x@other.test"};
  bool named[3] = {};
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    platform().log.clear();
    std::vector<KxListedEmailAddress*> found(1);
    std::vector<std::size_t> ends(1);
    bool complete = false;
    failed = failsAt(allocation, [&] { complete = tree->findAllMatches(addresses, 3, found, ends); });
    EXPECT_EQ(complete, !failed);
    if (complete) {
      EXPECT_THAT(ends, ElementsAre(0u, 4u, 5u, 6u));
      continue;
    }
    EXPECT_EQ(found.size(), 1u);
    EXPECT_EQ(ends.size(), 1u);
    ASSERT_EQ(platform().log.lines().size(), 1u);
    for (std::size_t i = 0; i != 3; ++i) {
      named[i] = named[i] || platform().log.lines().front() == error(kNoMatch + addresses[i]);
    }
  }
  EXPECT_THAT(named, Each(true));
}

// A pattern or an address of very many labels, split. When memory runs out for a label that goes back on the stack, the
// stack lacks it, and the call must not pass for a success.
TEST_P(Exhaustion, splitPatternOfVeryManyLabelsIsAddedWholeOrRefused) {
  const std::string address = "user@" + deepDomain();
  const KxIndexedString fullAddress(address.c_str());
  const KxIndexedString name("user");
  int shortened = 0;
  for (const bool adds : {true, false}) {
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
      const std::unique_ptr<KxStringtable> ownTable = renewTree();
      if (!adds) {
        tree->addAddressPattern(address.c_str(), 1, nullptr, nullptr);
      }
      const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString(address.c_str()));
      KxWildcardNode::LabelStack labels;
      KxWildcardNode::parseAddress(nullptr, address.c_str(), scratch.get(), labels);
      KxStringtable::cleanupReference(KxWildcardNode::getEmailAddressName(labels));
      const std::size_t before = labels.size();
      bool done = false;
      std::vector<KxListedEmailAddress*> found;
      failed = failsAt(allocation, [&] {
        if (adds) {
          done = tree->addAddressPattern(&fullAddress, &name, labels, 1, nullptr, nullptr);
        } else {
          tree->findMatches(&name, labels, found);
          done = !found.empty();
        }
      });
      EXPECT_TRUE(failed || done) << allocation;
      EXPECT_TRUE(failed || labels.size() == before);
      if (labels.size() != before) {
        ++shortened;
        EXPECT_FALSE(done) << allocation;
      }
      if (done && adds) {
        EXPECT_EQ(matches(address).size(), 1u) << allocation;
      }
      KxWildcardEmail::cleanupDomainStack(&labels, nullptr);
      expectOldPatterns();
      EXPECT_TRUE(tree->addAddressPattern(address.c_str(), 0, nullptr, nullptr)) << allocation;
      EXPECT_EQ(matches(address).size(), 1u) << allocation;
      tree.reset();
    }
  }
  EXPECT_GE(shortened, 1) << "no label was left without memory for its way back";
}

TEST_P(Exhaustion, addressIsDecidedRightOrNotAtAll) {
  KxWildcardRootNode second(table.get());
  second.addAddressPattern("*@example.test", 8, nullptr, nullptr);
  KxWildcardRootNode third(table.get());
  third.addAddressPattern("user@example.test", 4, nullptr, nullptr);
  third.addAddressPattern("*@example.test", 2, nullptr, nullptr);
  std::vector<KxWildcardNode*> trees = {&second, &third, tree.get()};
  KxMatchExplanation want;
  ASSERT_EQ(KxWildcardEmail::explainEmailAddress("user@example.test", trees, want), 2u);
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    platform().log.clear();
    unsigned int position = 99;
    const char* name = "unset";
    KxEmailBelongsTo kind = 99;
    unsigned int code = 99;
    failed = failsAt(allocation, [&] {
      code = KxWildcardEmail::matchEmailAddress("user@example.test", trees, &position, &name, &kind);
    });
    if (failed) {
      EXPECT_EQ(code, 0u);
      EXPECT_EQ(position, 0u);
      EXPECT_EQ(name, nullptr);
      EXPECT_EQ(kind, 0u);
      EXPECT_THAT(platform().log.lines(), Contains(error(kNothingDecided + "user@example.test")));
    } else {
      EXPECT_EQ(code, 2u);
      EXPECT_EQ(position, 1u);
    }
  }
  failed = true;
  for (int allocation = 1; failed; ++allocation) {
    platform().log.clear();
    KxMatchExplanation explanation;
    unsigned int code = 99;
    failed = failsAt(allocation,
                     [&] { code = KxWildcardEmail::explainEmailAddress("user@example.test", trees, explanation); });
    EXPECT_EQ(explanation.complete, !failed);
    EXPECT_EQ(platform().log.lines().empty(), !failed);
    EXPECT_EQ(code, failed ? 0u : 2u);
    EXPECT_EQ(explanation.candidates.size(), failed ? 0u : want.candidates.size());
  }
}

// Its name and labels are ones that the frozen table has.
TEST_P(Exhaustion, patternAfterTheFreezeIsAddedWholeOrRefusedAndCanBeAddedAgain) {
  for (const char* pattern : {"user@example.other", "user@test", "*@other.test"}) {
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
      const std::unique_ptr<KxStringtable> ownTable = renewTree();
      KxWildcardEmail::initScanTimeMode();
      bool added = false;
      failed = failsAt(allocation, [&] { added = tree->addAddressPattern(pattern, 1, nullptr, nullptr); });
      EXPECT_TRUE(failed || added) << pattern;
      if (!added) {
        EXPECT_TRUE(tree->addAddressPattern(pattern, 1, nullptr, nullptr)) << pattern << " " << allocation;
      }
      expectOldPatterns();
      ASSERT_THAT(matches(pattern), Not(IsEmpty())) << pattern << " " << allocation;
      EXPECT_EQ(matches(pattern).front().substr(0, std::string(pattern).size()), pattern);
      tree.reset();
    }
  }
}

// A batch that memory does not suffice for is answered one by one.
TEST_P(Exhaustion, batchIsDecidedRightThoughMemoryRunsOutOnce) {
  const std::string deep = "user@" + deepDomain();
  tree->addAddressPattern(deep.c_str(), 2, nullptr, nullptr);
  KxWildcardRootNode second(table.get());
  second.addAddressPattern("*@new.org", 4, nullptr, nullptr);
  std::vector<KxWildcardNode*> trees = {tree.get(), &second};
  const char* const addresses[] = {"user@example.test", deep.c_str(), "x@new.org", "none@none"};
  const unsigned int codes[] = {1, 2, 2, 0};
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    std::vector<KxMatchResult> results(4, {99, 99, "unset", 99});
    failed = failsAt(allocation, [&] { KxWildcardEmail::matchEmailAddressBatch(addresses, 4, trees, results.data()); });
    for (std::size_t i = 0; i != 4; ++i) {
      EXPECT_EQ(results[i].code, codes[i]) << addresses[i] << " " << allocation;
    }
    EXPECT_EQ(results[2].treeIndex, 1u);
    EXPECT_EQ(results[3].name, nullptr);
  }
}

std::string nameAtBig(int number) {
  return "user" + std::to_string(number) + "@big.test";
}

// A level of so many names is searched by an index while it is filled, and sorted with memory of its own at the freeze.
TEST_P(Exhaustion, levelOfManyNamesLosesNoneWithoutMemory) {
  constexpr int kNames = 40;
  for (const bool adds : {true, false}) {
    for (int names = adds ? 12 : kNames; names <= kNames; ++names) {
      bool failed = true;
      for (int allocation = 1; failed; ++allocation) {
        const std::unique_ptr<KxStringtable> ownTable = newTable();
        if (GetParam() == Over::ALockedTable) {
          KxWildcardEmail::initScanTimeMode();  // takes the table, which is locked already, off the queue
        }
        tree = std::make_unique<KxWildcardRootNode>(ownTable.get());
        for (int number = names; number != 0; --number) {
          ASSERT_TRUE(tree->addAddressPattern(nameAtBig(number).c_str(), 1, nullptr, nullptr));
        }
        std::vector<KxListedEmailAddress*> found;
        failed = failsAt(allocation, [&] {
          if (adds) {
            tree->addAddressPattern(nameAtBig(0).c_str(), 1, nullptr, nullptr);
          } else {
            KxWildcardEmail::initScanTimeMode();
            tree->findMatches(nameAtBig(1).c_str(), found);
          }
        });
        if (adds) {
          EXPECT_TRUE(tree->addAddressPattern(nameAtBig(0).c_str(), 0, nullptr, nullptr));
        }
        for (int number = adds ? 0 : 1; number <= names; ++number) {
          ASSERT_EQ(matches(nameAtBig(number)).size(), 1u) << nameAtBig(number) << " " << names << " " << allocation;
        }
        tree.reset();
      }
    }
  }
}

std::string treeKind(const testing::TestParamInfo<Over>& over) {
  static const char* const kNames[] = {"floating", "overATable", "overALockedTable"};
  return kNames[static_cast<int>(over.param)];
}

INSTANTIATE_TEST_SUITE_P(Trees, Exhaustion, testing::Values(Over::Nothing, Over::ATable, Over::ALockedTable), treeKind);

class OtherExhaustion : public scripted::PlatformTest {};

TEST_F(OtherExhaustion, treeIsMadeOrNull) {
  for (auto* make : {&KxWildcardEmail::makeNewTree, &KxWildcardEmail::makeNewFloatingTree}) {
    bool failed = true;
    for (int allocation = 1; failed; ++allocation) {
      KxWildcardNode* made = nullptr;
      failed = failsAt(allocation, [&] { made = make(); });
      EXPECT_TRUE(made != nullptr || failed);
      if (made != nullptr) {
        EXPECT_TRUE(made->addAddressPattern("a@b", 1, nullptr, nullptr));
        std::vector<KxListedEmailAddress*> found;
        EXPECT_EQ(made->findMatches("a@b", found).size(), 1u);
      }
      delete made;
    }
  }
}

// Of all allocations from the making of a tree to its freeze one fails.
TEST_F(OtherExhaustion, treeThatIsWalkedForWantOfMemorySaysSo) {
  int walked = 0;
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    platform().log.clear();
    std::unique_ptr<KxWildcardNode> made;
    failed = failsAt(allocation, [&] {
      made.reset(KxWildcardEmail::makeNewTree());
      if (made != nullptr) {
        made->addAddressPattern("user@example.test", 1, nullptr, nullptr);
        KxWildcardEmail::initScanTimeMode();
      }
    });
    if (made == nullptr) {
      continue;
    }
    std::vector<KxListedEmailAddress*> found;
    found.reserve(8);
    // Only a walk asks for memory.
    if (failsAt(1, [&] { made->findMatches("user@example.test", found); })) {
      ++walked;
      EXPECT_THAT(platform().log.lines(),
                  Contains(error("KxWildcardEmail::initScanTimeMode: out of memory; a tree will be searched slowly")))
          << allocation;
    }
  }
  EXPECT_GE(walked, 3);
}

TEST_F(OtherExhaustion, objectThatCannotBeQueuedIsLoggedAndWorks) {
  // The queue asks for memory once in a while only.
  bool everFailed = false;
  std::vector<std::unique_ptr<KxWildcardNode>> nodes;
  KxStringtable table;
  table.getStringtableRef("");
  for (int i = 0; i < 1000 && !everFailed; ++i) {
    platform().log.clear();
    const std::size_t queued = KxWildcardEmail::_lockOnInit.size();
    alignas(KxWildcardNode) static char space[sizeof(KxWildcardNode)];
    KxWildcardNode* node = nullptr;
    everFailed = failsAt(1, [&] { node = new (space) KxWildcardNode(&table, &KxStringtable::_theEmptyIndexedString); });
    EXPECT_EQ(KxWildcardEmail::_lockOnInit.size(), queued + (everFailed ? 0 : 1));
    EXPECT_EQ(platform().log.lines().size(), everFailed ? 1u : 0u);
    if (everFailed) {
      EXPECT_EQ(platform().log.lines()[0],
                error("KxWildcardEmail::_addToLockOnInit: out of memory; an object will not be locked"));
      EXPECT_TRUE(node->addAddressPattern("a@b", 1, nullptr, nullptr));
    }
    node->~KxWildcardNode();
  }
  EXPECT_TRUE(everFailed);
}

TEST_F(OtherExhaustion, stackThatCannotGrowLosesNothingElse) {
  const std::string address = "user@" + deepDomain();
  const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString(address.c_str()));
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    KxWildcardNode::LabelStack labels;
    failed = failsAt(allocation, [&] { KxWildcardNode::parseAddress(nullptr, address.c_str(), scratch.get(), labels); });
    EXPECT_GE(labels.size(), failed ? 200u : 202u);
    KxWildcardEmail::cleanupDomainStack(&labels, nullptr);
  }
}

TEST_F(OtherExhaustion, entryOfATableThatCannotBeMadeIsRefused) {
  bool failed = true;
  std::vector<std::size_t> sizes;
  for (int allocation = 1; failed; ++allocation) {
    KxStringtable table;
    const KxIndexedString wrapper("text");
    const KxIndexedString* entry = nullptr;
    failed = failsAt(allocation, [&] { entry = table._addToStringtable(&wrapper); });
    EXPECT_EQ(entry == nullptr, failed);
    sizes.push_back(table.size());
  }
  // Without memory for the entry there is none; without memory for its text, which comes last, there is one.
  std::vector<std::size_t> want(sizes.size());
  ASSERT_GE(want.size(), 3u);
  want[want.size() - 2] = want.back() = 1;
  EXPECT_EQ(sizes, want);
}

TEST_F(OtherExhaustion, textThatIsThereIsFoundWithoutMemory) {
  KxStringtable table;
  for (int number = 0; number != 40000; ++number) {
    const std::string text = std::to_string(number);
    const KxIndexedString* const entry = table.getStringtableRef(text.c_str());
    const KxIndexedString wrapper(text.c_str());
    const KxIndexedString* found = nullptr;
    failsAt(1, [&] { found = table._addToStringtable(&wrapper); });
    ASSERT_EQ(found, entry) << number;
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

// So many texts are divided among many tables, which takes memory for each of them.
TEST_F(OtherExhaustion, tableThatCannotBeDividedKeepsItsTextsAndIsDividedLater) {
  constexpr int kBeforeTheDivision = 32768;
  for (const int allocation : {1, 2, 20, 300, 513}) {
    KxStringtable table;
    std::string text;
    for (int number = 0; number != kBeforeTheDivision; ++number) {
      text = std::to_string(number);
      table.getStringtableRef(text.c_str());
    }
    const KxIndexedString* entry = nullptr;
    EXPECT_TRUE(failsAt(allocation, [&] { entry = table._addToStringtable("new"); })) << allocation;
    EXPECT_EQ(entry, nullptr) << allocation;
    EXPECT_EQ(table.size(), static_cast<std::size_t>(kBeforeTheDivision));
    EXPECT_NE(table._addToStringtable("new"), nullptr);
    for (int number = 0; number != kBeforeTheDivision; ++number) {
      text = std::to_string(number);
      ASSERT_NE(table._findInStringtable(text.c_str()), nullptr) << text;
    }
  }
}

TEST_F(OtherExhaustion, storedPatternTakesAKindWithoutMemoryForItsTable) {
  for (int more = 0; more != 60; ++more) {
    KxStringtable table;
    KxWildcardRootNode tree(&table);
    EXPECT_TRUE(tree.addAddressPattern("user@test", 1, nullptr, nullptr));
    for (int number = 0; number != more; ++number) {
      table.getStringtableRef(std::to_string(number).c_str());
    }
    bool added = false;
    failsAt(1, [&] { added = tree.addAddressPattern("user@test", 16, nullptr, nullptr); });
    EXPECT_TRUE(added) << more;
  }
}

TEST_F(OtherExhaustion, tableWithoutMemoryForItsRanksIsLockedAndKeepsComparingTexts) {
  KxStringtable table;
  KxWildcardRootNode tree(&table);
  const char* const patterns[] = {"user@example.test", "*@*.test"};
  EXPECT_EQ(tree.addAddressPatterns(patterns, 2, 1), 2u);
  platform().log.clear();
  EXPECT_TRUE(failsAt(1, [&] { table.lock(); }));
  EXPECT_THAT(platform().log.lines(),
              ElementsAre(error("KxStringtable::lock: out of memory; the texts keep being compared as texts")));
  EXPECT_TRUE(table.isLocked());
  for (const char* text : {"user", "example", "user@example.test"}) {
    EXPECT_FALSE(table._findInStringtable(text)->isIndexed()) << text;
  }
  std::vector<KxListedEmailAddress*> found;
  EXPECT_EQ(tree.findMatches("user@example.test", found).size(), 2u);
  KxWildcardEmail::initScanTimeMode();
  found.clear();
  EXPECT_EQ(tree.findMatches("user@example.test", found).size(), 2u);
}

// Memory that runs out anywhere in a freeze costs speed and no pattern. What is slow from then on is told, tree by tree.
TEST_F(OtherExhaustion, freezeWithoutMemoryLosesNoPatternAndSaysWhichTreesAreSlow) {
  const auto slow = error("KxWildcardEmail::initScanTimeMode: out of memory; a tree will be searched slowly");
  const auto unranked = error("KxStringtable::lock: out of memory; the texts keep being compared as texts");
  std::vector<std::ptrdiff_t> slowTrees;
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    KxStringtable table;
    KxWildcardRootNode first(&table);
    KxWildcardRootNode second(&table);
    first.addAddressPatterns(kPatterns, 4, 1);
    second.addAddressPatterns(kNewPatterns, 8, 1);
    platform().log.clear();
    failed = failsAt(allocation, [] { KxWildcardEmail::initScanTimeMode(); });
    const auto lines = platform().log.lines();
    const std::ptrdiff_t told = std::count(lines.begin(), lines.end(), slow);
    EXPECT_EQ(told + std::count(lines.begin(), lines.end(), unranked), static_cast<std::ptrdiff_t>(lines.size()));
    EXPECT_TRUE(failed || lines.empty());
    std::ptrdiff_t walked = 0;
    const auto expectMatches = [&](KxWildcardNode& tree, const char* address, std::size_t count) {
      std::vector<KxListedEmailAddress*> found;
      found.reserve(8);
      // Only a walk asks for memory.
      const bool walks = failsAt(1, [&] { tree.findMatches(address, found); });
      found.clear();
      EXPECT_EQ(tree.findMatches(address, found).size(), count) << address << " " << allocation;
      return walks;
    };
    walked += expectMatches(first, "user@example.test", 3) ? 1 : 0;
    walked += expectMatches(second, "new@example.test", 2) ? 1 : 0;
    EXPECT_EQ(expectMatches(second, "user@a.b.new", 2), expectMatches(second, "user@new.test", 2));
    EXPECT_EQ(walked, told) << allocation;
    slowTrees.push_back(told);
  }
  // Neither, one or both: the filters that trees share are made last.
  EXPECT_THAT(slowTrees, Contains(1));
  EXPECT_THAT(slowTrees, Contains(2));
  EXPECT_EQ(slowTrees.back(), 0);
}

TEST_F(OtherExhaustion, tableThatTookNothingInCanBeLocked) {
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    KxStringtable table;
    failed = failsAt(allocation, [&] { table._addToStringtable("text"); });
    table.lock();
    EXPECT_TRUE(table.isLocked());
  }
}

// The patterns come when the table begins to keep texts in blocks.
TEST_F(OtherExhaustion, patternsOfABigTableAreAddedWholeOrRefusedAndCanBeAddedAgain) {
  const char* const patterns[] = {"new@example.test", "user@a.new", "*@*.fresh", "new@example.test"};
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    KxStringtable table;
    for (int number = 0; number != 1021; ++number) {
      table.getStringtableRef(std::to_string(number).c_str());
    }
    KxWildcardRootNode tree(&table);
    bool added[4] = {};
    std::size_t count = 0;
    failed = failsAt(allocation, [&] { count = tree.addAddressPatterns(patterns, 4, 1, nullptr, nullptr, added); });
    EXPECT_TRUE(failed || count == 4);
    for (int pass = 0; pass != 2; ++pass) {
      for (std::size_t i = 0; i != 4; ++i) {
        std::vector<KxListedEmailAddress*> found;
        const std::size_t size = tree.findMatches(patterns[i], found).size();
        EXPECT_TRUE(!added[i] || size == 1) << patterns[i] << " " << allocation;
      }
      EXPECT_EQ(tree.addAddressPatterns(patterns, 4, 1, nullptr, nullptr, added), 4u);
    }
    KxWildcardEmail::initScanTimeMode();
    EXPECT_LT(table.getRef("new@example.test")->getIndex(), table.size());
  }
}

}  // namespace
