// The milter's session on a scripted mail server: its callbacks in any order, with any texts, while the policy changes.
#include "milter/Session.h"

#include <strings.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "QuietErrors.h"
#include "integration/filter/FilterParts.h"
#include "integration/policy/PolicyMaker.h"

namespace {

using Reply = Session::Reply;

constexpr const char* kHeader = "X-Zaro-Policy";
constexpr const char* kOther = "other@b.test";
constexpr const char* kArchive = "archive@b.test";

// A rule for each thing that can be done, and two that ask the header.
MailPolicy everyAction() {
  PolicyMaker made;
  made.rule("allow", {"friend@bad.test", "<>"}, 1, {});
  made.rule("refuse", {"refused@bad.test"}, 2, {"Delete"}).reply = "go away, \u00FC";
  made.rule("drop", {"dropped@bad.test"}, 2, {"Delete"});
  made.rule("later", {"later@bad.test"}, 2, {"Postpone"});
  made.rule("tag", {"tagged@bad.test"}, 2, {"SubjectTagging"}).tag = "[\u00DC]";
  made.rule("mark", {"marked@bad.test"}, 2, {"InsertXHeaderTag"}).headerValue = "verd\u00E4chtig";
  made.rule("move", {"moved@bad.test"}, 2, {"Readdress"}).address = kOther;
  made.rule("copy", {"copied@bad.test"}, 2, {"Bcc"}).address = kArchive;
  const unsigned int spam = made.area("Spam");
  made.rule("hold", {"held@bad.test"}, 2, {"Quarantine", "Postpone"}).quarantine = spam;
  MailPolicy::Rule& sales = made.rule("sales", {"*@bad.test"}, 2, {"Delete", "SubjectTagging"});
  sales.scope = made.entity("*@*.sales.test");
  sales.tag = "[S]";
  sales.compare = MailPolicy::Compare::Both;
  MailPolicy::Rule& forged = made.rule("forged", {"forged@*"}, 2, {"Delete"});
  forged.compare = MailPolicy::Compare::Header;
  forged.reply = "not from there";
  MailPolicy::Rule& weak = made.rule("weak", {"*@weak.test"}, 4, {"Quarantine", "Readdress"});
  weak.address = kOther;
  weak.quarantine = spam;
  return made.policy();
}

MailPolicy fewRules() {
  PolicyMaker made;
  made.rule("all", {"*"}, 2, {"Delete"});
  made.policy().version = 2;
  return made.policy();
}

bool isPrintable(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char letter) { return letter >= ' ' && letter <= '~'; });
}

// Whether nothing in a value ends the header field.
bool isHeaderValue(const std::string& value) {
  for (std::size_t at = value.find('\n'); at != std::string::npos; at = value.find('\n', at + 1)) {
    if (at + 1 == value.size() || value[at + 1] != ' ') {
      return false;
    }
  }
  return value.find('\r') == std::string::npos;
}

// A mail server that allows what the protocol allows, and takes what the input says.
class StrictServer : public MailServer {
 public:
  bool isAtEnd = false;
  bool takes = true;
  bool loggedIn = false;
  unsigned int actions = 0;
  std::set<std::string> recipients;
  int ownHeaders = 0;
  std::string subject;  // which may hold line ends of its own

  std::string macro(const char* name) override {
    return std::string(name) == "{auth_authen}" ? (loggedIn ? "user" : "") : "id";
  }
  bool setReply(const char* code, const char* status, const std::string& text) override {
    FUZZ_CHECK(std::string(code).size() == 3 && status[0] == code[0] && text.size() <= 400 && isPrintable(text));
    return takes;
  }
  bool addRecipient(const std::string& recipient) override {
    FUZZ_CHECK(recipient == kOther || recipient == kArchive);
    return act();
  }
  bool deleteRecipient(const std::string& recipient) override {
    FUZZ_CHECK(recipients.count(recipient) == 1);
    return act();
  }
  bool hold(const std::string& reason) override {
    FUZZ_CHECK(reason == "area Spam");
    return act();
  }
  bool replaceHeader(const std::string& name, int index, const std::string& value) override {
    FUZZ_CHECK(name == "Subject" && index == 1 && (isHeaderValue(value) || !isHeaderValue(subject)));
    return act();
  }
  bool deleteHeader(const std::string& name, int index) override {
    FUZZ_CHECK(name == kHeader && index >= 1 && index <= ownHeaders);
    ownHeaders = index - 1;  // from the last one on
    return act();
  }
  bool insertHeader(const std::string& name, const std::string& value) override {
    FUZZ_CHECK((name == kHeader || name == "Subject") && isHeaderValue(value));
    return act();
  }

 private:
  bool act() {
    FUZZ_CHECK(isAtEnd);
    ++actions;
    return takes;
  }
};

class Script {
 public:
  Script() : m_session(m_parts.desk, m_messages) {}

  void obey(char step, const std::string& text) {
    switch (step) {
      case 'm':
        m_session.beginMessage(text, m_server);
        m_isBegun = !m_isStopped;
        forgetMessage();
        break;
      case 'r':
        recipient(text);
        break;
      case 'h':
        header(text);
        break;
      case 'e':
        end();
        break;
      case 'a':
        m_session.endMessage();
        forgetMessage();
        m_isBegun = false;
        break;
      case 'y':
        if (whyNoFilterValue("delimiter", text).empty()) {
          m_parts.settings.decisions.delimiter = text;
        }
        break;
      default:
        change(step);
    }
  }

  void finish() {
    m_session.endMessage();
    FUZZ_CHECK(m_messages.finish(std::chrono::milliseconds(0)));
  }

 private:
  void recipient(const std::string& text) {
    const Reply reply = m_session.recipient(text, m_server);
    FUZZ_CHECK(m_isBegun || reply == Reply::TempFail);
    FUZZ_CHECK(reply != Reply::Discard);
    if (reply == Reply::Continue) {
      m_server.recipients.insert(text);
    }
  }

  void header(const std::string& text) {
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string name = text.substr(0, colon);
    const std::string value = colon < text.size() ? text.substr(colon + 1) : "";
    m_session.header(name, value);
    m_server.ownHeaders += strcasecmp(name.c_str(), kHeader) == 0 ? 1 : 0;
    if (strcasecmp(name.c_str(), "Subject") == 0) {
      m_server.subject += value;
    }
  }

  void end() {
    m_server.isAtEnd = true;
    m_server.actions = 0;
    const Reply reply = m_session.endOfMessage(m_server);
    m_server.isAtEnd = false;
    FUZZ_CHECK(reply == Reply::Continue || m_server.actions == 0 || !m_server.takes);
    FUZZ_CHECK(reply == Reply::Continue || !m_parts.settings.decisions.shadow || !m_server.takes);
    m_session.endMessage();
    forgetMessage();
    m_isBegun = false;
  }

  void change(char step) {
    switch (step) {
      case 'p':
        m_parts.use(everyAction());
        break;
      case 'q':
        m_parts.use(fewRules());
        break;
      case 'n':
        m_parts.holder.clear();
        break;
      case 'd':
        m_parts.holder.destroyReturned();
        break;
      case 'x':
        static_cast<void>(m_messages.finish(std::chrono::milliseconds(0)));
        m_isStopped = true;
        break;
      default:
        if (bool* const turned = switchOf(step)) {
          *turned = !*turned;
        }
        break;
    }
  }

  bool* switchOf(char step) {
    switch (step) {
      case 't':
        return &m_server.takes;
      case 'l':
        return &m_server.loggedIn;
      case 's':
        return &m_parts.settings.decisions.shadow;
      case 'b':
        return &m_parts.settings.decisions.stripBatv;
      case 'z':
        return &m_parts.settings.decisions.stripSrs;
      case 'o':
        return &m_parts.settings.decisions.exemptAuthenticated;
      case 'w':
        return &m_parts.settings.acceptWithoutPolicy;
      default:
        return nullptr;
    }
  }

  void forgetMessage() {
    m_server.recipients.clear();
    m_server.ownHeaders = 0;
    m_server.subject.clear();
  }

  zarotest::FilterParts m_parts;
  MessagesInProgress m_messages;
  StrictServer m_server;
  Session m_session;
  bool m_isBegun = false;
  bool m_isStopped = false;
};

}  // namespace

// Each line is a step: a letter, and the text that goes with it. libmilter hands out C strings.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongestInput = 4096;
  if (size > kLongestInput) {
    return 0;
  }
  const QuietErrors quiet;
  Script script;
  script.obey('p', "");
  std::string line;
  for (const char character : textOf(data, size) + '\n') {
    if (character != '\n' && character != '\0') {
      // A line end inside of a header, as servers hand it over.
      line += character == '\v' ? '\n' : character;
    } else if (!line.empty()) {
      script.obey(line[0], line.substr(1));
      line.clear();
    }
  }
  script.finish();
  return 0;
}
