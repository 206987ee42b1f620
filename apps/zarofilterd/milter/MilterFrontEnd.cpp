#include "milter/MilterFrontEnd.h"

#include <libmilter/mfapi.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <new>

#include "ZaroRuntime/RuntimeError.h"
#include "milter/Session.h"

namespace {

// libmilter's callbacks have no place for these.
const DecisionDesk* sharedDesk = nullptr;
MessagesInProgress* sharedMessages = nullptr;

// What a session needs beside itself: which replies the server expects.
struct Connection {
  explicit Connection(sfsistat withoutReply) : session(*sharedDesk, *sharedMessages), noReply(withoutReply) {}

  Session session;
  sfsistat noReply;     // of callbacks that have nothing to say
  bool failed = false;  // what was postponed without a reply is postponed at the next one
};

// libmilter takes texts without const, and leaves them as they are.
char* mutableText(const char* text) {
  return const_cast<char*>(text);
}

// A percent sign in a reply stands for something in some servers unless it is doubled.
std::string withDoubledPercents(const std::string& text) {
  std::string doubled;
  for (const char letter : text) {
    doubled.append(letter == '%' ? 2 : 1, letter);
  }
  return doubled;
}

class LibmilterServer : public MailServer {
 public:
  explicit LibmilterServer(SMFICTX* context) : m_context(context) {}

  std::string macro(const char* name) override {
    const char* value = smfi_getsymval(m_context, mutableText(name));
    return value != nullptr ? value : "";
  }
  bool setReply(const char* code, const char* status, const std::string& text) override {
    return smfi_setreply(m_context, mutableText(code), mutableText(status),
                         mutableText(withDoubledPercents(text).c_str())) == MI_SUCCESS;
  }
  bool addRecipient(const std::string& recipient) override {
    return smfi_addrcpt(m_context, mutableText(recipient.c_str())) == MI_SUCCESS;
  }
  bool deleteRecipient(const std::string& recipient) override {
    return smfi_delrcpt(m_context, mutableText(recipient.c_str())) == MI_SUCCESS;
  }
  bool hold(const std::string& reason) override {
    return smfi_quarantine(m_context, mutableText(reason.c_str())) == MI_SUCCESS;
  }
  bool replaceHeader(const std::string& name, int index, const std::string& value) override {
    return smfi_chgheader(m_context, mutableText(name.c_str()), index, mutableText(value.c_str())) == MI_SUCCESS;
  }
  bool deleteHeader(const std::string& name, int index) override {
    return smfi_chgheader(m_context, mutableText(name.c_str()), index, nullptr) == MI_SUCCESS;
  }
  bool insertHeader(const std::string& name, const std::string& value) override {
    constexpr int kBehindTheServersOwn = 1;
    return smfi_insheader(m_context, kBehindTheServersOwn, mutableText(name.c_str()), mutableText(value.c_str())) ==
           MI_SUCCESS;
  }

 private:
  SMFICTX* m_context;
};

Connection* connectionOf(SMFICTX* context) {
  return static_cast<Connection*>(smfi_getpriv(context));
}

// Nothing may be thrown through libmilter, and memory may be what is missing.
void tellFailure(const char* text, const char* why) {
  try {
    sharedDesk->log.error(std::string(text) + why);
  } catch (const std::exception&) {
    return;  // the server's log has the reply
  }
}

// Runs the work of a callback on its connection. Out of memory, the message is postponed.
template <typename Work>
sfsistat onConnection(SMFICTX* context, Work work) {
  Connection* connection = connectionOf(context);
  if (connection == nullptr) {
    return SMFIS_TEMPFAIL;
  }
  try {
    LibmilterServer server(context);
    return work(*connection, server);
  } catch (const std::exception& failure) {
    connection->failed = true;
    tellFailure("a message is postponed: ", failure.what());
    return SMFIS_TEMPFAIL;
  }
}

sfsistat status(Session::Reply reply) {
  switch (reply) {
    case Session::Reply::Reject:
      return SMFIS_REJECT;
    case Session::Reply::TempFail:
      return SMFIS_TEMPFAIL;
    case Session::Reply::Discard:
      return SMFIS_DISCARD;
    case Session::Reply::Continue:
      break;
  }
  return SMFIS_CONTINUE;
}

constexpr unsigned long kActions = SMFIF_ADDHDRS | SMFIF_CHGHDRS | SMFIF_ADDRCPT | SMFIF_DELRCPT | SMFIF_QUARANTINE;
constexpr unsigned long kNotNeeded =
    SMFIP_NOCONNECT | SMFIP_NOHELO | SMFIP_NODATA | SMFIP_NOUNKNOWN | SMFIP_NOEOH | SMFIP_NOBODY;
// Without a reply to wait for, the server goes on at once.
constexpr unsigned long kNoReply = SMFIP_NR_MAIL | SMFIP_NR_HDR;

sfsistat negotiate(SMFICTX* context, unsigned long offeredActions, unsigned long offeredSteps, unsigned long /*unused*/,
                   unsigned long /*unused*/, unsigned long* actions, unsigned long* steps, unsigned long* unused2,
                   unsigned long* unused3) {
  if ((offeredActions & kActions) != kActions) {
    tellFailure("the mail server does not offer what the filter needs to do to messages", "");
    return SMFIS_REJECT;
  }
  // All of them or none, so that callbacks know what is expected.
  const bool silent = (offeredSteps & kNoReply) == kNoReply;
  *actions = kActions;
  *steps = offeredSteps & (kNotNeeded | (silent ? kNoReply : 0));
  *unused2 = 0;
  *unused3 = 0;
  auto* connection = new (std::nothrow) Connection(silent ? SMFIS_NOREPLY : SMFIS_CONTINUE);
  if (connection == nullptr || smfi_setpriv(context, connection) != MI_SUCCESS) {
    delete connection;
    return SMFIS_REJECT;
  }
  return SMFIS_CONTINUE;
}

sfsistat onMail(SMFICTX* context, char** arguments) {
  return onConnection(context, [&](Connection& connection, MailServer& server) {
    connection.failed = false;
    connection.session.beginMessage(arguments[0], server);
    return connection.noReply;
  });
}

sfsistat onRecipient(SMFICTX* context, char** arguments) {
  return onConnection(context, [&](Connection& connection, MailServer& server) {
    return connection.failed ? SMFIS_TEMPFAIL : status(connection.session.recipient(arguments[0], server));
  });
}

sfsistat onHeader(SMFICTX* context, char* name, char* value) {
  return onConnection(context, [&](Connection& connection, MailServer& /*server*/) {
    connection.session.header(name, value);
    return connection.noReply;
  });
}

sfsistat onEndOfMessage(SMFICTX* context) {
  return onConnection(context, [](Connection& connection, MailServer& server) {
    const sfsistat result = connection.failed ? SMFIS_TEMPFAIL : status(connection.session.endOfMessage(server));
    connection.session.endMessage();
    return result;
  });
}

sfsistat onAbort(SMFICTX* context) {
  return onConnection(context, [](Connection& connection, MailServer& /*server*/) {
    connection.session.endMessage();
    return SMFIS_CONTINUE;
  });
}

sfsistat onClose(SMFICTX* context) {
  delete connectionOf(context);
  smfi_setpriv(context, nullptr);
  return SMFIS_CONTINUE;
}

smfiDesc description() {
  static char name[] = "zarofilterd";
  smfiDesc filter = {};
  filter.xxfi_name = name;
  filter.xxfi_version = SMFI_VERSION;
  filter.xxfi_flags = kActions;
  filter.xxfi_envfrom = onMail;
  filter.xxfi_envrcpt = onRecipient;
  filter.xxfi_header = onHeader;
  filter.xxfi_eom = onEndOfMessage;
  filter.xxfi_abort = onAbort;
  filter.xxfi_close = onClose;
  filter.xxfi_negotiate = negotiate;
  return filter;
}

}  // namespace

MilterFrontEnd::MilterFrontEnd(const DecisionDesk& desk, MessagesInProgress& messages) : m_file(desk.settings.socket) {
  sharedDesk = &desk;
  sharedMessages = &messages;
  const std::string& socket = desk.settings.socket;
  constexpr int kSecondsOfSilence = 7210;  // longer than a mail server keeps a session
  constexpr bool kReplaceTheFile = true;
  const bool opened = smfi_setconn(mutableText(socket.c_str())) == MI_SUCCESS &&
                      smfi_register(description()) == MI_SUCCESS && smfi_settimeout(kSecondsOfSilence) == MI_SUCCESS &&
                      smfi_opensocket(kReplaceTheFile) == MI_SUCCESS;
  if (!opened) {
    throw zaroruntime::RuntimeError("[mail_filter] socket: cannot listen at " + socket,
                                    zaroruntime::FailureKind::Configuration);
  }
  m_file.open(desk.settings.socketMode, desk.settings.socketGroup);
}

void MilterFrontEnd::run() {
  smfi_main();
}

// In the place of the C library's function, for the whole program. libmilter has a thread that waits here for the signals
// that end services, SIGHUP among them, and breaks off every message when it gets one. The kernel prefers the thread that
// handles signals, but not while it has another one to take; and a thread that begins to wait gets what is pending.
//
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the header has reserved names
extern "C" int sigwait(const sigset_t* set, int* number) {
  while (sigismember(set, SIGHUP) == 1) {
    pause();
  }
  do {
    *number = sigwaitinfo(set, nullptr);
  } while (*number < 0 && errno == EINTR);
  return *number < 0 ? errno : 0;
}
