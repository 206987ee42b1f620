// What a message goes through, on a mail server that only notes what it is told.
#include "milter/Session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "filter/FilterParts.h"
#include "policy/PolicyMaker.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zarotest::FilterParts;
using Reply = Session::Reply;

class NotingServer : public MailServer {
 public:
  std::map<std::string, std::string> macros;
  std::string reply;
  std::vector<std::string> notes;
  bool takes = true;

  std::string macro(const char* name) override { return macros[name]; }
  bool setReply(const char* code, const char* status, const std::string& text) override {
    reply = std::string(code) + " " + status + " " + text;
    return true;
  }
  bool addRecipient(const std::string& recipient) override { return note("add " + recipient); }
  bool deleteRecipient(const std::string& recipient) override { return note("delete " + recipient); }
  bool hold(const std::string& reason) override { return note("hold " + reason); }
  bool replaceHeader(const std::string& name, int index, const std::string& value) override {
    return note("replace " + name + " " + std::to_string(index) + ": " + value);
  }
  bool deleteHeader(const std::string& name, int index) override {
    return note("take out " + name + " " + std::to_string(index));
  }
  bool insertHeader(const std::string& name, const std::string& value) override {
    return note("insert " + name + ": " + value);
  }

 private:
  bool note(const std::string& text) {
    notes.push_back(text);
    return takes;
  }
};

class SessionTest : public testing::Test {
 protected:
  SessionTest() : m_session(m_parts.desk, m_messages) {
    m_made.rule("allow", {"friend@bad.test", "<>"}, 1, {});
    m_made.rule("refuse", {"refused@bad.test"}, 2, {"Delete"}).reply = "go away";
    m_made.rule("drop", {"dropped@bad.test"}, 2, {"Delete"});
    m_made.rule("later", {"later@bad.test"}, 2, {"Postpone"});
    m_made.rule("tag", {"tagged@bad.test"}, 2, {"SubjectTagging"}).tag = "[X]";
    m_made.rule("mark", {"marked@bad.test"}, 2, {"InsertXHeaderTag"}).headerValue = "suspect";
    m_made.rule("move", {"moved@bad.test"}, 2, {"Readdress"}).address = "other@b.test";
    m_made.rule("copy", {"copied@bad.test"}, 2, {"Bcc"}).address = "archive@b.test";
    MailPolicy::Rule& held = m_made.rule("hold", {"held@bad.test"}, 2, {"Quarantine"});
    held.quarantine = m_made.area("Spam");
    MailPolicy::Rule& sales = m_made.rule("sales only", {"mixed@bad.test"}, 2, {"Delete"});
    sales.scope = m_made.entity("*@*.sales.test");
    MailPolicy::Rule& byHeader = m_made.rule("by header", {"forged@bad.test"}, 2, {"Delete"});
    byHeader.compare = MailPolicy::Compare::Header;
    byHeader.reply = "not from there";
  }

  void usePolicy() { m_parts.use(m_made.policy()); }

  // A message to the end; answers the reply to it. The recipients are all expected to be taken.
  Reply send(const std::string& sender, const std::vector<std::string>& recipients,
             const std::vector<std::pair<std::string, std::string>>& headers = {{"Subject", "Hello"}}) {
    m_session.beginMessage(sender, m_server);
    for (const std::string& recipient : recipients) {
      EXPECT_EQ(m_session.recipient(recipient, m_server), Reply::Continue) << recipient;
    }
    for (const auto& [name, value] : headers) {
      m_session.header(name, value);
    }
    const Reply reply = m_session.endOfMessage(m_server);
    m_session.endMessage();
    return reply;
  }

  Reply recipientReply(const std::string& sender, const std::string& recipient = "<a@b.test>") {
    m_session.beginMessage(sender, m_server);
    return m_session.recipient(recipient, m_server);
  }

  PolicyMaker m_made;
  FilterParts m_parts;
  MessagesInProgress m_messages;
  NotingServer m_server;
  Session m_session;
};

TEST_F(SessionTest, refusesARecipientWithTheRulesReply) {
  usePolicy();
  EXPECT_EQ(recipientReply("<refused@bad.test>"), Reply::Reject);
  EXPECT_EQ(m_server.reply, "550 5.7.1 go away");
}

TEST_F(SessionTest, postponesARecipient) {
  usePolicy();
  EXPECT_EQ(recipientReply("<later@bad.test>"), Reply::TempFail);
  EXPECT_EQ(m_server.reply.substr(0, 9), "451 4.7.1");
}

struct MessageCase {
  const char* label;
  const char* sender;
  std::vector<std::string> recipients;
  Reply reply;
  std::vector<std::string> notes;
};

const MessageCase kMessageCases[] = {
    {"no rule", "<nobody@good.test>", {"<a@b.test>"}, Reply::Continue, {}},
    {"allowed",
     "<friend@bad.test>",
     {"<a@b.test>"},
     Reply::Continue,
     {"insert X-Zaro-Policy: rule=allow; code=1; pattern=friend@bad.test"}},
    {"null sender", "<>", {"<a@b.test>"}, Reply::Continue, {"insert X-Zaro-Policy: rule=allow; code=1; pattern=<>"}},
    {"dropped", "<dropped@bad.test>", {"<a@b.test>", "<c@b.test>"}, Reply::Discard, {}},
    {"dropped for one of two",
     "<mixed@bad.test>",
     {"<a@b.test>", "<c@x.sales.test>"},
     Reply::Continue,
     {"delete <c@x.sales.test>"}},
    {"tagged",
     "<tagged@bad.test>",
     {"<a@b.test>"},
     Reply::Continue,
     {"replace Subject 1: [X] Hello", "insert X-Zaro-Policy: rule=tag; code=2; pattern=tagged@bad.test"}},
    {"marked",
     "<marked@bad.test>",
     {"<a@b.test>"},
     Reply::Continue,
     {"insert X-Zaro-Policy: suspect", "insert X-Zaro-Policy: rule=mark; code=2; pattern=marked@bad.test"}},
    {"readdressed",
     "<moved@bad.test>",
     {"<a@b.test>"},
     Reply::Continue,
     {"delete <a@b.test>", "add other@b.test", "insert X-Zaro-Policy: rule=move; code=2; pattern=moved@bad.test"}},
    {"readdressed, two",
     "<moved@bad.test>",
     {"<a@b.test>", "<c@b.test>"},
     Reply::Continue,
     {"delete <a@b.test>", "delete <c@b.test>", "add other@b.test",
      "insert X-Zaro-Policy: rule=move; code=2; pattern=moved@bad.test"}},
    {"readdressed to a recipient",
     "<moved@bad.test>",
     {"<a@b.test>", "<Other@B.test>"},
     Reply::Continue,
     {"delete <a@b.test>", "insert X-Zaro-Policy: rule=move; code=2; pattern=moved@bad.test"}},
    {"copied to a recipient",
     "<copied@bad.test>",
     {"<a@b.test>", "<archive@b.test>"},
     Reply::Continue,
     {"insert X-Zaro-Policy: rule=copy; code=2; pattern=copied@bad.test"}},
    {"copied once",
     "<copied@bad.test>",
     {"<a@b.test>", "<c@b.test>"},
     Reply::Continue,
     {"add archive@b.test", "insert X-Zaro-Policy: rule=copy; code=2; pattern=copied@bad.test"}},
    {"held",
     "<held@bad.test>",
     {"<a@b.test>"},
     Reply::Continue,
     {"insert X-Zaro-Policy: rule=hold; code=2; pattern=held@bad.test", "hold area Spam"}},
};

TEST_F(SessionTest, doesAtTheEndOfTheMessageWhatTheRulesSay) {
  usePolicy();
  for (const MessageCase& row : kMessageCases) {
    SCOPED_TRACE(row.label);
    m_server.notes.clear();
    EXPECT_EQ(send(row.sender, row.recipients), row.reply);
    EXPECT_EQ(m_server.notes, row.notes);
  }
}

TEST_F(SessionTest, insertsASubjectWhereThereIsNone) {
  usePolicy();
  EXPECT_EQ(send("<tagged@bad.test>", {"<a@b.test>"}, {}), Reply::Continue);
  EXPECT_EQ(m_server.notes.at(0), "insert Subject: [X] ");
}

TEST_F(SessionTest, takesForgedHeadersOutFromTheLastOn) {
  usePolicy();
  send("<nobody@good.test>", {"<a@b.test>"}, {{"X-Zaro-Policy", "rule=fake"}, {"To", "x"}, {"x-zaro-policy", "again"}});
  EXPECT_THAT(m_server.notes, ElementsAre("take out X-Zaro-Policy 2", "take out X-Zaro-Policy 1"));
}

TEST_F(SessionTest, decidesByTheHeadersFromAtTheEnd) {
  usePolicy();
  EXPECT_EQ(send("<nobody@good.test>", {"<a@b.test>"}, {{"From", "Friend <forged@bad.test>"}}), Reply::Reject);
  EXPECT_EQ(m_server.reply, "550 5.7.1 not from there");
  EXPECT_EQ(send("<forged@bad.test>", {"<a@b.test>"}, {{"From", "nobody@good.test"}}), Reply::Continue);
}

// The rule that compares the header has a say in every decision for these recipients.
TEST_F(SessionTest, countsADecisionOnceWhenTheHeaderHadAPartInIt) {
  usePolicy();
  send("<nobody@good.test>", {"<a@b.test>"}, {{"From", "forged@bad.test"}});
  EXPECT_THAT(m_parts.metrics.text(), HasSubstr("zaro_filter_decision_seconds_count 1\n"));
  EXPECT_THAT(m_parts.metrics.text(), HasSubstr("zaro_filter_decisions_total{code=\"2\",rule=\"by header\"} 1\n"));
  EXPECT_THAT(m_parts.metrics.text(), Not(HasSubstr("code=\"0\"")));
}

TEST_F(SessionTest, namesTheAreaOfAQuarantineInTheLog) {
  usePolicy();
  testing::internal::CaptureStderr();
  send("<held@bad.test>", {"<a@b.test>"});
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(" action=Quarantine area=Spam done=pass "));
}

TEST_F(SessionTest, encodesAHeaderValueThatIsNotAscii) {
  m_made.rule("encoded", {"encoded@bad.test"}, 2, {"InsertXHeaderTag"}).headerValue = "verd\u00E4chtig";
  usePolicy();
  send("<encoded@bad.test>", {"<a@b.test>"});
  EXPECT_EQ(m_server.notes.at(0), "insert X-Zaro-Policy: =?UTF-8?B?dmVyZMOkY2h0aWc=?=");
}

TEST_F(SessionTest, keepsNothingOfTheMessageBefore) {
  usePolicy();
  send("<held@bad.test>", {"<a@b.test>"}, {{"X-Zaro-Policy", "fake"}, {"From", "forged@bad.test"}});
  m_server.notes.clear();
  EXPECT_EQ(send("<nobody@good.test>", {"<a@b.test>"}), Reply::Continue);
  EXPECT_THAT(m_server.notes, IsEmpty());
}

TEST_F(SessionTest, doesNothingButTellInShadowMode) {
  m_parts.settings.decisions.shadow = true;
  usePolicy();
  EXPECT_EQ(send("<dropped@bad.test>", {"<a@b.test>"}), Reply::Continue);
  EXPECT_EQ(send("<refused@bad.test>", {"<a@b.test>"}), Reply::Continue);
  EXPECT_THAT(m_server.notes,
              ElementsAre("insert X-Zaro-Policy: shadow; would=Delete", "insert X-Zaro-Policy: shadow; would=Delete"));
}

TEST_F(SessionTest, exemptsWhoLoggedInButNotWhoHasACertificate) {
  usePolicy();
  m_server.macros["{cert_subject}"] = "/CN=somebody";
  EXPECT_EQ(recipientReply("<refused@bad.test>"), Reply::Reject);
  m_server.macros["{auth_authen}"] = "somebody";
  EXPECT_EQ(recipientReply("<refused@bad.test>"), Reply::Continue);
  m_parts.settings.decisions.exemptAuthenticated = false;
  EXPECT_EQ(recipientReply("<refused@bad.test>"), Reply::Reject);
}

// What a mail server makes of an address, beside what the client wrote.
struct RewrittenCase {
  const char* label;
  const char* sender;
  const char* mailAddress;
  const char* recipient;
  const char* recipientAddress;
  const char* recipientMailer;
  Reply reply;
  const char* told;
};

const RewrittenCase kRewrittenCases[] = {
    {"percent hack of a sender", "<refused%bad.test>", "refused@bad.test", "<a@b.test>", "a@b.test", "smtp",
     Reply::Reject, "sender=<refused@bad.test>"},
    {"bang path of a sender", "<bad.test!refused>", "refused@bad.test", "<a@b.test>", "a@b.test", "smtp", Reply::Reject,
     "sender=<refused@bad.test>"},
    {"comment behind a sender", "<refused@bad.test (x)>", "refused@bad.test", "<a@b.test>", "a@b.test", "smtp",
     Reply::Reject, "sender=<refused@bad.test>"},
    {"sender of one label", "<refused@bad>", "refused@bad.test", "<a@b.test>", "a@b.test", "smtp", Reply::Reject,
     "sender=<refused@bad.test>"},
    {"sender to whom nothing is sent", "<refused%bad.test>", "refused@bad.test", "<a@b.test>", "a@b.test", "smtp",
     Reply::Reject, "sender=<refused@bad.test>"},
    {"percent hack of a recipient", "<mixed@bad.test>", "mixed@bad.test", "<c%x.sales.test>", "c@x.sales.test",
     "virtual", Reply::Reject, "recipient=<c@x.sales.test>"},
    {"two domains of a recipient", "<mixed@bad.test>", "mixed@bad.test", "<c@x.sales.test@mx.test>", "c@x.sales.test",
     "virtual", Reply::Reject, "recipient=<c@x.sales.test>"},
    {"blanks in a recipient", "<mixed@bad.test>", "mixed@bad.test", "< c @ x.sales.test >", "c@x.sales.test", "virtual",
     Reply::Reject, "recipient=<c@x.sales.test>"},
    {"quoted recipient", "<mixed@bad.test>", "mixed@bad.test", "<\"c@x.sales.test\"@mx.test>", "c@x.sales.test",
     "virtual", Reply::Reject, "recipient=<c@x.sales.test>"},
    {"no macros", "<refused%bad.test@bad.test>", "", "<c@b.test>", "", "", Reply::Continue, ""},
    {"null sender", "<>", "", "<a@b.test>", "a@b.test", "smtp", Reply::Continue, ""},
    {"local user", "<refused@bad.test>", "refused", "<a@b.test>", "a", "local", Reply::Reject,
     "sender=<refused@bad.test>"},
    {"reason of a recipient that the server refuses", "<mixed@bad.test>", "mixed@bad.test", "<\"c\"@x.sales.test>",
     "5.1.1 <c@b.test>: unknown", "error", Reply::Reject, "recipient=\"<\\\"c\\\"@x.sales.test>\""},
    {"plain address that a table of the server leads elsewhere", "<mixed@bad.test>", "mixed@bad.test",
     "<c@x.sales.test>", "other@b.test", "smtp", Reply::Reject, "recipient=<c@x.sales.test>"},
};

TEST_F(SessionTest, decidesByTheAddressesThatTheMailServerDeliversTo) {
  m_made.policy().rules[9].reply = "not to sales";
  usePolicy();
  for (const RewrittenCase& row : kRewrittenCases) {
    SCOPED_TRACE(row.label);
    m_server.macros = {{"{mail_addr}", row.mailAddress},
                       {"{mail_mailer}", "error"},
                       {"{rcpt_addr}", row.recipientAddress},
                       {"{rcpt_mailer}", row.recipientMailer}};
    testing::internal::CaptureStderr();
    EXPECT_EQ(recipientReply(row.sender, row.recipient), row.reply);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(row.told));
  }
}

TEST_F(SessionTest, knowsARecipientThatIsThereAlreadyByItsAddressAndNamesItAsSpelled) {
  usePolicy();
  m_session.beginMessage("<moved@bad.test>", m_server);
  for (const auto& [spelled, address] :
       {std::pair("<a%b.test>", "a@b.test"), std::pair("<other%b.test>", "other@b.test")}) {
    m_server.macros["{rcpt_addr}"] = address;
    EXPECT_EQ(m_session.recipient(spelled, m_server), Reply::Continue);
  }
  EXPECT_EQ(m_session.endOfMessage(m_server), Reply::Continue);
  EXPECT_THAT(m_server.notes, ElementsAre("delete <a%b.test>", HasSubstr("rule=move")));
}

// Whether a recipient is refused at once or at the end of the message is the same to the copies.
TEST_F(SessionTest, copiesForARecipientThatWasRefusedOrPostponed) {
  const unsigned int toSales = m_made.entity("*@sales.b.test");
  const struct {
    const char* key;
    const char* reply;
    MailPolicy::Compare compare;
    Reply recipient;
  } kCases[] = {{"Delete", "no", MailPolicy::Compare::Envelope, Reply::Reject},
                {"Delete", "no", MailPolicy::Compare::Header, Reply::Continue},
                {"Postpone", "", MailPolicy::Compare::Envelope, Reply::TempFail},
                {"Postpone", "", MailPolicy::Compare::Header, Reply::Continue}};
  for (const auto& row : kCases) {
    SCOPED_TRACE(std::string(row.key) + " " + nameOfComparison(row.compare));
    m_made.policy().rules.clear();
    MailPolicy::Rule& rule = m_made.rule("archive", {"archived@bad.test"}, 2, {"Archive", row.key});
    rule.scope = toSales;
    rule.compare = row.compare;
    rule.reply = row.reply;
    rule.address = "archive@b.test";
    usePolicy();
    m_server.notes.clear();
    m_session.beginMessage("<archived@bad.test>", m_server);
    EXPECT_EQ(m_session.recipient("<c@sales.b.test>", m_server), row.recipient);
    EXPECT_EQ(m_session.recipient("<a@b.test>", m_server), Reply::Continue);
    m_session.header("From", "archived@bad.test");
    EXPECT_EQ(m_session.endOfMessage(m_server), Reply::Continue);
    EXPECT_THAT(m_server.notes, Contains("add archive@b.test"));
    // The next message of the connection has nothing of it.
    m_server.notes.clear();
    send("<nobody@good.test>", {"<a@b.test>"});
    EXPECT_THAT(m_server.notes, IsEmpty());
  }
}

TEST_F(SessionTest, tellsDifferentAddressesApartInTheLog) {
  usePolicy();
  const auto told = [this](const std::string& sender) {
    testing::internal::CaptureStderr();
    send(sender, {"<a@b.test>"});
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_THAT(told("<\"u\"@b.test>"), HasSubstr(R"( sender="<\"u\"@b.test>" )"));
  EXPECT_THAT(told("<'u'@b.test>"), HasSubstr(" sender=<'u'@b.test> "));
  EXPECT_THAT(told(R"(<u\"@b.test>)"), HasSubstr(R"( sender="<u\\\"@b.test>" )"));
  EXPECT_THAT(told(R"(<u\v@b.test>)"), HasSubstr(R"( sender=<u\\v@b.test> )"));
  EXPECT_THAT(told("<u\tv@b.test>"), HasSubstr(R"( sender=<u\tv@b.test> )"));
}

TEST_F(SessionTest, goesByTheSettingWithoutAPolicy) {
  EXPECT_EQ(recipientReply("<a@b.test>"), Reply::TempFail);
  EXPECT_EQ(m_server.reply.substr(0, 9), "451 4.3.5");
  m_parts.settings.acceptWithoutPolicy = true;
  EXPECT_EQ(send("<refused@bad.test>", {"<a@b.test>"}), Reply::Continue);
  EXPECT_THAT(m_server.notes, IsEmpty());
}

TEST_F(SessionTest, postponesAMessageWhoseActionsAreNotTaken) {
  usePolicy();
  m_server.takes = false;
  EXPECT_EQ(send("<held@bad.test>", {"<a@b.test>"}), Reply::TempFail);
}

TEST_F(SessionTest, keepsThePolicyThatTheMessageBeganWith) {
  usePolicy();
  m_session.beginMessage("<dropped@bad.test>", m_server);
  EXPECT_EQ(m_session.recipient("<a@b.test>", m_server), Reply::Continue);
  m_parts.use(MailPolicy());
  m_parts.holder.destroyReturned();
  EXPECT_EQ(m_session.endOfMessage(m_server), Reply::Discard);
  EXPECT_EQ(send("<dropped@bad.test>", {"<a@b.test>"}), Reply::Continue);
}

TEST_F(SessionTest, beginsNoMessageOnceTheFilterStops) {
  usePolicy();
  m_session.beginMessage("<friend@bad.test>", m_server);
  EXPECT_FALSE(m_messages.finish(std::chrono::milliseconds(0)));
  EXPECT_EQ(m_session.recipient("<a@b.test>", m_server), Reply::Continue);
  m_session.endMessage();
  EXPECT_TRUE(m_messages.finish(std::chrono::milliseconds(0)));
  EXPECT_EQ(recipientReply("<friend@bad.test>"), Reply::TempFail);
}

}  // namespace
