#include "policy/PolicySnapshot.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "filter/FilterTestPolicy.h"
#include "loading/LastGoodPolicy.h"
#include "support/TemporaryDirectory.h"

namespace {

MailPolicy somePolicy() {
  zarotest::HandmadePolicy made;
  std::vector<std::string> many;
  for (int i = 0; i < 2500; ++i) {
    many.push_back("user" + std::to_string(i) + "@\xC3\xBC.test");
  }
  MailPolicy::Rule& rule = made.addRule("all \"fields\"", many, 2, {"Delete", "Quarantine"});
  made.narrow(rule, "*@example.test");
  rule.recipients = 1;
  rule.compare = MailPolicy::Compare::Both;
  rule.quarantine = made.addArea("area");
  rule.reply = "reply";
  rule.tag = "tag";
  rule.headerValue = "value";
  rule.address = "a@b.test";
  made.addRule("none", {}, 1, {});
  made.policy.filterOrder.manual = true;
  made.policy.filterOrder.groups.push_back({1, 2, "virus"});
  made.policy.version = 17;
  return made.policy;
}

std::string textOf(const MailPolicy& policy) {
  std::string text;
  writeSnapshot(policy, [&](std::string_view line) { text += line; });
  return text;
}

MailPolicy policyOf(const std::string& text) {
  std::istringstream lines(text);
  return readSnapshot([&](std::string& line) { return static_cast<bool>(std::getline(lines, line)); });
}

// Without the time, and so without the digest.
std::string comparable(const std::string& text) {
  const std::size_t end = text.find('\n');
  return text.substr(end, text.rfind("{\"sha256\"") - end);
}

TEST(PolicySnapshot, hasAllOfThePolicy) {
  const std::string text = textOf(somePolicy());
  const MailPolicy read = policyOf(text);
  EXPECT_EQ(read.version, 17u);
  EXPECT_EQ(read.groups.at(0).members.size(), 2500u);
  EXPECT_EQ(comparable(textOf(read)), comparable(text));
}

TEST(PolicySnapshot, isRefusedUnlessItIsWhole) {
  const std::string text = textOf(somePolicy());
  std::string changed = text;
  changed.replace(changed.find("user7@"), 5, "user8");
  const std::size_t tail = text.rfind("{\"sha256\"");
  for (const std::string& broken : {std::string(), changed, text.substr(0, tail), text.substr(tail),
                                    std::string("[]\n"), text.substr(0, text.size() / 2), "x" + text}) {
    EXPECT_THROW(policyOf(broken), zaroruntime::RuntimeError) << broken.substr(0, 100);
  }
}

TEST(LastGoodPolicy, isReplacedAsAWhole) {
  const zarotest::TemporaryDirectory directory;
  const LastGoodPolicy kept(directory.path("state"));
  EXPECT_FALSE(kept.load());
  MailPolicy policy = somePolicy();
  kept.save(policy);
  policy.version = 18;
  kept.save(policy);
  EXPECT_EQ(kept.load().value().version, 18u);
  policy.rules.front().name = "\xFF";
  EXPECT_THROW(kept.save(policy), zaroruntime::RuntimeError);
  EXPECT_EQ(kept.load().value().version, 18u);
}

}  // namespace
