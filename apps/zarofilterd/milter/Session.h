// One connection of the mail server, message by message. It belongs to no thread: libmilter calls from any, one at a time.
//
// A message keeps the policy that was current when it began. Recipients that are refused or postponed are answered at
// once; everything else happens at the end of the message.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DecisionDesk.h"
#include "milter/MailServer.h"
#include "milter/MessagesInProgress.h"
#include "policy/MessageVerdict.h"

class Session {
 public:
  enum class Reply { Continue, Reject, TempFail, Discard };

  // Both must outlive it.
  Session(const DecisionDesk& desk, MessagesInProgress& messages) : m_desk(desk), m_messages(messages) {}
  ~Session() { endMessage(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Addresses come as the client spells them. A server may deliver to another one than is spelled, such as Postfix to
  // u@example.com for <u%example.com>; rules are asked for the one in the macros {mail_addr} and {rcpt_addr} then.
  // Throw std::bad_alloc; the message is then to be postponed.
  void beginMessage(const std::string& sender, MailServer& server);
  Reply recipient(const std::string& recipient, MailServer& server);
  void header(const std::string& name, const std::string& value);
  Reply endOfMessage(MailServer& server);
  // The message is over, however it ended.
  void endMessage();

 private:
  struct Recipient {
    std::string spelled;  // by which the server knows it
    std::string asked;
    Verdict verdict;
  };

  Question _question(const std::string& recipient) const;
  void _decideByHeader();
  MessageVerdict _resolve() const;
  void _tellAll(const std::string& queueId, const MessageVerdict& message) const;
  Reply _refuse(const char* code, const char* status, const std::string& text, MailServer& server) const;
  bool _apply(const MessageVerdict& message, MailServer& server) const;
  bool _applyToRecipients(const MessageVerdict& message, MailServer& server) const;
  bool _applyToHeaders(const MessageVerdict& message, MailServer& server) const;
  bool _deleteForgedHeaders(MailServer& server) const;

  const DecisionDesk& m_desk;
  MessagesInProgress& m_messages;

  // Of the message.
  bool m_begun = false;
  bool m_authenticated = false;
  std::shared_ptr<const PolicyGeneration> m_policy;
  std::string m_sender;
  std::vector<Recipient> m_recipients;
  std::vector<Verdict> m_turnedAway;  // that ask for copies, for recipients that were refused or postponed
  std::optional<std::string> m_from;  // the field, not yet read
  std::optional<std::string> m_headerFrom;
  std::optional<std::string> m_subject;
  int m_forgedHeaders = 0;
};
