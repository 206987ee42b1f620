#include "milter/Session.h"

#include <strings.h>

#include <algorithm>
#include <set>

#include "mail/MailAddress.h"
#include "milter/HeaderText.h"
#include "patterns/PatternPieces.h"

namespace {

const char* const kPostponed = "Mail to this recipient is postponed by policy";

bool isName(const std::string& name, const std::string& other) {
  return strcasecmp(name.c_str(), other.c_str()) == 0;
}

// What happens to a recipient, as the log says it.
const char* wordFor(RecipientOutcome::What what) {
  switch (what) {
    case RecipientOutcome::What::Pass:
      return "pass";
    case RecipientOutcome::What::Refuse:
      return "refuse";
    case RecipientOutcome::What::Postpone:
      return "postpone";
    case RecipientOutcome::What::Drop:
      return "drop";
    case RecipientOutcome::What::Readdress:
      return "readdress";
  }
  return "";
}

bool isPlainInLocalPart(char character) {
  return isNameCharacter(character) && character != '%' && character != '!';
}

// Whether every mail server takes an address for what it says: <NAME@HOST.DOMAIN>, without characters that some read as
// a route.
bool isPlain(std::string_view spelled) {
  const bool isInBrackets = spelled.size() >= 2 && spelled.front() == '<' && spelled.back() == '>';
  const std::string_view address = isInBrackets ? spelled.substr(1, spelled.size() - 2) : spelled;
  const std::size_t at = std::min(address.find('@'), address.size());
  const std::string_view name = address.substr(0, at);
  return isMailbox(address) && address.find('.', at) != std::string_view::npos && address[at + 1] != '[' &&
         std::all_of(name.begin(), name.end(), isPlainInLocalPart);
}

// What the rules are asked for. A plain address stays: a server's tables may lead its mail elsewhere, and with Sendmail
// the macro says where. A macro without "@" names a local user, and adds nothing.
std::string askedFor(const std::string& spelled, const std::string& macro) {
  return isPlain(spelled) || macro.find('@') == std::string::npos ? spelled : '<' + macro + '>';
}

bool asksForACopy(const Verdict& verdict) {
  return verdict.does(ZaroAction::Archive) || verdict.does(ZaroAction::Bcc);
}

}  // namespace

void Session::beginMessage(const std::string& sender, MailServer& server) {
  endMessage();
  m_begun = m_messages.begin();
  m_sender = askedFor(sender, server.macro("{mail_addr}"));
  // The name that the client logged in with. A certificate's name is none.
  m_authenticated = !server.macro("{auth_authen}").empty();
  m_policy = m_desk.policy.current();
}

Session::Reply Session::recipient(const std::string& recipient, MailServer& server) {
  if (!m_begun) {
    return _refuse("451", "4.3.2", "The mail filter is stopping", server);
  }
  if (m_policy == nullptr) {
    m_desk.metrics.countUndecided();
    return m_desk.settings.acceptWithoutPolicy ? Reply::Continue
                                               : _refuse("451", "4.3.5", "There is no mail policy", server);
  }
  // Of a recipient that it refuses itself, a server has the reason there.
  const bool isRefused = server.macro("{rcpt_mailer}") == "error";
  const std::string asked = isRefused ? recipient : askedFor(recipient, server.macro("{rcpt_addr}"));
  const Question question = _question(asked);
  const Verdict verdict = m_desk.decide(*m_policy, question);
  const RecipientOutcome outcome = outcomeAtRecipient(verdict, m_desk.settings.decisions);
  const bool refused = outcome.what == RecipientOutcome::What::Refuse;
  if (!refused && outcome.what != RecipientOutcome::What::Postpone) {
    m_recipients.push_back({recipient, asked, verdict});
    return Reply::Continue;
  }
  if (asksForACopy(verdict)) {
    m_turnedAway.push_back(verdict);
  }
  m_desk.tell(*m_policy, server.macro("i"), question, verdict, wordFor(outcome.what));
  return refused ? _refuse("550", "5.7.1", outcome.text, server) : _refuse("451", "4.7.1", kPostponed, server);
}

void Session::header(const std::string& name, const std::string& value) {
  if (isName(name, m_desk.settings.decisions.header)) {
    ++m_forgedHeaders;
  } else if (!m_subject && isName(name, "Subject")) {
    m_subject = value;
  } else if (!m_from && isName(name, "From")) {
    m_from = value;
  }
}

Session::Reply Session::endOfMessage(MailServer& server) {
  if (m_recipients.empty()) {
    return _deleteForgedHeaders(server) ? Reply::Continue : Reply::TempFail;  // without a policy, let through
  }
  _decideByHeader();
  const MessageVerdict message = _resolve();
  _tellAll(server.macro("i"), message);
  if (message.refusal) {
    return _refuse("550", "5.7.1", *message.refusal, server);
  }
  if (message.isPostponed) {
    return _refuse("451", "4.7.1", kPostponed, server);
  }
  if (message.isDiscarded) {
    return Reply::Discard;
  }
  if (_apply(message, server)) {
    return Reply::Continue;
  }
  m_desk.metrics.countFailedMessage();
  m_desk.log.error(LogFields().add("queue", server.macro("i")).say("the mail server did not take what is to be done"));
  return Reply::TempFail;
}

void Session::endMessage() {
  if (m_begun) {
    m_messages.end();
  }
  m_begun = false;
  m_authenticated = false;
  m_sender.clear();
  m_recipients.clear();
  m_turnedAway.clear();
  m_from.reset();
  m_headerFrom.reset();
  m_subject.reset();
  m_forgedHeaders = 0;
  m_policy.reset();  // the verdicts pointed into it
}

Question Session::_question(const std::string& recipient) const {
  Question question;
  question.sender = m_sender;
  if (m_headerFrom) {
    question.headerFrom = *m_headerFrom;
  }
  question.recipient = recipient;
  question.authenticated = m_authenticated;
  return question;
}

// The verdicts that the header's From can still change. A message without one has the null sender there.
void Session::_decideByHeader() {
  m_headerFrom = addressOfFrom(m_from.value_or("")).value_or("");
  for (Recipient& recipient : m_recipients) {
    if (recipient.verdict.awaitsHeader) {
      recipient.verdict = m_desk.decide(*m_policy, _question(recipient.asked));
    }
  }
}

MessageVerdict Session::_resolve() const {
  std::vector<Verdict> verdicts;
  verdicts.reserve(m_recipients.size());
  for (const Recipient& recipient : m_recipients) {
    verdicts.push_back(recipient.verdict);
  }
  return resolve(verdicts, m_desk.settings.decisions, m_turnedAway);
}

void Session::_tellAll(const std::string& queueId, const MessageVerdict& message) const {
  for (std::size_t i = 0; i < m_recipients.size(); ++i) {
    const Recipient& recipient = m_recipients[i];
    m_desk.tell(*m_policy, queueId, _question(recipient.asked), recipient.verdict, wordFor(message.recipients[i].what));
  }
}

Session::Reply Session::_refuse(const char* code, const char* status, const std::string& text, MailServer& server) const {
  // A reply that the server does not take leaves its own for the same class of code.
  static_cast<void>(server.setReply(code, status, asReplyText(text)));
  return code[0] == '5' ? Reply::Reject : Reply::TempFail;
}

bool Session::_apply(const MessageVerdict& message, MailServer& server) const {
  return _applyToRecipients(message, server) && _applyToHeaders(message, server) &&
         (!message.hold || server.hold("area " + *message.hold));
}

// Who gets a copy or a redirected message may be a recipient already, also one that would go: it stays.
bool Session::_applyToRecipients(const MessageVerdict& message, MailServer& server) const {
  std::vector<std::string> added;
  std::set<std::string> wanted;
  const auto want = [&](const std::string& recipient) {
    if (wanted.insert(normalAddress(recipient)).second) {
      added.push_back(recipient);
    }
  };
  for (const RecipientOutcome& outcome : message.recipients) {
    if (outcome.what == RecipientOutcome::What::Readdress) {
      want(outcome.text);
    }
  }
  std::for_each(message.extraRecipients.begin(), message.extraRecipients.end(), want);

  bool taken = true;
  std::set<std::string> present;
  for (std::size_t i = 0; i < m_recipients.size(); ++i) {
    const std::string form = normalAddress(m_recipients[i].asked);
    present.insert(form);
    if (message.recipients[i].what != RecipientOutcome::What::Pass && wanted.count(form) == 0) {
      taken = taken && server.deleteRecipient(m_recipients[i].spelled);
    }
  }
  for (const std::string& recipient : added) {
    taken = taken && (present.count(normalAddress(recipient)) != 0 || server.addRecipient(recipient));
  }
  return taken;
}

bool Session::_applyToHeaders(const MessageVerdict& message, MailServer& server) const {
  const std::string& name = m_desk.settings.decisions.header;
  bool taken = _deleteForgedHeaders(server);
  if (message.tag) {
    const std::string subject = taggedSubject(*message.tag, m_subject.value_or(""));
    taken = taken && (m_subject ? server.replaceHeader("Subject", 1, subject) : server.insertHeader("Subject", subject));
  }
  if (message.headerValue) {
    taken = taken && server.insertHeader(name, asHeaderText(*message.headerValue));
  }
  if (message.decision) {
    taken = taken && server.insertHeader(name, *message.decision);
  }
  return taken;
}

// From the last one on, so that the numbers of those before it stay.
bool Session::_deleteForgedHeaders(MailServer& server) const {
  bool taken = true;
  for (int index = m_forgedHeaders; index > 0; --index) {
    taken = taken && server.deleteHeader(m_desk.settings.decisions.header, index);
  }
  return taken;
}
