// The decision for one sender and one recipient.
#include "policy/Decider.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "policy/PolicyMaker.h"

using Compare = MailPolicy::Compare;

namespace {

constexpr KxEmailBelongsTo kAllow = 1;
constexpr KxEmailBelongsTo kBlock = 2;
constexpr KxEmailBelongsTo kWeakBlock = 4;
constexpr KxEmailBelongsTo kWeakAllow = 8;
constexpr KxEmailBelongsTo kExceptAllow = 16;

struct Asked {
  const char* label;
  std::string sender;
  std::string recipient;
  unsigned int code;
  std::string rule;  // empty for code 0
};

void expectDecisions(PolicyMaker& maker, const MailFilterOptions& options, const std::vector<Asked>& table) {
  const PolicyGeneration generation(maker.policy());
  const Decider decider(generation, options);
  for (const Asked& asked : table) {
    const Question question = {asked.sender, std::nullopt, asked.recipient};
    const Verdict verdict = decider.decide(question);
    EXPECT_EQ(verdict.code, asked.code) << asked.label;
    EXPECT_EQ(verdict.rule != nullptr ? verdict.rule->stored.name : "", asked.rule) << asked.label;
    DecisionExplanation explanation;
    const Verdict explained = decider.explain(question, explanation);
    EXPECT_EQ(explained.code, verdict.code) << asked.label;
    EXPECT_EQ(explained.rule, verdict.rule) << asked.label;
    EXPECT_EQ(explained.pattern, verdict.pattern) << asked.label;
    EXPECT_EQ(explained.weight, verdict.weight) << asked.label;
  }
}

TEST(Decider, asksTheRulesWhoseScopeContainsTheRecipient) {
  PolicyMaker maker;
  const unsigned int spam = maker.group("spam", {"*@spam.test"});
  const unsigned int sales = maker.entity("*@*.sales.example.test");
  maker.rule("sales", {{spam, kBlock}}).scope = sales;
  expectDecisions(maker, {},
                  {{"inside", "x@spam.test", "ann@north.sales.example.test", 2, "sales"},
                   {"deeper", "x@spam.test", "ann@a.north.sales.example.test", 2, "sales"},
                   {"the domain itself", "x@spam.test", "ann@sales.example.test", 0, ""},
                   {"elsewhere", "x@spam.test", "ann@example.test", 0, ""},
                   {"another sender", "x@ham.test", "ann@north.sales.example.test", 0, ""}});
}

TEST(Decider, narrowsTheScopeByTheRecipients) {
  PolicyMaker maker;
  const unsigned int spam = maker.group("spam", {"*@spam.test"});
  const unsigned int chiefs = maker.group("chiefs", {"ann@example.test", "*@board.example.test", "bob@elsewhere.test"});
  const unsigned int none = maker.group("none", {});
  const unsigned int example = maker.entity("*@example.test");
  maker.rule("empty group", {{spam, kBlock}}).recipients = none;
  MailPolicy::Rule& narrowed = maker.rule("chiefs", {{spam, kBlock}});
  narrowed.scope = example;
  narrowed.recipients = chiefs;
  expectDecisions(maker, {},
                  {{"in both", "x@spam.test", "ann@example.test", 2, "chiefs"},
                   {"in the scope alone", "x@spam.test", "bob@example.test", 0, ""},
                   {"in the group alone", "x@spam.test", "bob@elsewhere.test", 0, ""},
                   {"by a pattern of the group, outside", "x@spam.test", "x@board.example.test", 0, ""}});
}

TEST(Decider, letsTheFirstRuleByPositionDecide) {
  PolicyMaker maker;
  const unsigned int partner = maker.group("partner", {"*@partner.test"});
  const unsigned int one = maker.group("one", {"x@partner.test"});
  maker.rule("specific", {{one, kBlock}}).position = 9;
  maker.rule("general", {{partner, kAllow}}).position = 5;
  maker.rule("off", {{partner, kBlock}}).position = 1;
  maker.policy().rules.back().enabled = false;
  expectDecisions(maker, {}, {{"lower position", "x@partner.test", "ann@example.test", 1, "general"}});
}

TEST(Decider, weighsTheListsOfOneRuleAgainstEachOther) {
  PolicyMaker maker;
  const unsigned int domain = maker.group("domain", {"*@mixed.test", "*@*.mixed.test"});
  const unsigned int users = maker.group("users", {"good@mixed.test", "other@mixed.test"});
  const unsigned int same = maker.group("same", {"*@same.test"});
  maker.rule("mixed", {{domain, kBlock}, {users, kAllow}, {same, kWeakBlock}});
  maker.rule("weak", {{same, kWeakAllow}});
  expectDecisions(maker, {},
                  {{"the heavier kind", "good@mixed.test", "a@b.test", 129, "mixed"},
                   {"the only kind", "bad@mixed.test", "a@b.test", 2, "mixed"},
                   {"weak kinds of all rules", "x@same.test", "a@b.test", 9, "weak"}});
}

TEST(Decider, takesBackWeakKindsByExceptions) {
  PolicyMaker maker;
  const unsigned int list = maker.group("list", {"*@news.test"});
  maker.rule("allow", {{list, kWeakAllow}});
  maker.rule("except", {{list, kExceptAllow}});
  maker.rule("block", {{list, kWeakBlock}});
  expectDecisions(maker, {}, {{"taken back", "x@news.test", "a@b.test", 2, "block"}});
}

TEST(Decider, asksEverySpellingAsOne) {
  PolicyMaker maker;
  const unsigned int listed = maker.group("listed", {"User@Bad.test", "<>", "\"a@b\"@quoted.test",
                                                     "x@b\xc3\xbc"
                                                     "cher.test"});
  const unsigned int example = maker.entity("*@example.test");
  maker.rule("listed", {{listed, kBlock}}).scope = example;
  const std::string victim = "ann@example.test";
  expectDecisions(maker, {},
                  {{"letter case", "USER@bad.TEST", victim, 2, "listed"},
                   {"brackets", "<user@bad.test>", victim, 2, "listed"},
                   {"dot of the root", "user@bad.test.", victim, 2, "listed"},
                   {"quotes", "\"user\"@bad.test", victim, 2, "listed"},
                   {"null sender", "<>", victim, 2, "listed"},
                   {"empty sender", "", victim, 2, "listed"},
                   {"at in quotes", "\"a@b\"@quoted.test", victim, 2, "listed"},
                   {"the domain stays behind the last at", "\"user@bad.test\"@good.test", victim, 0, ""},
                   {"A-label", "x@xn--bcher-kva.test", victim, 2, "listed"},
                   {"U-label",
                    "x@B\xc3\xbc"
                    "CHER.test",
                    victim, 2, "listed"},
                   {"recipient in brackets", "user@bad.test", "<Ann@Example.test.>", 2, "listed"},
                   {"recipient in quotes", "user@bad.test", "\"x@elsewhere.test\"@example.test", 2, "listed"},
                   {"recipient elsewhere", "user@bad.test", "\"x@example.test\"@elsewhere.test", 0, ""},
                   {"no extension without a delimiter", "user+x@bad.test", victim, 0, ""},
                   {"no tag without the option", "prvs=1234abcdef=user@bad.test", victim, 0, ""}});
}

TEST(Decider, leavesOutWhatTheOptionsName) {
  PolicyMaker maker;
  const unsigned int listed = maker.group("listed", {"user@bad.test"});
  const unsigned int ann = maker.entity("ann@example.test");
  maker.rule("listed", {{listed, kBlock}}).scope = ann;
  MailFilterOptions options;
  options.delimiter = "+";
  options.stripBatv = true;
  options.stripSrs = true;
  expectDecisions(maker, options,
                  {{"extension", "user+list@bad.test", "ann+box@example.test", 2, "listed"},
                   {"BATV", "prvs=1234abcdef=user@bad.test", "ann@example.test", 2, "listed"},
                   {"BATV of the recipient", "user@bad.test", "prvs=1234abcdef=ann@example.test", 2, "listed"},
                   {"BATV in capitals", "PRVS=1234ABCDEF=user@bad.test", "ann@example.test", 2, "listed"},
                   {"SRS0", "SRS0=ab=XY=bad.test=user@relay.test", "ann@example.test", 2, "listed"},
                   {"SRS0 with a plus", "SRS0+ab=XY=bad.test=user@relay.test", "ann@example.test", 2, "listed"},
                   {"SRS1", "SRS1=cd=one.test==ab=XY=bad.test=user@relay.test", "ann@example.test", 2, "listed"},
                   {"all at once", "prvs=12ab=SRS0=ab=XY=bad.test=user+x@relay.test", "ann@example.test", 2, "listed"},
                   {"SRS of the recipient", "user@bad.test", "SRS0=ab=XY=example.test=ann@relay.test", 0, ""},
                   {"at in the domain of SRS0", "\"SRS0=ab=XY=x@bad.test=user\"@relay.test", "ann@example.test", 0, ""},
                   {"half a tag", "prvs=user@bad.test", "ann@example.test", 0, ""}});
}

TEST(Decider, takesAStarAsEverySender) {
  PolicyMaker maker;
  const unsigned int all = maker.group("all", {"*"});
  const unsigned int bounces = maker.group("bounces", {"<>"});
  maker.rule("bounces", {{bounces, kAllow}});
  maker.rule("all", {{all, kBlock}});
  expectDecisions(
      maker, {}, {{"a sender", "x@y.test", "a@b.test", 2, "all"}, {"the null sender", "<>", "a@b.test", 1, "bounces"}});
}

TEST(Decider, exemptsAuthenticatedSendersIfToldTo) {
  PolicyMaker maker;
  maker.rule("all", {{maker.group("all", {"*"}), kBlock}});
  const PolicyGeneration generation(maker.policy());
  MailFilterOptions options;
  const Question question = {"x@y.test", std::nullopt, "a@b.test", true};
  EXPECT_EQ(Decider(generation, options).decide(question).code, 2);
  options.exemptAuthenticated = true;
  const Verdict verdict = Decider(generation, options).decide(question);
  EXPECT_EQ(verdict.code, 0);
  EXPECT_TRUE(verdict.isExempt);
}

TEST(Decider, tellsWhichPatternOfWhichListDecided) {
  PolicyMaker maker;
  const unsigned int first = maker.group("first", {"*@a.test"});
  const unsigned int second = maker.group("second", {"*@b.test"});
  const unsigned int allowed = maker.group("allowed", {"good@b.test"});
  maker.rule("rule", {{first, kBlock}, {second, kBlock}, {allowed, kAllow}}, {"Delete"});
  const PolicyGeneration generation(maker.policy());
  const MailFilterOptions options;
  const Verdict verdict = Decider(generation, options).decide({"x@b.test", std::nullopt, "a@c.test"});
  EXPECT_EQ(verdict.pattern, "*@b.test");
  EXPECT_EQ(verdict.list, "second");
  EXPECT_EQ(verdict.weight, 4003u);
  EXPECT_EQ(verdict.kind, kBlock);
  EXPECT_TRUE(verdict.does(ZaroAction::Delete));
  EXPECT_EQ(Decider(generation, options).decide({"good@b.test", std::nullopt, "a@c.test"}).list, "allowed");
}

// --- Envelope and header ---

struct Compared {
  const char* label;
  Compare compare;
  const char* sender;
  std::optional<std::string_view> from;
  unsigned int code;
  bool byHeader;
  bool awaits;
};

TEST(Decider, comparesWhatTheRuleNames) {
  const Compared kTable[] = {
      {"envelope, bad", Compare::Envelope, "x@bad.test", "x@good.test", 2, false, false},
      {"envelope, bad header", Compare::Envelope, "x@good.test", "x@bad.test", 1, false, false},
      {"header, bad envelope", Compare::Header, "x@bad.test", "x@good.test", 1, true, false},
      {"header, bad", Compare::Header, "x@good.test", "x@bad.test", 2, true, false},
      {"header, not known yet", Compare::Header, "x@bad.test", std::nullopt, 0, false, true},
      {"header, none", Compare::Header, "x@bad.test", "", 2, true, false},
      {"both, bad envelope", Compare::Both, "x@bad.test", "x@good.test", 2, false, false},
      {"both, bad header", Compare::Both, "x@good.test", "x@bad.test", 2, true, false},
      {"both, good", Compare::Both, "x@good.test", "x@good.test", 1, false, false},
      {"both, bad envelope, header not known", Compare::Both, "x@bad.test", std::nullopt, 2, false, false},
      {"both, good envelope, header not known", Compare::Both, "x@good.test", std::nullopt, 1, false, true},
  };
  for (const Compared& test : kTable) {
    PolicyMaker maker;
    const unsigned int bad = maker.group("bad", {"*@bad.test", "<>"});
    const unsigned int good = maker.group("good", {"*@good.test"});
    maker.rule("rule", {{bad, kBlock}, {good, kAllow}}).compare = test.compare;
    const PolicyGeneration generation(maker.policy());
    const MailFilterOptions options;
    const Verdict verdict = Decider(generation, options).decide({test.sender, test.from, "a@b.test"});
    EXPECT_EQ(verdict.code, test.code) << test.label;
    EXPECT_EQ(verdict.byHeader, test.byHeader) << test.label;
    EXPECT_EQ(verdict.awaitsHeader, test.awaits) << test.label;
  }
}

TEST(Decider, letsAnEarlierRuleDecideWhateverItCompares) {
  PolicyMaker maker;
  const unsigned int bad = maker.group("bad", {"*@bad.test"});
  const unsigned int good = maker.group("good", {"*@good.test"});
  maker.rule("envelope", {{good, kAllow}});
  maker.rule("header", {{bad, kBlock}}).compare = Compare::Header;
  const PolicyGeneration generation(maker.policy());
  const MailFilterOptions options;
  const Decider decider(generation, options);
  EXPECT_EQ(decider.decide({"x@good.test", "x@bad.test", "a@b.test"}).code, 1);
  EXPECT_FALSE(decider.decide({"x@good.test", std::nullopt, "a@b.test"}).awaitsHeader);
  EXPECT_EQ(decider.decide({"x@other.test", "x@bad.test", "a@b.test"}).code, 2);
  EXPECT_TRUE(decider.decide({"x@other.test", std::nullopt, "a@b.test"}).awaitsHeader);
}

TEST(Decider, explainsEveryRuleThatWasAskedAndEveryPattern) {
  PolicyMaker maker;
  const unsigned int domain = maker.group("domain", {"*@bad.test"});
  const unsigned int user = maker.group("user", {"x@bad.test"});
  maker.rule("first", {{domain, kBlock}, {user, kAllow}});
  maker.rule("elsewhere", {{user, kBlock}}).scope = maker.entity("*@elsewhere.test");
  maker.rule("second", {{user, kBlock}});
  const PolicyGeneration generation(maker.policy());
  const MailFilterOptions options;
  DecisionExplanation explanation;
  Decider(generation, options).explain({"X@bad.test", std::nullopt, "a@b.test"}, explanation);
  EXPECT_EQ(explanation.recipient, "a@b.test");
  EXPECT_EQ(explanation.rules, (std::vector<std::size_t>{0, 2}));
  EXPECT_EQ(explanation.envelope.address, "x@bad.test");
  ASSERT_EQ(explanation.envelope.matches.candidates.size(), 3u);
  EXPECT_EQ(explanation.envelope.matches.candidates.front().fate, KxMatchCandidate::Decided);
  EXPECT_EQ(explanation.envelope.matches.candidates.back().fate, KxMatchCandidate::NotSearched);
  EXPECT_FALSE(explanation.header.isAsked);
}

}  // namespace
