#include "KxWildcardEmail.h"

#include <memory>
#include <string>
#include <vector>

#include "KxMatchExplanation.h"
#include "ProcessTest.h"
#include "scripted/Platform.h"

namespace {

using scripted::platform;
using testing::IsEmpty;

struct Pattern {
  const char* text;
  KxEmailBelongsTo kind;
};

// What matching answers: code, tree, name ("-" for none), kind.
struct Answer {
  unsigned int code;
  unsigned int tree;
  std::string name;
  KxEmailBelongsTo kind;
};

bool operator==(const Answer& one, const Answer& other) {
  return one.code == other.code && one.tree == other.tree && one.name == other.name && one.kind == other.kind;
}

std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
  return stream << answer.code << " by tree " << answer.tree << ": " << answer.name << " of kind " << answer.kind;
}

const Answer kNothing = {0, 0, "-", 0};

class Trees {
 public:
  explicit Trees(const std::vector<std::vector<Pattern>>& patterns) {
    for (const auto& some : patterns) {
      m_owned.emplace_back(KxWildcardEmail::makeNewFloatingTree());
      for (const Pattern& pattern : some) {
        EXPECT_TRUE(m_owned.back()->addAddressPattern(pattern.text, pattern.kind, nullptr, nullptr)) << pattern.text;
      }
      all.push_back(m_owned.back().get());
    }
  }

  Answer match(const char* address) {
    unsigned int tree = 99;
    const char* name = "unset";
    KxEmailBelongsTo kind = 99;
    const unsigned int code = KxWildcardEmail::matchEmailAddress(address, all, &tree, &name, &kind);
    return {code, tree, name != nullptr ? name : "-", kind};
  }

  std::vector<KxWildcardNode*> all;

 private:
  std::vector<std::unique_ptr<KxWildcardNode>> m_owned;
};

class WildcardEmail : public scripted::PlatformTest {};

// --- Making trees ---

TEST_F(WildcardEmail, treesShareTheDefaultTable) {
  const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
  EXPECT_NE(dynamic_cast<KxWildcardRootNode*>(tree.get()), nullptr);
  EXPECT_EQ(KxWildcardEmail::_lockOnInit.back(), tree.get());
  EXPECT_EQ(tree->getNameAsPtr(), KxWildcardEmail::_defaultScanTimeStringtable.getRef(&tree->getName()));
}

TEST_F(WildcardEmail, floatingTreesHaveNoTableAndAreNotQueued) {
  const std::size_t queued = KxWildcardEmail::_lockOnInit.size();
  const std::size_t texts = KxWildcardEmail::_defaultScanTimeStringtable.size();
  const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewFloatingTree());
  EXPECT_NE(dynamic_cast<KxWildcardRootNode*>(tree.get()), nullptr);
  tree->addAddressPattern("user@never-seen-elsewhere.test", 1, nullptr, nullptr);
  EXPECT_EQ(KxWildcardEmail::_lockOnInit.size(), queued);
  EXPECT_EQ(KxWildcardEmail::_defaultScanTimeStringtable.size(), texts);
  EXPECT_EQ(tree->getName().getIndex(), 0xFFFFFFFFu);
}

PROCESS_TEST(WildcardEmailProcess, scanTimeModeFreezesTheDefaultTableAndItsTrees) {
  const KxStringtable& table = KxWildcardEmail::_defaultScanTimeStringtable;
  const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
  const std::unique_ptr<KxWildcardNode> floating(KxWildcardEmail::makeNewFloatingTree());
  tree->addAddressPattern("user@example.test", 1, nullptr, nullptr);
  floating->addAddressPattern("user@example.test", 1, nullptr, nullptr);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_TRUE(table.isLocked());
  EXPECT_TRUE(tree->isLocked());
  EXPECT_FALSE(floating->isLocked());
  EXPECT_TRUE(KxWildcardEmail::_lockOnInit.empty());

  const std::unique_ptr<KxWildcardNode> later(KxWildcardEmail::makeNewTree());
  EXPECT_TRUE(later->addAddressPattern("new@new.test", 2, nullptr, nullptr));
  EXPECT_FALSE(later->isLocked());
  std::vector<KxWildcardNode*> trees = {tree.get(), later.get()};
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("new@new.test", trees, nullptr, nullptr, nullptr), 2u);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_TRUE(later->isLocked());
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("new@new.test", trees, nullptr, nullptr, nullptr), 2u);
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("user@example.test", trees, nullptr, nullptr, nullptr), 1u);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

// --- Deciding ---

struct DecisionCase {
  const char* label;
  std::vector<std::vector<Pattern>> trees;
  const char* address;
  Answer want;
};

const DecisionCase kDecisionCases[] = {
    {"no tree", {}, "user@example.test", kNothing},
    {"empty trees", {{}, {}}, "user@example.test", kNothing},
    {"no match", {{{"other@example.test", 1}}}, "user@example.test", kNothing},
    {"kind 1", {{{"user@example.test", 1}}}, "USER@example.test", {1, 0, "user@example.test", 1}},
    {"kind 2", {{{"*@example.test", 2}}}, "user@example.test", {2, 0, "*@example.test", 2}},
    {"heavier of kind 1",
     {{{"*@example.test", 1}, {"user@example.test", 1}, {"*", 1}}},
     "user@example.test",
     {1, 0, "user@example.test", 1}},
    {"heavier kind 1",
     {{{"user@example.test", 1}, {"*@example.test", 2}}},
     "user@example.test",
     {129, 0, "user@example.test", 1}},
    {"heavier kind 2",
     {{{"user@example.test", 2}, {"*@example.test", 1}}},
     "user@example.test",
     {130, 0, "user@example.test", 2}},
    {"lightest patterns", {{{"user@*", 2}, {"*", 1}}}, "user@example.test", {130, 0, "user@*", 2}},
    {"first tree decides",
     {{{"*@example.test", 1}}, {{"user@example.test", 2}}},
     "user@example.test",
     {1, 0, "*@example.test", 1}},
    {"tree without match is passed", {{{"other@example.test", 1}}, {{"*", 2}}}, "user@example.test", {2, 1, "*", 2}},
    {"kinds of different trees do not meet",
     {{{"*@example.test", 1}}, {{"*@example.test", 2}}},
     "user@example.test",
     {1, 0, "*@example.test", 1}},
    {"second tier, kind 4", {{{"user@example.test", 4}}}, "user@example.test", {2, 0, "user@example.test", 4}},
    {"second tier, kind 8", {{{"user@example.test", 8}}}, "user@example.test", {1, 0, "user@example.test", 8}},
    {"second tier over all trees, kind 8 heavier",
     {{{"*@example.test", 4}}, {{"user@example.test", 8}}},
     "user@example.test",
     {1, 1, "user@example.test", 8}},
    {"second tier over all trees, kind 4 heavier",
     {{{"*@example.test", 8}}, {}, {{"user@example.test", 4}}},
     "user@example.test",
     {2, 2, "user@example.test", 4}},
    {"second tier, tie",
     {{{"*@example.test", 4}}, {{"*@example.test", 8}}},
     "user@example.test",
     {9, 1, "*@example.test", 8}},
    {"second tier, first of equal weights",
     {{{"*@example.test", 8}}, {{"*@example.test", 8}}},
     "user@example.test",
     {1, 0, "*@example.test", 8}},
    {"second tier in one tree has no extra bit",
     {{{"*@example.test", 8}, {"user@example.test", 4}}},
     "user@example.test",
     {2, 0, "user@example.test", 4}},
    {"first tier goes before second", {{{"user@example.test", 8}}, {{"*", 2}}}, "user@example.test", {2, 1, "*", 2}},
    {"first tier of the same tree goes before second",
     {{{"user@example.test", 4}, {"*", 1}}},
     "user@example.test",
     {1, 0, "*", 1}},
    {"exception takes kind 8 back", {{{"*@*.test", 8}}, {{"*@*.test", 16}}}, "user@example.test", kNothing},
    {"exception takes kind 4 back", {{{"*@*.test", 4}}, {{"*@*.test", 32}}}, "user@example.test", kNothing},
    {"exception takes every equal text back",
     {{{"*@*.test", 8}}, {{"*@*.test", 8}}, {{"*@*.test", 16}}, {{"*@*.test", 8}}},
     "user@example.test",
     {1, 3, "*@*.test", 8}},
    {"exception of another text", {{{"*@*.test", 8}}, {{"*@*", 16}}}, "user@example.test", {1, 0, "*@*.test", 8}},
    {"exception of the other kind", {{{"*@*.test", 8}}, {{"*@*.test", 32}}}, "user@example.test", {1, 0, "*@*.test", 8}},
    {"exception before its kind", {{{"*@*.test", 16}}, {{"*@*.test", 8}}}, "user@example.test", {1, 1, "*@*.test", 8}},
    {"exception leaves the next heaviest",
     {{{"*@*.test", 8}, {"*", 8}}, {{"*@*.test", 16}}},
     "user@example.test",
     {1, 0, "*", 8}},
    {"exception has no say on first tier",
     {{{"*@*.test", 16}}, {{"*@*.test", 1}}},
     "user@example.test",
     {1, 1, "*@*.test", 1}},
    {"exceptions alone", {{{"*", 16}, {"user@*", 32}}}, "user@example.test", kNothing},
    {"same leaf, other text",
     {{{"user@*.example.test", 8}}, {{"user@x.*.example.test", 16}}},
     "user@a.example.test",
     {1, 0, "user@*.example.test", 8}},
    {"no kind", {{{"user@example.test", 0}}}, "user@example.test", kNothing},
    {"kind above the known ones", {{{"user@example.test", 128}}}, "user@example.test", kNothing},
    {"deciding kind with a high bit", {{{"user@example.test", 129}}}, "user@example.test", kNothing},
    {"combined kinds 17", {{{"user@example.test", 17}}}, "user@example.test", kNothing},
    {"combined kinds 48", {{{"user@example.test", 48}, {"*", 4}}}, "user@example.test", {2, 0, "*", 4}},
    {"combined state decides nothing, the next does",
     {{{"user@example.test", 17}, {"*@example.test", 2}}},
     "user@example.test",
     {2, 0, "*@example.test", 2}},
    {"bare text", {{{"user@*", 1}}}, "user", {1, 0, "user@*", 1}},
};

TEST_F(WildcardEmail, addressIsDecidedByTheRules) {
  for (const DecisionCase& test : kDecisionCases) {
    EXPECT_EQ(Trees(test.trees).match(test.address), test.want) << test.label;
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(WildcardEmail, everyAllowedCombinationOfKindsIsIgnored) {
  for (const KxEmailBelongsTo state : {17u, 18u, 20u, 33u, 34u, 40u, 48u}) {
    EXPECT_EQ(Trees({{{"user@example.test", state}}}).match("user@example.test"), kNothing) << state;
  }
}

TEST_F(WildcardEmail, equalWeightsOfBothKindsInOneTreeAre137) {
  // Labels left of a wildcard weigh, but do not tell leaves apart: two leaves can weigh the same.
  Trees both({{{"user@x.*.test", 1}, {"*@a.test", 2}}});
  EXPECT_EQ(both.match("user@a.test"), (Answer{130, 0, "*@a.test", 2}));
  Trees tie({{{"user@*.a.test", 1}, {"user@x.*.test", 2}}});
  EXPECT_EQ(tie.match("user@b.a.test"), (Answer{137, 0, "user@*.a.test", 1}));
}

TEST_F(WildcardEmail, firstOfEqualWeightsOfOneKindStays) {
  Trees trees({{{"user@*.a.test", 1}, {"user@x.*.test", 1}}});
  EXPECT_EQ(trees.match("user@b.a.test"), (Answer{1, 0, "user@*.a.test", 1}));
}

TEST_F(WildcardEmail, outputsThatAreNullAreNotWritten) {
  Trees trees({{{"user@example.test", 1}}});
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("user@example.test", trees.all, nullptr, nullptr, nullptr), 1u);
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("other@example.test", trees.all, nullptr, nullptr, nullptr), 0u);
}

TEST_F(WildcardEmail, nullAddressAndNullTreesDecideNothing) {
  Trees trees({{{"*", 1}}, {{"*", 2}}});
  EXPECT_EQ(trees.match(nullptr), kNothing);
  trees.all[0] = nullptr;
  EXPECT_EQ(trees.match("a@b"), (Answer{2, 1, "*", 2}));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(WildcardEmail, exceptionsAreComparedByRankOnFrozenTrees) {
  KxStringtable table;
  KxWildcardRootNode first(&table);
  KxWildcardRootNode second(&table);
  first.addAddressPattern("*@*.example.test", 8, nullptr, nullptr);
  second.addAddressPattern("*@*.example.test", 16, nullptr, nullptr);
  std::vector<KxWildcardNode*> trees = {&first, &second};
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("a@b.example.test", trees, nullptr, nullptr, nullptr), 0u);
  KxWildcardEmail::initScanTimeMode();
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("a@b.example.test", trees, nullptr, nullptr, nullptr), 0u);
  std::vector<KxWildcardNode*> reversed = {&second, &first};
  EXPECT_EQ(KxWildcardEmail::matchEmailAddress("a@b.example.test", reversed, nullptr, nullptr, nullptr), 1u);
}

// --- Explaining ---

using Fate = KxMatchCandidate::Fate;
constexpr std::size_t kNone = KxMatchCandidate::kNone;

struct Told {
  const char* pattern;
  unsigned int tree;
  Fate fate;
  std::size_t other;
  std::size_t removed;
};

struct ExplanationCase {
  const char* label;
  std::vector<std::vector<Pattern>> trees;
  const char* address;
  std::vector<Told> want;
  KxMatchExplanation::Tier tier;
  unsigned int weightA;
  unsigned int weightB;
  bool bothKinds;
  std::size_t treesSearched;
};

const ExplanationCase kExplanationCases[] = {
    {"nothing", {{}}, "a@b", {}, KxMatchExplanation::NoTier, 0, 0, false, 1},
    {"heavier kind of two",
     {{{"user@example.test", 1}, {"*@example.test", 2}, {"*", 2}}, {{"user@*", 2}}},
     "user@example.test",
     {{"user@example.test", 0, Fate::Decided, kNone, 0},
      {"*@example.test", 0, Fate::Lighter, 0, 0},
      {"*", 0, Fate::Lighter, 1, 0},
      {"user@*", 1, Fate::NotSearched, kNone, 0}},
     KxMatchExplanation::FirstTier,
     5003,
     4003,
     true,
     1},
    {"heavier one comes later",
     {{{"*@x.*.test", 1}, {"*@*.example.test", 1}, {"*", 1}}},
     "user@a.example.test",
     {{"*@*.example.test", 0, Fate::Decided, kNone, 0}, {"*@x.*.test", 0, Fate::Later, 0, 0}, {"*", 0, Fate::Lighter, 0, 0}},
     KxMatchExplanation::FirstTier,
     2003,
     0,
     false,
     1},
    {"earlier one is lighter",
     {{{"*@a.b", 1}, {"user@x.y.z.*.b", 1}}},
     "user@a.b",
     {{"*@a.b", 0, Fate::Decided, kNone, 0}, {"user@x.y.z.*.b", 0, Fate::Lighter, 0, 0}},
     KxMatchExplanation::FirstTier,
     4003,
     0,
     false,
     1},
    {"tie",
     {{{"user@*.a.test", 1}, {"user@x.*.test", 2}}},
     "user@b.a.test",
     {{"user@*.a.test", 0, Fate::Decided, kNone, 0}, {"user@x.*.test", 0, Fate::Tied, 0, 0}},
     KxMatchExplanation::FirstTier,
     3003,
     3003,
     true,
     1},
    {"ignored states",
     {{{"user@example.test", 17}, {"*@example.test", 0}, {"*", 1}}},
     "user@example.test",
     {{"user@example.test", 0, Fate::Ignored, kNone, 0},
      {"*@example.test", 0, Fate::Ignored, kNone, 0},
      {"*", 0, Fate::Decided, kNone, 0}},
     KxMatchExplanation::FirstTier,
     1,
     0,
     false,
     1},
    {"exceptions",
     {{{"*@*.test", 8}, {"*", 4}}, {{"*@*.test", 16}, {"*", 16}}},
     "user@example.test",
     {{"*@*.test", 0, Fate::Removed, 2, 0},
      {"*", 0, Fate::Decided, kNone, 0},
      {"*@*.test", 1, Fate::Exception, kNone, 1},
      {"*", 1, Fate::Exception, kNone, 0}},
     KxMatchExplanation::SecondTier,
     0,
     1,
     false,
     2},
    {"second tier outranked",
     {{{"user@example.test", 8}, {"*@example.test", 4}}, {{"*", 2}}},
     "user@example.test",
     {{"user@example.test", 0, Fate::Outranked, 2, 0},
      {"*@example.test", 0, Fate::Outranked, 2, 0},
      {"*", 1, Fate::Decided, kNone, 0}},
     KxMatchExplanation::FirstTier,
     0,
     1,
     false,
     2},
    {"second tier",
     {{{"*@example.test", 8}, {"*", 8}}, {{"*@example.test", 4}, {"*@example.test", 0}}},
     "user@example.test",
     {{"*@example.test", 0, Fate::Decided, kNone, 0},
      {"*", 0, Fate::Lighter, 0, 0},
      {"*@example.test", 1, Fate::Tied, 0, 0}},
     KxMatchExplanation::SecondTier,
     4003,
     4003,
     false,
     2},
};

TEST_F(WildcardEmail, explanationTellsWhatBecameOfEveryPattern) {
  for (const ExplanationCase& test : kExplanationCases) {
    Trees trees(test.trees);
    KxMatchExplanation explanation;
    explanation.code = 77;
    explanation.candidates.resize(5);
    const unsigned int code = KxWildcardEmail::explainEmailAddress(test.address, trees.all, explanation);
    const Answer answer = trees.match(test.address);
    EXPECT_EQ(code, answer.code) << test.label;
    EXPECT_EQ(explanation.code, answer.code) << test.label;
    EXPECT_EQ(explanation.treeIndex, answer.tree) << test.label;
    EXPECT_STREQ(explanation.name != nullptr ? explanation.name : "-", answer.name.c_str()) << test.label;
    EXPECT_EQ(explanation.belongsTo, answer.kind) << test.label;
    EXPECT_EQ(explanation.tier, test.tier) << test.label;
    EXPECT_EQ(explanation.weightA, test.weightA) << test.label;
    EXPECT_EQ(explanation.weightB, test.weightB) << test.label;
    EXPECT_EQ(explanation.bothKinds, test.bothKinds) << test.label;
    EXPECT_EQ(explanation.addedCode, test.bothKinds ? 128 : 0) << test.label;
    EXPECT_EQ(explanation.baseCode, explanation.code & 127) << test.label;
    EXPECT_EQ(explanation.treesSearched, test.treesSearched) << test.label;
    EXPECT_TRUE(explanation.complete) << test.label;
    ASSERT_EQ(explanation.candidates.size(), test.want.size()) << test.label;
    for (std::size_t i = 0; i != test.want.size(); ++i) {
      const KxMatchCandidate& got = explanation.candidates[i];
      const Told& want = test.want[i];
      EXPECT_STREQ(got.leaf->getFullAddressAsStr(), want.pattern) << test.label << " " << i;
      EXPECT_EQ(got.weight, got.leaf->getWeight()) << test.label << " " << i;
      EXPECT_EQ(got.state, got.leaf->getState()) << test.label << " " << i;
      EXPECT_EQ(got.tree, want.tree) << test.label << " " << i;
      EXPECT_EQ(got.fate, want.fate) << test.label << " " << i;
      EXPECT_EQ(got.other, want.other) << test.label << " " << i;
      EXPECT_EQ(got.removed, want.removed) << test.label << " " << i;
    }
  }
}

TEST_F(WildcardEmail, everyDecisionCaseIsExplainedAsItIsDecided) {
  for (const DecisionCase& test : kDecisionCases) {
    Trees trees(test.trees);
    KxMatchExplanation explanation;
    EXPECT_EQ(KxWildcardEmail::explainEmailAddress(test.address, trees.all, explanation), test.want.code) << test.label;
    std::size_t deciding = 0;
    for (const KxMatchCandidate& candidate : explanation.candidates) {
      deciding += candidate.fate == Fate::Decided ? 1 : 0;
    }
    EXPECT_EQ(deciding, test.want.code != 0 ? 1u : 0u) << test.label;
  }
}

}  // namespace
