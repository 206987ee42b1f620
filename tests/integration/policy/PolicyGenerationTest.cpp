// A generation of the policy: what it refuses, and what it costs to ask.
#include "policy/PolicyGeneration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "FailingAllocations.h"
#include "policy/Decider.h"
#include "policy/PolicyMaker.h"

namespace {

struct Wrong {
  const char* label;
  std::function<void(PolicyMaker&)> spoil;
  std::string reason;
};

PolicyMaker soundPolicy() {
  PolicyMaker maker;
  const unsigned int spam = maker.group("spam", {"*@spam.test"});
  maker.entity("*@example.test");
  maker.area("Area");
  maker.rule("rule", {{spam, 2}}, {"Delete"}).id = 7;
  return maker;
}

MailPolicy::Rule& ruleOf(PolicyMaker& maker) {
  return maker.policy().rules.front();
}

const Wrong kWrong[] = {
    {"missing list", [](PolicyMaker& maker) { ruleOf(maker).lists[0].group = 9; },
     "rule 7 (\"rule\") refers to the address group 9, which is not there"},
    {"missing recipients", [](PolicyMaker& maker) { ruleOf(maker).recipients = 9; },
     "rule 7 (\"rule\") refers to the address group 9, which is not there"},
    {"missing scope", [](PolicyMaker& maker) { ruleOf(maker).scope = 9; },
     "rule 7 (\"rule\") refers to the wildcard managing group 9, which is not there"},
    {"missing area", [](PolicyMaker& maker) { ruleOf(maker).quarantine = 9; },
     "rule 7 (\"rule\") refers to the quarantine area 9, which is not there"},
    {"no area",
     [](PolicyMaker& maker) {
       maker.policy().objects[0].type = 2;
       ruleOf(maker).quarantine = 1;
     },
     "rule 7 (\"rule\") refers to object 1, which is no quarantine area"},
    {"unknown kind", [](PolicyMaker& maker) { ruleOf(maker).lists[0].kind = 3; },
     "rule 7 (\"rule\") has a list of kind 3, which is no kind"},
    {"unknown comparison", [](PolicyMaker& maker) { ruleOf(maker).compare = MailPolicy::Compare(4); },
     "rule 7 (\"rule\") compares 4, which is nothing known"},
    {"no bitmap", [](PolicyMaker& maker) { ruleOf(maker).actions = "1"; }, "rule 7 (\"rule\"): \"1\" is no action bitmap"},
    {"unknown position", [](PolicyMaker& maker) { ruleOf(maker).actions = "00100000000000000"; },
     "rule 7 (\"rule\"): the action bitmap \"00100000000000000\" has a position set that stands for no action"},
    {"what no filter can do", [](PolicyMaker& maker) { ruleOf(maker).actions = "00000010000000000"; },
     "rule 7 (\"rule\") wants Stamped, which a mail filter cannot do"},
    {"no address", [](PolicyMaker& maker) { ruleOf(maker).actions = "00000100000000000"; },
     "rule 7 (\"rule\"): Readdress needs an address"},
    {"what is no address",
     [](PolicyMaker& maker) {
       ruleOf(maker).actions = "00000100000000000";
       ruleOf(maker).address = "a@b.test,c@d.test";
     },
     "rule 7 (\"rule\"): Readdress needs an address, which \"a@b.test,c@d.test\" is not"},
    {"a tag of two lines", [](PolicyMaker& maker) { ruleOf(maker).tag = "a\r\nBcc: b@c.test"; },
     "rule 7 (\"rule\") has a control character in \"a\r\nBcc: b@c.test\""},
    {"two of one position", [](PolicyMaker& maker) { maker.rule("other", {}).position = 1; },
     "rule 2 (\"other\") has the position of another rule"},
    {"two groups of one identifier",
     [](PolicyMaker& maker) {
       maker.policy().groups.push_back({1, "twin", {}});
     },
     "the policy has two address groups with the identifier 1"},
};

TEST(PolicyGeneration, refusesWhatItCannotApply) {
  for (const Wrong& wrong : kWrong) {
    PolicyMaker maker = soundPolicy();
    wrong.spoil(maker);
    try {
      const PolicyGeneration generation(maker.policy());
      ADD_FAILURE() << wrong.label << " is taken";
    } catch (const PolicyError& error) {
      EXPECT_EQ(std::string(error.what()), wrong.reason) << wrong.label;
    }
  }
}

TEST(PolicyGeneration, hasEveryRuleToldThatItCouldNotApply) {
  PolicyMaker maker = soundPolicy();
  EXPECT_THAT(unusableRules(maker.policy()), testing::IsEmpty());
  maker.rule("broken", {}, {"Readdress"});
  maker.rule("right", {});
  maker.rule("broken too", {{9, 2}});
  maker.rule("broken and disabled", {}, {"Readdress"}).enabled = false;
  EXPECT_THAT(unusableRules(maker.policy()),
              testing::ElementsAre("rule 2 (\"broken\"): Readdress needs an address",
                                   "rule 4 (\"broken too\") refers to the address group 9, which is not there"));
}

TEST(PolicyGeneration, doesNotLookAtDisabledRules) {
  PolicyMaker maker = soundPolicy();
  ruleOf(maker).lists[0].group = 9;
  ruleOf(maker).enabled = false;
  EXPECT_TRUE(PolicyGeneration(maker.policy()).rules().empty());
}

TEST(PolicyGeneration, doesNotLookAtAnAddressThatNoActionTakes) {
  PolicyMaker maker = soundPolicy();
  ruleOf(maker).address = "a@b.test,c@d.test";
  EXPECT_EQ(PolicyGeneration(maker.policy()).rules().size(), 1u);
}

TEST(PolicyGeneration, warnsOfAPatternWithKindsThatExcludeEachOther) {
  PolicyMaker maker;
  const unsigned int one = maker.group("one", {"a@b.test", "c@d.test"});
  maker.rule("both", {{one, 1}, {one, 2}});
  const PolicyGeneration generation(maker.policy());
  ASSERT_EQ(generation.warnings().size(), 1u);
  EXPECT_EQ(generation.warnings()[0].rfind("2 patterns stand in lists of one rule", 0), 0u) << generation.warnings()[0];
  const MailFilterOptions options;
  EXPECT_EQ(Decider(generation, options).decide({"a@b.test", std::nullopt, "x@y.test"}).code, 1);
}

TEST(PolicyGeneration, sharesTheTreesOfRulesWithTheSameLists) {
  PolicyMaker maker;
  const unsigned int one = maker.group("one", {"a@b.test"});
  const unsigned int two = maker.group("two", {"c@d.test"});
  for (int number = 0; number != 100; ++number) {
    maker.rule("alike", {{one, 1}, {two, 2}});
  }
  maker.rule("other kinds", {{one, 2}, {two, 1}});
  maker.rule("no lists", {});
  EXPECT_EQ(PolicyGeneration(maker.policy()).trees(), 2u);
}

// Every spelling of a scope is one scope.
TEST(PolicyGeneration, takesSpellingsOfAScopeAsOne) {
  PolicyMaker maker;
  const unsigned int all = maker.group("all", {"*"});
  for (const char* pattern : {"*@*.b.test", "*@x.*.b.test", "*@*.B.test"}) {
    maker.rule(pattern, {{all, 2}}).scope = maker.entity(pattern);
  }
  for (const char* pattern : {"*", "*@*", "user", "user@.user", "a@c.test"}) {
    maker.rule(pattern, {{all, 2}}).scope = maker.entity(pattern);
  }
  const PolicyGeneration generation(maker.policy());
  std::vector<std::size_t> applicable;
  generation.findApplicable("a@c.b.test", applicable);
  EXPECT_EQ(applicable, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
  generation.findApplicable("user", applicable);
  EXPECT_EQ(applicable, (std::vector<std::size_t>{3, 4, 5, 6}));
  generation.findApplicable("a@c.test", applicable);
  EXPECT_EQ(applicable, (std::vector<std::size_t>{3, 4, 7}));
}

// Trees take patterns as C strings, so that both are one there.
TEST(PolicyGeneration, takesAPatternUpToItsNul) {
  PolicyMaker maker;
  const unsigned int all = maker.group("all", {"*"});
  for (const char* tail : {"x", "y", "z"}) {
    const std::string pattern = std::string("a@c.test") + '\0' + tail;
    maker.rule(tail, {{all, 2}}).recipients = maker.group(tail, {pattern});
  }
  const PolicyGeneration generation(maker.policy());
  std::vector<std::size_t> applicable;
  generation.findApplicable("a@c.test", applicable);
  EXPECT_EQ(applicable, (std::vector<std::size_t>{0, 1, 2}));
}

// --- What a recipient costs ---

enum class Narrowed { Not, ByOneGroup, ByGroupsOfTheirOwn };

// Rules for domains of their own, of which one contains the recipient, and one rule for all.
std::size_t visitedAmong(unsigned int rules, Narrowed narrowed) {
  PolicyMaker maker;
  const unsigned int spam = maker.group("spam", {"*@spam.test"});
  const unsigned int one = maker.group("recipients", {"ann@d0.test"});
  for (unsigned int number = 0; number != rules; ++number) {
    const std::string domain = "d" + std::to_string(number) + ".test";
    const unsigned int own = maker.group("own", {"ann@" + domain});
    MailPolicy::Rule& rule = maker.rule("rule", {{spam, 2}});
    if (narrowed == Narrowed::ByGroupsOfTheirOwn) {
      rule.recipients = own;  // of everybody
      continue;
    }
    rule.scope = maker.entity("*@" + domain);
    if (narrowed == Narrowed::ByOneGroup) {
      rule.recipients = one;
    }
  }
  maker.rule("all", {{spam, 2}});
  const PolicyGeneration generation(maker.policy());
  const MailFilterOptions options;
  DecisionExplanation explanation;
  Decider(generation, options).explain({"x@spam.test", std::nullopt, "ann@d0.test"}, explanation);
  EXPECT_EQ(explanation.rules.size(), 2u);
  return explanation.visited;
}

TEST(PolicyGeneration, findsAFewRulesAmongManyAsAmongFew) {
  for (const Narrowed narrowed : {Narrowed::Not, Narrowed::ByOneGroup, Narrowed::ByGroupsOfTheirOwn}) {
    const std::size_t few = visitedAmong(10, narrowed);
    EXPECT_LE(few, 10u) << static_cast<int>(narrowed);
    EXPECT_EQ(visitedAmong(10000, narrowed), few) << static_cast<int>(narrowed);
  }
}

TEST(PolicyGeneration, takesEverythingAlong) {
  PolicyMaker maker;
  maker.rule("rule", {{maker.group("group", {"a@b.test"}), 2}});
  const MailFilterOptions options;
  for (int round = 0; round != 3; ++round) {
    auto old = std::make_unique<PolicyGeneration>(maker.policy());
    const PolicyGeneration next(maker.policy());
    old.reset();
    EXPECT_EQ(Decider(next, options).decide({"a@b.test", std::nullopt, "x@y.test"}).code, 2);
  }
}

// A pattern that was left out would let mail pass that is to be refused.
TEST(PolicyGeneration, hasEveryPatternOrIsNotMadeWhereMemoryRunsOut) {
  PolicyMaker maker;
  const std::vector<std::string> senders = {"a@b.test", "*@*.c.test", "user@d.test"};
  const unsigned int blocked = maker.group("blocked", senders);
  const unsigned int more = maker.group("more", {"*@e.test"});
  MailPolicy::Rule& rule = maker.rule("rule", {{blocked, 2}, {more, 2}});
  rule.scope = maker.entity("*@*.example.test");
  rule.recipients = maker.group("recipients", {"ann@x.example.test", "*@y.example.test"});
  const MailFilterOptions options;
  bool failed = true;
  for (int allocation = 1; failed; ++allocation) {
    SCOPED_TRACE(allocation);
    std::unique_ptr<PolicyGeneration> generation;
    failed = failsAt(allocation, [&] {
      try {
        generation = std::make_unique<PolicyGeneration>(maker.policy());
      } catch (const std::bad_alloc&) {
        generation = nullptr;
      }
    });
    EXPECT_TRUE(failed || generation != nullptr);
    if (generation == nullptr) {
      continue;
    }
    EXPECT_THAT(generation->warnings(), testing::IsEmpty());
    for (const char* sender : {"a@b.test", "a@b.c.test", "user@d.test", "a@e.test"}) {
      for (const char* recipient : {"ann@x.example.test", "bob@y.example.test"}) {
        EXPECT_EQ(Decider(*generation, options).decide({sender, std::nullopt, recipient}).code, 2) << sender;
      }
    }
  }
}

}  // namespace
