// What a mail server does to a message for the filter. Each answers false when the server does not take it.
#pragma once

#include <string>

class MailServer {
 public:
  MailServer() = default;
  virtual ~MailServer() = default;
  MailServer(const MailServer&) = delete;
  MailServer& operator=(const MailServer&) = delete;

  // A macro of the server; empty when it has none of the name.
  virtual std::string macro(const char* name) = 0;
  // What the next reply says: a code of SMTP, an enhanced status, and one line.
  virtual bool setReply(const char* code, const char* status, const std::string& text) = 0;

  // At the end of the message.
  virtual bool addRecipient(const std::string& recipient) = 0;
  virtual bool deleteRecipient(const std::string& recipient) = 0;
  virtual bool hold(const std::string& reason) = 0;
  // The header field that is the `index`th of its name, from 1.
  virtual bool replaceHeader(const std::string& name, int index, const std::string& value) = 0;
  virtual bool deleteHeader(const std::string& name, int index) = 0;
  virtual bool insertHeader(const std::string& name, const std::string& value) = 0;
};
