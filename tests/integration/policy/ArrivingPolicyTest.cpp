#include "policy/ArrivingPolicy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "policy/PolicyError.h"
#include "policy/PolicyGeneration.h"
#include "policy/PolicyMaker.h"

namespace {

using testing::ElementsAre;

// Hands on some pieces, and then an exception if there is a text for it.
ReadMembers pieces(std::vector<MemberPiece> all, const std::string& failure = "") {
  return [left = std::move(all), next = std::size_t{0}, failure]() mutable -> std::optional<MemberPiece> {
    if (next != left.size()) {
      return left[next++];
    }
    return failure.empty() ? std::nullopt : throw std::runtime_error(failure);
  };
}

// With the groups 1, 2, 3 and 9.
MailPolicy withoutMembers() {
  MailPolicy policy;
  policy.version = 7;
  policy.groups = {{1, "one", {}}, {2, "two", {}}, {3, "three", {}}, {9, "nine", {}}};
  return policy;
}

TEST(ArrivingPolicy, isThereWhenItIsMadeOfAWholeOne) {
  MailPolicy policy = withoutMembers();
  policy.groups[1].members = {"a@b.test"};
  ArrivingPolicy arrived(policy);
  EXPECT_FALSE(arrived.waitForMembersOf(2));
  EXPECT_THAT(arrived.soFar().groups[1].members, ElementsAre("a@b.test"));
  EXPECT_THAT(arrived.whole().groups[1].members, ElementsAre("a@b.test"));
}

TEST(ArrivingPolicy, waitsForAGroupNoLongerThanItsMembersCome) {
  ArrivingPolicy policy(withoutMembers(),
                        pieces({{{1, {"a"}}, {2, {"b"}}}, {{2, {"c"}}}, {{2, {"d"}}, {9, {"e"}}}, {{9, {"f"}}}}));
  const std::vector<MailPolicy::Group>& groups = policy.soFar().groups;
  EXPECT_TRUE(policy.waitForMembersOf(1));
  EXPECT_FALSE(policy.waitForMembersOf(1)) << "the next group has begun";
  EXPECT_THAT(groups[1].members, ElementsAre("b"));
  EXPECT_TRUE(policy.waitForMembersOf(2));
  EXPECT_THAT(groups[1].members, ElementsAre("b", "c"));
  EXPECT_FALSE(policy.waitForMembersOf(3)) << "it has none";
  EXPECT_FALSE(policy.waitForMembersOf(2));
  EXPECT_THAT(groups[3].members, ElementsAre("e"));
  EXPECT_TRUE(policy.waitForMembersOf(9));
  EXPECT_FALSE(policy.waitForMembersOf(9));
  EXPECT_THAT(groups[0].members, ElementsAre("a"));
  EXPECT_THAT(groups[1].members, ElementsAre("b", "c", "d"));
  EXPECT_THAT(groups[2].members, ElementsAre());
  EXPECT_THAT(groups[3].members, ElementsAre("e", "f"));
}

TEST(ArrivingPolicy, waitsForTheNextGroupWhereOneEndsWithAPiece) {
  ArrivingPolicy policy(withoutMembers(), pieces({{{1, {"a"}}}, {{2, {"b"}}}}));
  EXPECT_TRUE(policy.waitForMembersOf(1));
  EXPECT_FALSE(policy.waitForMembersOf(1));
  EXPECT_THAT(policy.soFar().groups[1].members, ElementsAre("b"));
}

TEST(ArrivingPolicy, refusesMembersOfNoGroup) {
  for (const unsigned int group : {0U, 4U, 10U}) {
    ArrivingPolicy policy(withoutMembers(), pieces({{{group, {"a"}}}, {{9, {"b"}}}}));
    for (int time = 1; time <= 2; ++time) {
      try {
        policy.whole();
        FAIL() << group << ", time " << time;
      } catch (const UnreadablePolicy& refusal) {
        EXPECT_EQ(refusal.version(), 7u);
        EXPECT_EQ(refusal.what(), "the stored policy has members of the address group " + std::to_string(group) +
                                      ", which is not there");
      }
    }
  }
}

TEST(ArrivingPolicy, throwsWhatReadingThrows) {
  ArrivingPolicy policy(withoutMembers(), pieces({{{1, {"a"}}}}, "the database has gone"));
  EXPECT_TRUE(policy.waitForMembersOf(1));
  EXPECT_THROW(policy.waitForMembersOf(1), std::runtime_error);
  EXPECT_THROW(policy.whole(), std::runtime_error);
}

TEST(ArrivingPolicy, tellsThatMemoryRanOutInTheThreadThatReads) {
  ArrivingPolicy policy(withoutMembers(), []() -> std::optional<MemberPiece> { throw std::bad_alloc(); });
  EXPECT_THROW(policy.whole(), std::bad_alloc);
  EXPECT_THROW(policy.whole(), std::bad_alloc);
}

TEST(ArrivingPolicy, keepsWhatReadsNoLongerThanMembersCome) {
  const auto connection = std::make_shared<int>();
  ArrivingPolicy policy(withoutMembers(), [connection] { return std::optional<MemberPiece>(); });
  policy.whole();
  EXPECT_EQ(connection.use_count(), 1);
}

// --- A generation that is made meanwhile ---

// Three groups of several thousand members, in pieces that end anywhere; the last group is in no rule.
struct LargePolicy {
  LargePolicy() {
    for (const unsigned int group : {1U, 2U, 3U}) {
      maker.group("group " + std::to_string(group), {});
    }
    maker.rule("block", {{1, 2}}, {"Delete"});
    maker.rule("allow", {{2, 1}, {1, 2}}).recipients = 2;
    for (unsigned int number = 0; number != 15000; ++number) {
      const unsigned int group = 1 + number / 5000;
      if (number % 700 == 0) {
        all.emplace_back();
      }
      if (all.back().empty() || all.back().back().group != group) {
        all.back().push_back({group, {}});
      }
      all.back().back().members.add("u" + std::to_string(number) + "@c.test");
    }
  }

  MailPolicy whole() {
    MailPolicy policy = maker.policy();
    for (const MemberPiece& piece : all) {
      addMembers(policy, piece);
    }
    return policy;
  }

  PolicyMaker maker;
  std::vector<MemberPiece> all;
};

TEST(ArrivingPolicy, makesTheGenerationOfTheWholeOne) {
  LargePolicy large;
  const PolicyGeneration expected(large.whole());
  ArrivingPolicy policy(large.maker.policy(), pieces(large.all));
  const PolicyGeneration generation(policy);
  EXPECT_EQ(expected.senderPatterns(), 15000u);
  EXPECT_EQ(generation.senderPatterns(), expected.senderPatterns());
  EXPECT_EQ(generation.recipientPatterns(), expected.recipientPatterns());
  for (unsigned int number = 0; number != 15000; ++number) {
    std::vector<std::size_t> applicable;
    std::vector<std::size_t> expectedRules;
    const std::string address = "u" + std::to_string(number) + "@c.test";
    generation.findApplicable(address, applicable);
    expected.findApplicable(address, expectedRules);
    ASSERT_EQ(applicable, expectedRules) << address;
    for (const std::size_t rule : {0, 1}) {
      std::vector<KxListedEmailAddress*> leaves;
      ASSERT_TRUE(generation.treeOf(rule)->findAllMatches(address.c_str(), leaves));
      ASSERT_EQ(leaves.size(), number < (rule == 0 ? 5000 : 10000) ? 1u : 0u) << address;
    }
  }
  EXPECT_EQ(policy.soFar().groups[2].members.size(), 5000u) << "all is there, for what is kept on disk";
}

TEST(ArrivingPolicy, makesNoGenerationOfOneThatCannotBeReadToItsEnd) {
  LargePolicy large;
  for (const std::size_t readable : {std::size_t{0}, std::size_t{3}, large.all.size()}) {
    const std::vector<MemberPiece> some(large.all.begin(), large.all.begin() + static_cast<std::ptrdiff_t>(readable));
    ArrivingPolicy policy(large.maker.policy(), pieces(some, "the database has gone"));
    EXPECT_THROW(PolicyGeneration generation(policy), std::runtime_error) << readable;
  }
}

}  // namespace
