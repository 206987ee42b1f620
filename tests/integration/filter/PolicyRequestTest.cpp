// Policy delegation: the protocol, and what it answers.
#include "delegation/PolicyRequest.h"

#include <gtest/gtest.h>

#include <string>

#include "delegation/PolicyListener.h"
#include "filter/FilterParts.h"
#include "policy/PolicyMaker.h"

namespace {

using zarotest::FilterParts;

std::string request(const std::string& sender, const std::string& recipient, const std::string& more = "") {
  return "request=smtpd_access_policy\nprotocol_state=RCPT\nsender=" + sender + "\nrecipient=" + recipient + "\n" +
         more + "\n";
}

TEST(PolicyRequest, isTakenOnceItIsWhole) {
  std::string received = "sender=a@b.test\nrecipient=";
  EXPECT_FALSE(PolicyRequest::takeFrom(received));
  received += "c=d@e.test\nodd line\n\nsender=second";
  const auto taken = PolicyRequest::takeFrom(received);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->value("sender"), "a@b.test");
  EXPECT_EQ(taken->value("recipient"), "c=d@e.test");
  EXPECT_EQ(taken->value("helo_name"), "");
  EXPECT_EQ(received, "sender=second");
}

class PolicyDelegation : public testing::Test {
 protected:
  PolicyDelegation() {
    PolicyMaker made;
    made.rule("refuse", {"refused@bad.test"}, 2, {"Delete"}).reply = "go away";
    made.rule("drop", {"dropped@bad.test"}, 2, {"Delete"});
    made.rule("later", {"later@bad.test"}, 2, {"Postpone"});
    made.rule("tag", {"tagged@bad.test"}, 2, {"SubjectTagging"}).tag = "[X]";
    made.rule("header", {"refused-by-header@bad.test"}, 2, {"Delete"}).compare = MailPolicy::Compare::Header;
    m_policy = made.policy();
  }

  std::string action(const std::string& text) const {
    std::string received = text;
    return policyAction(m_parts.desk, PolicyRequest::takeFrom(received).value());
  }

  MailPolicy m_policy;
  FilterParts m_parts;
};

TEST_F(PolicyDelegation, refusesAndPostponesRecipientsAndNothingMore) {
  m_parts.use(m_policy);
  EXPECT_EQ(action(request("refused@bad.test", "a@b.test")), "550 5.7.1 go away");
  EXPECT_EQ(action(request("dropped@bad.test", "a@b.test")), "550 5.7.1 Mail to this recipient is refused by policy");
  EXPECT_EQ(action(request("later@bad.test", "a@b.test")).substr(0, 9), "451 4.7.1");
  EXPECT_EQ(action(request("tagged@bad.test", "a@b.test")), "DUNNO");
  EXPECT_EQ(action(request("refused-by-header@bad.test", "a@b.test")), "DUNNO");
  EXPECT_EQ(action(request("", "a@b.test")), "DUNNO");
}

TEST_F(PolicyDelegation, leavesAuthenticatedSendersAndOtherStatesAlone) {
  m_parts.use(m_policy);
  EXPECT_EQ(action(request("refused@bad.test", "a@b.test", "sasl_username=me\n")), "DUNNO");
  EXPECT_EQ(action("request=smtpd_access_policy\nprotocol_state=DATA\nsender=refused@bad.test\n\n"), "DUNNO");
}

TEST_F(PolicyDelegation, doesNothingInShadowMode) {
  m_parts.settings.decisions.shadow = true;
  m_parts.use(m_policy);
  EXPECT_EQ(action(request("refused@bad.test", "a@b.test")), "DUNNO");
  EXPECT_EQ(action(request("dropped@bad.test", "a@b.test")), "DUNNO");
}

TEST_F(PolicyDelegation, goesByTheSettingWithoutAPolicy) {
  EXPECT_EQ(action(request("a@b.test", "a@b.test")).substr(0, 9), "451 4.3.5");
  m_parts.settings.acceptWithoutPolicy = true;
  EXPECT_EQ(action(request("a@b.test", "a@b.test")), "DUNNO");
}

}  // namespace
