// What happens to a message, out of the verdicts for its recipients.
#include "policy/MessageVerdict.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "policy/PolicyMaker.h"

using What = RecipientOutcome::What;

namespace {

// A rule for each recipient's local part, in this order.
PolicyMaker everyRule() {
  PolicyMaker maker;
  const unsigned int bad = maker.group("bad", {"*@bad.test"});
  const unsigned int area = maker.area("Area");
  const unsigned int other = maker.area("Other");
  const auto add = [&](const std::string& name, const std::vector<std::string>& keys) -> MailPolicy::Rule& {
    MailPolicy::Rule& rule = maker.rule(name, {{bad, 2}}, keys);
    rule.scope = maker.entity(name + "@*");
    rule.quarantine = name == "hold2" ? other : area;
    rule.tag = "[" + name + "]";
    rule.headerValue = name;
    rule.address = name == "bcc" ? "archive@example.test" : name + "@example.test";
    return rule;
  };
  add("refuse", {"Delete"}).reply = "not here";
  add("refuse2", {"Delete"}).reply = "nor here";
  add("drop", {"Delete", "Quarantine", "Postpone"});
  add("hold", {"Quarantine", "Postpone"});
  add("hold2", {"Quarantine"});
  add("tag", {"SubjectTagging"});
  add("tag2", {"SubjectTagging", "InsertXHeaderTag"});
  add("postpone", {"Postpone", "Bcc"});
  add("readdress", {"Readdress", "Postpone"});
  add("archive", {"Archive", "Delete"});
  add("bcc", {"Bcc"});
  add("late", {"Delete"}).reply = "not here";
  maker.policy().rules.back().compare = MailPolicy::Compare::Header;
  add("log; \xc3\xbc", {});
  maker.policy().entities.back().pattern = "log@*";
  maker.rule("allow", {{maker.group("good", {"x@bad.test"}), 1}}).scope = maker.entity("allow@*");
  return maker;
}

class Message {
 public:
  explicit Message(const MailFilterOptions& options = {})
      : m_options(options), m_generation(PolicyMaker(everyRule()).policy()) {}

  Verdict verdict(const std::string& recipient, std::optional<std::string_view> from = "x@bad.test") const {
    return Decider(m_generation, m_options).decide({"x@bad.test", from, recipient + "@to.test"});
  }
  RecipientOutcome atRecipient(const std::string& recipient) const {
    return outcomeAtRecipient(verdict(recipient, std::nullopt), m_options);
  }
  MessageVerdict resolved(const std::vector<std::string>& recipients) const {
    std::vector<Verdict> verdicts;
    for (const std::string& recipient : recipients) {
      verdicts.push_back(verdict(recipient));
    }
    return resolve(verdicts, m_options);
  }

 private:
  MailFilterOptions m_options;
  PolicyGeneration m_generation;
};

TEST(MessageVerdict, refusesAndPostponesSingleRecipients) {
  const Message message;
  const std::map<std::string, What> table = {
      {"refuse", What::Refuse},  {"postpone", What::Postpone}, {"drop", What::Pass},  {"hold", What::Pass},
      {"readdress", What::Pass}, {"late", What::Pass},         {"allow", What::Pass}, {"nobody", What::Pass}};
  for (const auto& [recipient, what] : table) {
    EXPECT_EQ(message.atRecipient(recipient).what, what) << recipient;
  }
  EXPECT_EQ(message.atRecipient("refuse").text, "not here");
}

struct Resolution {
  const char* label;
  std::vector<std::string> recipients;
  std::vector<What> outcomes;
  std::string message;  // what happens to it, in words
  std::string decision;
};

std::string wordsFor(const MessageVerdict& message) {
  std::string words;
  const auto add = [&](bool isSo, const std::string& word) {
    if (isSo) {
      words.append(words.empty() ? "" : ", ").append(word);
    }
  };
  add(message.refusal.has_value(), "refuse " + message.refusal.value_or(""));
  add(message.isPostponed, "postpone");
  add(message.isDiscarded, "discard");
  add(message.hold.has_value(), "hold " + message.hold.value_or(""));
  add(message.tag.has_value(), "tag " + message.tag.value_or(""));
  add(message.headerValue.has_value(), "header " + message.headerValue.value_or(""));
  for (const std::string& extra : message.extraRecipients) {
    add(true, "copy " + extra);
  }
  return words;
}

const Resolution kResolutions[] = {
    {"nobody decided", {"nobody"}, {What::Pass}, "", ""},
    {"allowed", {"allow"}, {What::Pass}, "", "rule=allow; code=1; pattern=x@bad.test"},
    {"blocked without an action", {"log"}, {What::Pass}, "", "rule=log%3B %C3%BC; code=2; pattern=*@bad.test"},
    {"every recipient refused", {"late", "refuse2"}, {What::Refuse, What::Refuse}, "refuse nor here", ""},
    {"one refused", {"late", "allow"}, {What::Drop, What::Pass}, "", "rule=allow; code=1; pattern=x@bad.test"},
    {"one refused, one dropped", {"late", "drop"}, {What::Drop, What::Drop}, "discard", "rule=drop; code=2; pattern=*@bad.test"},
    {"Delete excludes Quarantine", {"drop"}, {What::Drop}, "discard", "rule=drop; code=2; pattern=*@bad.test"},
    {"Quarantine excludes Postpone", {"hold"}, {What::Pass}, "hold Area", "rule=hold; code=2; pattern=*@bad.test"},
    {"Readdress excludes Postpone", {"readdress"}, {What::Readdress}, "", "rule=readdress; code=2; pattern=*@bad.test"},
    {"held for one, dropped for one",
     {"hold2", "drop", "nobody"},
     {What::Pass, What::Drop, What::Pass},
     "hold Other",
     "rule=hold2; code=2; pattern=*@bad.test"},
    {"two areas", {"hold2", "hold"}, {What::Pass, What::Pass}, "hold Area", "rule=hold; code=2; pattern=*@bad.test"},
    {"two tags",
     {"tag2", "tag", "allow"},
     {What::Pass, What::Pass, What::Pass},
     "tag [tag], header tag2",
     "rule=tag; code=2; pattern=*@bad.test"},
    {"archived and deleted", {"archive"}, {What::Drop}, "copy archive@example.test", "rule=archive; code=2; pattern=*@bad.test"},
    {"one copy",
     {"archive", "bcc", "bcc"},
     {What::Drop, What::Pass, What::Pass},
     "copy archive@example.test",
     "rule=bcc; code=2; pattern=*@bad.test"},
    {"every recipient postponed", {"postpone", "late"}, {What::Postpone, What::Refuse}, "postpone", ""},
    {"one postponed",
     {"postpone", "nobody"},
     {What::Pass, What::Pass},
     "copy postpone@example.test",
     "rule=postpone; code=2; pattern=*@bad.test"},
};

TEST(MessageVerdict, resolvesTheVerdictsOfAllRecipients) {
  const Message message;
  for (const Resolution& test : kResolutions) {
    const MessageVerdict resolved = message.resolved(test.recipients);
    std::vector<What> outcomes;
    for (const RecipientOutcome& outcome : resolved.recipients) {
      outcomes.push_back(outcome.what);
    }
    EXPECT_EQ(outcomes, test.outcomes) << test.label;
    EXPECT_EQ(wordsFor(resolved), test.message) << test.label;
    EXPECT_EQ(resolved.decision.value_or(""), test.decision) << test.label;
  }
}

TEST(MessageVerdict, doesNothingInShadowMode) {
  MailFilterOptions options;
  options.shadow = true;
  const Message message(options);
  EXPECT_EQ(message.atRecipient("refuse").what, What::Pass);
  const MessageVerdict resolved = message.resolved({"refuse", "hold", "tag", "allow"});
  EXPECT_EQ(wordsFor(resolved), "");
  EXPECT_EQ(resolved.decision, "shadow; would=Delete,Quarantine,SubjectTagging,Postpone");
  for (const RecipientOutcome& outcome : resolved.recipients) {
    EXPECT_EQ(outcome.what, What::Pass);
  }
  EXPECT_EQ(message.resolved({"allow"}).decision, "shadow; would=none");
  EXPECT_FALSE(message.resolved({"nobody"}).decision);
}

}  // namespace
