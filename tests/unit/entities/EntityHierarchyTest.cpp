// Which entities contain which, walked both ways.
#include <algorithm>

#include "EntityTest.h"
#include "KxWildcardEmail.h"
#include "NothrowAllocationFailure.h"
#include "ProcessTest.h"
#include "TurkishLocales.h"
#include "scripted/Prelude.h"

namespace {

using zarotest::entity;
using zarotest::EntitySet;
using zarotest::shownAll;
using zarotest::wildcards;

std::vector<std::string> names(const EntitySet& entities) {
  std::vector<std::string> texts;
  for (const GroupEntity& entity : entities) {
    texts.push_back(entity.name);
  }
  return texts;
}

class Hierarchy : public PlatformTest {
 protected:
  int children(const char* root, bool removeFound = false) {
    return EntityUtils::getAllWildcardChildren(root, m_entities, m_found, removeFound);
  }
  int parents(const char* root, bool removeFound = false) {
    return EntityUtils::getAllWildcardParents(root, m_entities, m_found, removeFound);
  }

  EntitySet m_entities;
  EntitySet m_found;
};

// --- Children ---

TEST_F(Hierarchy, childrenAreContainedInTheRoot) {
  m_entities = wildcards({"*@*.example.test", "*@a.example.test", "user@a.example.test", "*@example.test", "*@b.test"});
  EXPECT_EQ(children("*@*.example.test"), 0);
  EXPECT_THAT(names(m_found), ElementsAre("*@a.example.test", "user@a.example.test"));
  EXPECT_THAT(m_entities, testing::SizeIs(5));
  m_found.clear();
  EXPECT_EQ(children("*@*"), 0);
  EXPECT_THAT(names(m_found),
              ElementsAre("*@*.example.test", "*@a.example.test", "*@b.test", "*@example.test", "user@a.example.test"));
}

TEST_F(Hierarchy, childrenAreTracedInTheirOrder) {
  m_entities = wildcards({"*@b.test", "user@b.test", "*@c.test"});
  EXPECT_EQ(children("*@b.test"), 0);
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace("Checking if entity *@c.test is a child of *@b.test returned 0 matches"),
                      trace("Checking if entity user@b.test is a child of *@b.test returned 1 matches"),
                      trace("1: entity user@b.test")}));
}

TEST_F(Hierarchy, rootIsPassedOverAsChildOnlyWhenSpelledAlike) {
  m_entities = wildcards({"user@b.test", "USER@b.test"});
  EXPECT_EQ(children("user@b.test"), 0);
  EXPECT_THAT(names(m_found), ElementsAre("USER@b.test"));
}

TEST_F(Hierarchy, foundIsAddedTo) {
  m_entities = wildcards({"user@b.test"});
  m_found = wildcards({"there"});
  EXPECT_EQ(children("*@b.test"), 0);
  EXPECT_EQ(parents("none@b.test"), 0);
  EXPECT_THAT(names(m_found), ElementsAre("there", "user@b.test"));
}

TEST_F(Hierarchy, foundEntitiesKeepTypeAndIdentifier) {
  m_entities.insert(entity(77, 0, "user@b.test"));
  EXPECT_EQ(children("*@b.test"), 0);
  EXPECT_THAT(shownAll(m_found), ElementsAre("77 0 user@b.test"));
  m_found.clear();
  m_entities.insert(entity(78, 2, "*@b.test"));
  EXPECT_EQ(parents("user@b.test"), 0);
  EXPECT_THAT(shownAll(m_found), ElementsAre("78 2 *@b.test"));
}

TEST_F(Hierarchy, foundChildrenAreRemovedOnRequest) {
  m_entities = wildcards({"user@b.test", "*@c.test", "other@b.test"});
  EXPECT_EQ(children("*@b.test", true), 0);
  EXPECT_THAT(names(m_entities), ElementsAre("*@c.test"));
  EXPECT_THAT(names(m_found), ElementsAre("other@b.test", "user@b.test"));
}

TEST_F(Hierarchy, nullRootIs1004) {
  m_entities = wildcards({"user@b.test"});
  EXPECT_EQ(children(nullptr), 1004);
  EXPECT_EQ(parents(nullptr), 1004);
  EXPECT_EQ(platform().log.lines(), (LogLines{error("EntityUtils::getAllWildcardChildren: NULL rootEntity parameter"),
                                              error("EntityUtils::getAllWildcardParents: NULL rootEntity parameter")}));
}

TEST_F(Hierarchy, nobodyHasNoRelatives) {
  EXPECT_EQ(children("*@*"), 0);
  EXPECT_EQ(parents("*@*"), 0);
  EXPECT_EQ(platform().log.lines(), (LogLines{trace("No entities to add"), trace("No entities to add")}));
  EXPECT_THAT(m_found, IsEmpty());
}

// Runs `operation` with the first allocation failing, then the second, and so on until none is left to fail.
template <typename Operation>
void withEachAllocationFailing(Operation operation) {
  for (int allocation = 1;; ++allocation) {
    platform().log.clear();
    const NothrowAllocationFailure failure(allocation);
    operation();
    if (!failure.happened()) {
      return;
    }
  }
}

TEST_F(Hierarchy, rootThatCannotBeAddedIs1007) {
  m_entities = wildcards({"user@b.test"});
  int refused = 0;
  withEachAllocationFailing([&] {
    const int status = children("*@b.test");
    const auto errors = platform().log.texts(LogLevel::Error);
    const auto line =
        "EntityUtils::getAllWildcardChildren: KxWildcardNode::addAddressPattern failed for *@b.test "
        "(rootEntity)";
    EXPECT_EQ(status == 1007, std::count(errors.begin(), errors.end(), line) == 1);
    EXPECT_TRUE(status == 0 || status == 1007) << status;
    refused += status == 1007 ? 1 : 0;
  });
  EXPECT_GE(refused, 2) << "for want of a tree, and of memory for the pattern";
}

// --- Parents ---

TEST_F(Hierarchy, entityThatCannotBeAddedIsPassedOver) {
  m_entities = wildcards({"*@*", "*@b.test"});
  int passedOver = 0;
  withEachAllocationFailing([&] {
    m_found.clear();
    EXPECT_EQ(parents("user@b.test"), 0);
    const auto errors = platform().log.texts(LogLevel::Error);
    const auto line = "EntityUtils::getAllWildcardParents: KxWildcardNode::addAddressPattern failed for *@*";
    if (std::count(errors.begin(), errors.end(), line) == 1 && names(m_found) == std::vector<std::string>{"*@b.test"}) {
      ++passedOver;
    }
  });
  EXPECT_GE(passedOver, 1);
}

TEST_F(Hierarchy, parentsContainTheRoot) {
  m_entities = wildcards({"*@*", "*@*.example.test", "*@a.example.test", "*@example.test", "user@*", "other@*"});
  EXPECT_EQ(parents("user@a.example.test"), 0);
  EXPECT_THAT(names(m_found), ElementsAre("*@*", "*@*.example.test", "*@a.example.test", "user@*"));
}

TEST_F(Hierarchy, parentsAreTracedWithTheirNumbers) {
  m_entities = wildcards({"*@b.test", "user@b.test", "*@c.test"});
  EXPECT_EQ(parents("USER@b.test"), 0);
  const auto lines = platform().log.lines();
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], trace("Adding entity *@b.test to KxWildcardNode"));
  EXPECT_EQ(lines[1], trace("Adding entity *@c.test to KxWildcardNode"));
  EXPECT_EQ(lines[2], trace("Adding entity user@b.test to KxWildcardNode"));
  EXPECT_EQ(lines[3], trace("Found 2 matches"));
  EXPECT_EQ(lines[4], trace("2: entity *@b.test")) << "the root is number 1";
}

TEST_F(Hierarchy, rootIsPassedOverAsParentInAnyCase) {
  m_entities = wildcards({"USER@b.test"});
  EXPECT_EQ(parents("user@B.TEST"), 0);
  EXPECT_THAT(m_found, IsEmpty());
}

TEST_F(Hierarchy, rootIsPassedOverAsParentInAnyLocale) {
  const zarotest::TurkishLocales locales;
  for (const char* name : zarotest::TurkishLocales::kNames) {
    SCOPED_TRACE(name);
    runInOwnProcess([&] {
      zarotest::setCtype(name);
      m_entities = wildcards({"info@b.test", "*@b.test"});
      EXPECT_EQ(parents("INFO@b.test"), 0);
      EXPECT_THAT(names(m_found), ElementsAre("*@b.test"));
    });
  }
}

TEST_F(Hierarchy, parentWithoutAnEntityOfItsNameIs1002) {
  // Labels left of a wildcard do not tell patterns apart, so the text of the one that came first is found for both.
  m_entities = wildcards({"*@x.*.b.test", "*@A.test"});
  EXPECT_EQ(parents("user@a.test", true), 1002) << "patterns are kept in lower case";
  EXPECT_THAT(platform().log.texts(LogLevel::Error),
              ElementsAre("EntityUtils::getAllWildcardParents: Could not find *@a.test in map"));
  EXPECT_THAT(m_entities, testing::SizeIs(2)) << "nothing is removed";
}

TEST_F(Hierarchy, foundParentsAreRemovedOnRequest) {
  m_entities = wildcards({"*@b.test", "user@b.test", "*@*"});
  EXPECT_EQ(parents("user@b.test", true), 0);
  EXPECT_THAT(names(m_entities), ElementsAre("user@b.test"));
}

TEST_F(Hierarchy, withoutATreeThereAreNoParents) {
  m_entities = wildcards({"*@*"});
  const NothrowAllocationFailure failure;
  EXPECT_EQ(parents("user@b.test"), 0);
  EXPECT_TRUE(failure.happened());
  EXPECT_THAT(m_found, IsEmpty());
}

// --- LDAP groups ---

TEST_F(Hierarchy, ldapGroupsHaveNoRelatives) {
  m_entities = wildcards({"cn=a", "cn=b"});
  EXPECT_EQ(EntityUtils::getAllLdapChildren("cn=a", m_entities, m_found, true), 0);
  EXPECT_EQ(EntityUtils::getAllLdapParents("cn=a", m_entities, m_found, true), 0);
  EXPECT_EQ(EntityUtils::getAllLdapChildren(nullptr, m_entities, m_found, true), 0);
  EXPECT_THAT(names(m_entities), ElementsAre("cn=a", "cn=b"));
  EXPECT_THAT(m_found, IsEmpty());
  EXPECT_EQ(platform().log.lines(), (LogLines{trace("EntityUtils::getAllLdapChildren: checking root entity cn=a\n"),
                                              trace("EntityUtils::getAllLdapParents: rootEntity: cn=a\n"),
                                              trace("EntityUtils::getAllLdapChildren: checking root entity (null)\n")}));
}

// --- Removing ---

TEST_F(Hierarchy, foundEntitiesAreRemovedByName) {
  m_entities = wildcards({"a", "b", "c"});
  m_found = {entity(50, 0, "c"), entity(51, 0, "a"), entity(52, 0, "z")};
  EntityUtils::_removeFoundEntities(m_entities, m_found);
  EXPECT_THAT(names(m_entities), ElementsAre("b"));
  EXPECT_EQ(m_found.size(), 3u);
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace("Removing found entry a from the map"), trace("Removing found entry c from the map")}));
}

TEST_F(Hierarchy, nothingFoundRemovesNothing) {
  m_entities = wildcards({"a"});
  EntityUtils::_removeFoundEntities(m_entities, m_found);
  EXPECT_THAT(names(m_entities), ElementsAre("a"));
}

// --- Thrown-away trees ---

TEST_F(Hierarchy, canBeAskedForManyTimes) {
  m_entities = wildcards({"*@b.test", "user@b.test", "*@*"});
  for (int i = 0; i < 5000; ++i) {
    ASSERT_EQ(children("*@b.test"), 0);
    ASSERT_EQ(parents("user@b.test"), 0);
    platform().log.clear();
    platform().calls.clear();
  }
  EXPECT_THAT(names(m_found), ElementsAre("*@*", "*@b.test", "user@b.test"));
}

// In a process that never freezes: what is gone leaves the queue, and a text is in the table once.
TEST_F(Hierarchy, manyQuestionsKeepABoundedQueue) {
  std::vector<std::string> patterns;
  for (int number = 1; number <= 1000; ++number) {
    patterns.push_back("*@host" + std::to_string(number) + ".test");
  }
  EntitySet entities = wildcards(patterns);
  const auto ask = [&] {
    EntitySet found;
    EXPECT_EQ(EntityUtils::getAllWildcardParents("user@host7.test", entities, found, false), 0);
    EXPECT_EQ(names(found), std::vector<std::string>{"*@host7.test"});
    platform().log.clear();
  };
  ask();
  const std::size_t texts = KxWildcardEmail::_defaultScanTimeStringtable.size();
  const std::size_t queuedBefore = KxWildcardEmail::_lockOnInit.size();
  std::size_t most = 0;
  std::size_t last = queuedBefore;
  bool shrank = false;
  for (int question = 0; question < 100 && !shrank; ++question) {
    ask();
    const std::size_t queued = KxWildcardEmail::_lockOnInit.size();
    shrank = queued < last;
    most = std::max(most, queued);
    last = queued;
  }
  EXPECT_TRUE(shrank);
  EXPECT_LT(most, 2 * 65536 + queuedBefore);
  EXPECT_EQ(KxWildcardEmail::_defaultScanTimeStringtable.size(), texts);
}

// --- Membership by text ---

struct Membership {
  const char* group;
  const char* address;
  bool isMember;
  bool isWarned;
};

const Membership kMemberships[] = {
    {"*", "anything", true, false},
    {"*@*", "no address", true, false},
    {"*@*", "", true, false},
    // local parts
    {"user@example.test", "user@example.test", true, false},
    {"user@example.test", "USER@Example.TEST", true, false},
    {"user@example.test", "users@example.test", false, false},
    {"users@example.test", "user@example.test", false, false},
    {"user@example.test", "user", false, true},
    {"user", "user@example.test", false, true},
    {"user", "user", false, true},
    {"", "user@example.test", false, true},
    {"user@example.test", "", false, true},
    {"example.test", "user@example.test", false, false},
    {"us*@example.test", "user@example.test", false, false},
    {"us*@example.test", "us*@example.test", true, false},
    {"*er@example.test", "anybody@example.test", true, false},
    {"*@example.test", "*@example.test", true, false},
    // domains
    {"user@example.test", "user@example.org", false, false},
    {"*@example.test", "user@a.example.test", false, false},
    {"*@a.example.test", "user@example.test", false, false},
    {"*@*.example.test", "user@a.example.test", true, false},
    {"*@*.example.test", "user@b.a.example.test", true, false},
    {"*@*.example.test", "user@example.test", false, false},
    {"user@*", "user@example.test", true, false},
    {"user@*", "user@", false, false},
    {"*@*.example.test", "user@.example.test", false, false},
    {"*@a*.example.test", "a@.example.test", false, false},
    {"*@x*.test", "user@other.test", true, false},
    {"*@x*a.test", "user@ya.test", true, false},
    // the "@" is not where it ends the walk
    {"*.test", "user@example.test", false, true},
    {"*@example.test", "example.test", false, true},
    {"*@example.test", "@example.test", false, true},
    {"@example.test", "@example.test", false, true},
    {"*@example.test", "t", false, true},
    {"*@example.test", "", false, true},
};

TEST_F(Hierarchy, membershipIsDecidedByTheTexts) {
  for (const Membership& c : kMemberships) {
    SCOPED_TRACE(std::string(c.group) + " " + c.address);
    platform().log.clear();
    EXPECT_EQ(EntityUtils::MemberOfWildCardGroup(c.group, c.address), c.isMember);
    LogLines expected;
    if (c.isWarned) {
      expected.push_back(warning(std::string("[WARNING]EntityUtils::MemberOfWildCardGroup: missing @ in ") + c.address +
                                 " or " + c.group));
    }
    EXPECT_EQ(platform().log.lines(), expected);
  }
}

TEST_F(Hierarchy, everybodyIsMemberOfNull) {
  EXPECT_TRUE(EntityUtils::MemberOfWildCardGroup(nullptr, "user@example.test"));
  EXPECT_TRUE(EntityUtils::MemberOfWildCardGroup("*@b.test", nullptr));
  const auto line = error("[ERROR]EntityUtils::MemberOfWildCardGroup: NULL group or email addr.");
  EXPECT_EQ(platform().log.lines(), (LogLines{line, line}));
}

}  // namespace
