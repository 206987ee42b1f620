#include "KxListedEmailAddress.h"

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "KxWildcardEmail.h"
#include "NothrowAllocationFailure.h"
#include "SlowMatcher.h"
#include "VirtualSlots.h"
#include "scripted/Platform.h"

namespace {

using scripted::error;
using scripted::platform;
using scripted::trace;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned int kEntry = 0xFFFFFFFDu;
constexpr unsigned int kDeepCopy = 0xFFFFFFFFu;
const KxIndexedString* const kNoHandle = nullptr;
const char* const kNoText = nullptr;

class ListedAddress : public scripted::PlatformTest {
 protected:
  KxStringtable table;
};

// --- Shape ---

TEST_F(ListedAddress, virtualOperationsAreInOrder) {
  using Listed = KxListedEmailAddress;
  EXPECT_EQ(slotOf(&Listed::lock), 0u);
  EXPECT_EQ(slotOf(&Listed::isLocked), 1u);
  EXPECT_EQ(slotOf(&Listed::_lock), 2u);
  EXPECT_EQ(slotOf(static_cast<bool (Listed::*)(const char*) const>(&Listed::matchName)), 3u);
  EXPECT_EQ(slotOf(static_cast<bool (Listed::*)(const KxIndexedString&) const>(&Listed::matchName)), 4u);
  EXPECT_EQ(slotOf(&Listed::_computeWeight), 5u);
  EXPECT_FALSE(std::has_virtual_destructor<Listed>::value);
  EXPECT_FALSE(std::is_polymorphic<KxIndexedStringNamedClass>::value);
}

TEST_F(ListedAddress, lockableBaseComesBeforeTheNamedOne) {
  KxListedEmailAddress leaf(nullptr, "a@b", "a");
  EXPECT_EQ(baseOffset<KxLockableClass>(leaf), 0u);
  EXPECT_EQ(baseOffset<KxIndexedStringNamedClass>(leaf), sizeof(KxLockableClass));
  EXPECT_EQ(sizeof(KxIndexedStringNamedClass), 2 * sizeof(void*));
}

// --- Names ---

TEST_F(ListedAddress, nameOverATableIsItsEntry) {
  const KxIndexedStringNamedClass byText(&table, "name");
  const KxIndexedString wrapper("name");
  const KxIndexedStringNamedClass byHandle(&table, &wrapper);
  const KxIndexedString* entry = table.getRef("name");
  EXPECT_EQ(entry->getIndex(), kEntry);
  EXPECT_EQ(byText.getNameAsPtr(), entry);
  EXPECT_EQ(&byText.getName(), entry);
  EXPECT_EQ(byText.getNameAsStr(), entry->getString());
  EXPECT_EQ(byHandle.getNameAsPtr(), entry);
  EXPECT_EQ(KxIndexedStringNamedClass(&table, entry).getNameAsPtr(), entry);
}

TEST_F(ListedAddress, floatingNameIsAPrivateCopy) {
  char text[] = "name";
  const KxIndexedStringNamedClass named(nullptr, text);
  text[0] = 'x';
  EXPECT_STREQ(named.getNameAsStr(), "name");
  EXPECT_EQ(named.getName().getIndex(), kDeepCopy);
}

TEST_F(ListedAddress, unknownNameOverAFrozenTableIsAPrivateCopy) {
  const KxIndexedString* entry = table.getStringtableRef("known");
  table.lock();
  const KxIndexedString unknown("unknown");
  EXPECT_EQ(KxIndexedStringNamedClass(&table, "known").getNameAsPtr(), entry);
  const KxIndexedStringNamedClass named(&table, &unknown);
  EXPECT_NE(named.getNameAsPtr(), &unknown);
  EXPECT_EQ(named.getName().getIndex(), kDeepCopy);
  EXPECT_STREQ(named.getNameAsStr(), "unknown");
}

TEST_F(ListedAddress, deepCopyIsNeverKeptItself) {
  const KxIndexedString source("name");
  const KxIndexedString* copy = KxIndexedString::deepCopy(&source);
  {
    const KxIndexedStringNamedClass floating(nullptr, copy);
    EXPECT_NE(floating.getNameAsPtr(), copy);
    table.lock();
    const KxIndexedStringNamedClass frozen(&table, copy);
    EXPECT_NE(frozen.getNameAsPtr(), copy);
    EXPECT_EQ(frozen.getName().getIndex(), kDeepCopy);
  }
  KxStringtable::cleanupReference(copy);
}

TEST_F(ListedAddress, entryOfAnotherTableIsTakenInOrKeptByAFrozenOne) {
  KxStringtable other;
  const KxIndexedString* foreign = other.getStringtableRef("foreign");
  {
    const KxIndexedStringNamedClass named(&table, foreign);
    EXPECT_NE(named.getNameAsPtr(), foreign);
    EXPECT_STREQ(named.getNameAsStr(), "foreign");
  }
  KxStringtable frozen;
  frozen.lock();
  const KxIndexedStringNamedClass named(&frozen, foreign);
  EXPECT_EQ(named.getNameAsPtr(), foreign);
}

// A handle from elsewhere may have a rank and no text.
TEST_F(ListedAddress, rankWithoutATextIsKeptOverATableInEitherPhase) {
  table.getStringtableRef("text");
  KxIndexedString ranked(nullptr);
  ranked._setIndex(0);
  for (const bool frozen : {false, true}) {
    if (frozen) {
      table.lock();
    }
    const KxIndexedStringNamedClass named(&table, &ranked);
    EXPECT_EQ(named.getNameAsPtr(), &ranked);
    EXPECT_EQ(named.getNameAsStr(), nullptr);
    const KxListedEmailAddress leaf(&table, &ranked, &ranked);
    EXPECT_EQ(leaf.getFullAddressAsPtr(), &ranked);
    KxWildcardNode node(&table, &ranked);
    EXPECT_EQ(node.getNameAsPtr(), &ranked);
  }
}

TEST_F(ListedAddress, missingNameIsTheEmptyHandleAndLogged) {
  const std::string copyLine = "KxIndexedString::deepCopy: argument or string wrapped by argument is NULL!";
  const KxIndexedStringNamedClass floating(nullptr, kNoHandle);
  EXPECT_EQ(floating.getNameAsPtr(), &KxStringtable::_theEmptyIndexedString);
  EXPECT_THAT(platform().log.lines(), ElementsAre(error(copyLine)));

  platform().log.clear();
  const KxIndexedStringNamedClass overTable(&table, kNoHandle);
  EXPECT_EQ(overTable.getNameAsPtr(), &KxStringtable::_theEmptyIndexedString);
  EXPECT_THAT(
      platform().log.lines(),
      ElementsAre(
          error("KxStringtable::getStringtableRef(const KxIndexedString *): could not insert argument into stringtable because the argument or the string it wraps is NULL!"),
          error("KxListedEmailAddress.cpp - _returnCopyIfSameAs: predicate is NULL; cmp is NULL.")));

  platform().log.clear();
  const KxIndexedStringNamedClass nullText(&table, kNoText);
  EXPECT_EQ(nullText.getNameAsPtr(), &KxStringtable::_theEmptyIndexedString);
  EXPECT_STREQ(nullText.getNameAsStr(), "");
  EXPECT_THAT(platform().log.lines(), Contains(error(copyLine)));
}

TEST_F(ListedAddress, nameIsTheEmptyHandleWhenMemoryRunsOut) {
  NothrowAllocationFailure failure;
  const KxIndexedStringNamedClass floating(nullptr, "name");
  EXPECT_EQ(floating.getNameAsPtr(), &KxStringtable::_theEmptyIndexedString);
}

TEST_F(ListedAddress, inferredNameIsTheTextBeforeTheFirstAt) {
  const char* const cases[][2] = {
      {"user@example.test", "user"}, {"bare", "bare"}, {"@b", ""}, {"", ""}, {"a@b@c", "a"}, {"A.b@", "A.b"}};
  for (const auto& test : cases) {
    const std::unique_ptr<char[]> name(KxIndexedStringNamedClass::_inferName(test[0]));
    EXPECT_STREQ(name.get(), test[1]);
  }
  EXPECT_EQ(KxIndexedStringNamedClass::_inferName(nullptr), nullptr);
}

// --- Listed addresses ---

TEST_F(ListedAddress, startsWithoutKindsOwnersAnnotation) {
  const KxListedEmailAddress leaf(&table, "user@example.test", "user");
  EXPECT_EQ(leaf.getState(), 0u);
  EXPECT_EQ(leaf.getAnnotation(), "");
  EXPECT_THAT(leaf.getRelatedPolicyOwners(), IsEmpty());
  EXPECT_TRUE(leaf.isOwnerless());
  EXPECT_FALSE(leaf.isLocked());
}

TEST_F(ListedAddress, textsOverATableAreItsEntries) {
  const KxIndexedString full("user@example.test");
  const KxIndexedString name("user");
  const KxListedEmailAddress byText(&table, "user@example.test", "user");
  const KxListedEmailAddress byHandle(&table, &full, &name);
  const KxIndexedString* entry = table.getRef("user@example.test");
  EXPECT_EQ(byText.getFullAddressAsPtr(), entry);
  EXPECT_EQ(&byText.getFullAddress(), entry);
  EXPECT_EQ(byText.getFullAddressAsStr(), entry->getString());
  EXPECT_EQ(byHandle.getFullAddressAsPtr(), entry);
  EXPECT_EQ(byText.getNameAsPtr(), table.getRef("user"));
  EXPECT_EQ(table.size(), 2u);
}

TEST_F(ListedAddress, missingTextsAreTheEmptyHandle) {
  const KxListedEmailAddress leaf(&table, kNoHandle, kNoHandle);
  EXPECT_EQ(leaf.getFullAddressAsPtr(), &KxStringtable::_theEmptyIndexedString);
  EXPECT_STREQ(leaf.getFullAddressAsStr(), "");
  EXPECT_EQ(leaf.getWeight(), slow::weightOf(""));
}

struct StateCase {
  unsigned int state;
  bool want;
};

TEST_F(ListedAddress, allowedStatesAreSingleKindsAndPairsWithAnException) {
  const std::set<unsigned int> allowed = {0, 1, 2, 4, 8, 16, 32, 17, 18, 20, 33, 34, 40, 48};
  for (unsigned int state = 0; state < 128; ++state) {
    EXPECT_EQ(KxListedEmailAddress::isStateAllowed(state), allowed.count(state) != 0) << state;
  }
}

TEST_F(ListedAddress, bitsAboveTheKindsAreNotCounted) {
  const StateCase cases[] = {{128, true},
                             {129, true},
                             {128 + 17, true},
                             {128 + 3, false},
                             {0xFFFFFF80u, true},
                             {128 + 64, false},
                             {0xFFFFFFFFu, false},
                             {256 + 7, false},
                             // A forbidden pair is compared as a whole value.
                             {128 + 36, true},
                             {128 + 24, true},
                             {128 + 6, false},
                             {128 + 9, false}};
  for (const StateCase& test : cases) {
    EXPECT_EQ(KxListedEmailAddress::isStateAllowed(test.state), test.want) << test.state;
  }
}

struct MembershipStep {
  char operation;
  unsigned int kinds;
  bool want;
  unsigned int wantState;
};

TEST_F(ListedAddress, membershipsChangeOnlyToAllowedStates) {
  const std::vector<std::vector<MembershipStep>> cases = {
      {{'+', 1, true, 1}, {'+', 2, false, 1}, {'+', 16, true, 17}, {'+', 32, false, 17}, {'-', 1, true, 16}},
      {{'+', 64, false, 0}, {'+', 0, true, 0}, {'-', 64, true, 0}, {'+', 65, false, 0}},
      {{'+', 17, true, 17}, {'+', 1, true, 17}, {'-', 17, true, 0}},
      {{'+', 8, true, 8}, {'+', 16, false, 8}, {'+', 32, true, 40}, {'-', 32, true, 8}, {'-', 4, true, 8}},
      {{'+', 128, true, 128}, {'+', 1, true, 129}, {'+', 2, false, 129}, {'-', 128, true, 1}},
      // Taking the high bit would leave a forbidden pair.
      {{'+', 128, true, 128}, {'+', 36, true, 164}, {'-', 128, false, 164}, {'-', 4, true, 160}},
  };
  for (const auto& steps : cases) {
    KxListedEmailAddress leaf(nullptr, "a@b", "a");
    for (const MembershipStep& step : steps) {
      EXPECT_EQ(step.operation == '+' ? leaf.addMembership(step.kinds) : leaf.removeMembership(step.kinds), step.want)
          << step.operation << step.kinds << " to " << step.wantState;
      EXPECT_EQ(leaf.getState(), step.wantState);
    }
  }
}

TEST_F(ListedAddress, lockedLeafRefusesEveryChange) {
  KxListedEmailAddress leaf(nullptr, "a@b", "a");
  leaf.addMembership(1);
  leaf.lock();
  EXPECT_TRUE(leaf.isLocked());
  EXPECT_FALSE(leaf.addMembership(16));
  EXPECT_FALSE(leaf.addMembership(0));
  EXPECT_FALSE(leaf.removeMembership(1));
  EXPECT_FALSE(leaf.removeMembership(0));
  EXPECT_EQ(leaf.getState(), 1u);
}

TEST_F(ListedAddress, setAnnotationReplacesAndOwnersAreAppended) {
  KxListedEmailAddress leaf(nullptr, "*@b", "*");
  std::string first = "first";
  std::string second = "second";
  EXPECT_TRUE(leaf.setAnnotation("one"));
  EXPECT_TRUE(leaf.setAnnotation("two"));
  EXPECT_TRUE(leaf.addRelatedPolicyOwner(&first));
  EXPECT_TRUE(leaf.addRelatedPolicyOwner(&second));
  EXPECT_EQ(leaf.getAnnotation(), "two");
  EXPECT_THAT(leaf.getRelatedPolicyOwners(), ElementsAre(&first, &second));
  EXPECT_TRUE(leaf.isOwnerless());
  EXPECT_THAT(platform().log.lines(),
              ElementsAre(trace("KxListedEmailAddress::addRelatedPolicyOwner() pNewPolicyOwner=first"),
                          trace("KxListedEmailAddress::addRelatedPolicyOwner() pNewPolicyOwner=second")));
}

// --- Matching names ---

TEST_F(ListedAddress, nameOrWholePatternMatches) {
  for (KxStringtable* either : {&table, static_cast<KxStringtable*>(nullptr)}) {
    const KxListedEmailAddress leaf(either, "user@example.test", "user");
    for (const char* name : {"user", "user@example.test"}) {
      EXPECT_TRUE(leaf.matchName(name)) << name;
      EXPECT_TRUE(leaf.matchName(KxIndexedString(name))) << name;
    }
    for (const char* name : {"", "User", "use", "user@", "example.test", "*"}) {
      EXPECT_FALSE(leaf.matchName(name)) << name;
      EXPECT_FALSE(leaf.matchName(KxIndexedString(name))) << name;
    }
    EXPECT_FALSE(leaf.matchName(kNoText));
  }
}

TEST_F(ListedAddress, frozenNamesMatchByRank) {
  const KxListedEmailAddress leaf(&table, "user@example.test", "user");
  const KxIndexedString* other = table.getStringtableRef("other");
  table.lock();
  EXPECT_TRUE(leaf.matchName(*table.getRef("user")));
  EXPECT_TRUE(leaf.matchName(*table.getRef("user@example.test")));
  EXPECT_FALSE(leaf.matchName(*other));
  // Both have ranks, so the texts are not looked at.
  KxIndexedString sameRank("something else");
  sameRank._setIndex(table.getRef("user")->getIndex());
  EXPECT_TRUE(leaf.matchName(sameRank));
}

TEST_F(ListedAddress, everyNameMatchesAWildcard) {
  const KxIndexedString full("*@example.test");
  const KxWildcardedEmailAddress byText(&table, "*@example.test");
  const KxWildcardedEmailAddress byHandle(nullptr, &full);
  for (const KxWildcardedEmailAddress* leaf : {&byText, &byHandle}) {
    EXPECT_STREQ(leaf->getNameAsStr(), "*");
    EXPECT_STREQ(leaf->getFullAddressAsStr(), "*@example.test");
    EXPECT_EQ(leaf->getWeight(), 4003u);
    const KxListedEmailAddress* base = leaf;
    EXPECT_TRUE(base->matchName("anybody"));
    EXPECT_TRUE(base->matchName(kNoText));
    EXPECT_TRUE(base->matchName(KxIndexedString("")));
  }
  EXPECT_EQ(byText.getNameAsPtr(), table.getRef("*"));
}

// A program's own kind of pattern: any name but one matches.
class AllButOne : public KxWildcardedEmailAddress {
 public:
  AllButOne(KxStringtable* table, const char* fullAddress) : KxWildcardedEmailAddress(table, fullAddress) {}
  bool matchName(const char* name) const override {
    return std::strcmp(name, "postmaster") != 0 && KxWildcardedEmailAddress::matchName(name);
  }
  using KxWildcardedEmailAddress::matchName;
};

TEST_F(ListedAddress, programsMayDeriveFromAWildcard) {
  const AllButOne leaf(&table, "*@example.test");
  const KxListedEmailAddress& base = leaf;
  EXPECT_TRUE(base.matchName("user"));
  EXPECT_FALSE(base.matchName("postmaster"));
}

// --- Weights ---

struct WeightCase {
  const char* pattern;
  unsigned int want;
};

const WeightCase kWeightCases[] = {
    {"user@example.test", 5003},
    {"*@example.test", 4003},
    {"user@*.example.test", 3003},
    {"*@*.example.test", 2003},
    {"user@*", 1001},
    {"*@*", 1},
    {"*", 1},
    {"user@a.b.c.d.e", 5006},
    {"user@", 5002},
    {"@", 5002},
    {"@*", 1001},
    {"*@", 4002},
    {"bare", 5003},
    {"**", 5003},
    {"", 5003},
    {"user@a.*.example.test", 3004},
    {"user@*.*", 1001},
    {"*@a.*", 2002},
    {"user@*a.b", 5003},
    {"user@.", 5003},
    {"user@*.", 3002},
    {"*a@b", 5002},
};

TEST_F(ListedAddress, weightTellsHowSpecificThePatternIs) {
  for (const WeightCase& test : kWeightCases) {
    EXPECT_EQ(slow::weightOf(test.pattern), test.want) << test.pattern;
    const std::unique_ptr<char[]> name(KxIndexedStringNamedClass::_inferName(test.pattern));
    EXPECT_EQ(KxListedEmailAddress(&table, test.pattern, name.get()).getWeight(), test.want) << test.pattern;
    EXPECT_EQ(KxListedEmailAddress(nullptr, test.pattern, name.get()).getWeight(), test.want) << test.pattern;
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(ListedAddress, weightComesFromThePatternNotFromTheName) {
  EXPECT_EQ(KxListedEmailAddress(nullptr, "*@example.test", "user").getWeight(), 4003u);
}

TEST_F(ListedAddress, weightIsTheSameWhenComputedAgain) {
  KxListedEmailAddress leaf(&table, "user@*.example.test", "user");
  table.lock();
  leaf._computeWeight();
  EXPECT_EQ(leaf.getWeight(), 3003u);
}

TEST_F(ListedAddress, labelThatMemoryDidNotSufficeForIsLogged) {
  KxListedEmailAddress leaf(nullptr, "user@a.b", "user");
  // The scratch space comes first, then a handle for each label.
  NothrowAllocationFailure failure(2);
  leaf._computeWeight();
  EXPECT_TRUE(failure.happened());
  EXPECT_THAT(
      platform().log.lines(),
      ElementsAre(error(
          "KxListedEmailAddress::_computeWeight: failed to clean up a piece of the domain : NULL. This object's full address is user@a.b, 0")));
  EXPECT_EQ(leaf.getWeight(), 0u);
}

TEST_F(ListedAddress, locksOnlyItself) {
  KxListedEmailAddress leaf(&table, "a@b", "a");
  leaf.lock();
  EXPECT_TRUE(leaf.isLocked());
  EXPECT_FALSE(table.isLocked());
}

TEST_F(ListedAddress, goesSilently) {
  {
    const KxListedEmailAddress overTable(&table, "a@b", "a");
    const KxListedEmailAddress floating(nullptr, "a@b", "a");
    const KxListedEmailAddress without(nullptr, kNoHandle, kNoHandle);
    platform().log.clear();
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

// A deep copy whose text is gone is the one handle whose release fails.
class Damaged : public KxIndexedStringNamedClass {
 public:
  explicit Damaged(const KxIndexedString* name) : KxIndexedStringNamedClass(nullptr, kNoHandle) { _name = name; }
};

const KxIndexedString* deepCopyWithoutText() {
  auto* handle = new KxIndexedString(nullptr);
  handle->_setIndex(kDeepCopy);
  return handle;
}

TEST_F(ListedAddress, nameThatCannotBeReleasedIsLogged) {
  { const Damaged named(nullptr); }
  EXPECT_THAT(platform().log.lines(),
              Contains(error("~KxIndexedStringNamedClass: Failed to cleanup _name reference: NULL")));
  { const Damaged named(deepCopyWithoutText()); }
  EXPECT_THAT(platform().log.lines(),
              Contains(error("~KxIndexedStringNamedClass: Failed to cleanup _name reference: NULL , 4294967295")));
}

// A private member, which an explicit instantiation may name.
template <const KxIndexedString* KxListedEmailAddress::*kMember>
struct AccessTo {
  friend const KxIndexedString*& patternOf(KxListedEmailAddress& leaf) { return leaf.*kMember; }
};
const KxIndexedString*& patternOf(KxListedEmailAddress& leaf);
template struct AccessTo<&KxListedEmailAddress::_fullAddress>;

TEST_F(ListedAddress, patternThatCannotBeReleasedIsLogged) {
  for (const bool isMissing : {true, false}) {
    platform().log.clear();
    {
      KxListedEmailAddress leaf(nullptr, "user@example.test", "user");
      KxStringtable::cleanupReference(patternOf(leaf));
      patternOf(leaf) = isMissing ? nullptr : deepCopyWithoutText();
    }
    EXPECT_THAT(platform().log.lines(),
                ElementsAre(error(
                    isMissing ? "~KxListedEmailAddress: Failed to cleanup _fullAddress reference: NULL"
                              : "~KxListedEmailAddress: Failed to cleanup _fullAddress reference: NULL , 4294967295")));
  }
}

TEST_F(ListedAddress, accessorsOfAMissingNameGiveTheEmptyHandleAndANullText) {
  const Damaged named(nullptr);
  EXPECT_EQ(named.getNameAsPtr(), &KxStringtable::_theEmptyIndexedString);
  EXPECT_EQ(&named.getName(), &KxStringtable::_theEmptyIndexedString);
  EXPECT_EQ(named.getNameAsStr(), nullptr);
}

}  // namespace
