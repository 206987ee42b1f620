#include "delegation/PolicyListener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>

#include "ZaroRuntime/RuntimeError.h"
#include "milter/HeaderText.h"
#include "policy/MessageVerdict.h"

namespace {

constexpr std::chrono::milliseconds kPause{100};  // where descriptors or memory are short
constexpr const char* kNothing = "DUNNO";

struct Address {
  sockaddr_storage storage = {};
  socklen_t size = 0;
};

// "unix:PATH", "inet:PORT@ADDRESS" or "inet6:PORT@ADDRESS", as the settings have checked it.
Address addressOf(const std::string& socket) {
  Address address;
  const std::size_t colon = socket.find(':');
  const std::string rest = socket.substr(colon + 1);
  const std::size_t at = rest.find('@');
  if (socket.compare(0, colon, "unix") == 0) {
    auto& local = reinterpret_cast<sockaddr_un&>(address.storage);
    local.sun_family = AF_UNIX;
    rest.copy(local.sun_path, sizeof local.sun_path - 1);
    address.size = sizeof local;
  } else if (socket.compare(0, colon, "inet") == 0) {
    auto& inet = reinterpret_cast<sockaddr_in&>(address.storage);
    inet.sin_family = AF_INET;
    inet.sin_port = htons(static_cast<std::uint16_t>(std::stoul(rest)));
    inet_pton(AF_INET, rest.substr(at + 1).c_str(), &inet.sin_addr);
    address.size = sizeof inet;
  } else {
    auto& inet = reinterpret_cast<sockaddr_in6&>(address.storage);
    inet.sin6_family = AF_INET6;
    inet.sin6_port = htons(static_cast<std::uint16_t>(std::stoul(rest)));
    inet_pton(AF_INET6, rest.substr(at + 1).c_str(), &inet.sin6_addr);
    address.size = sizeof inet;
  }
  return address;
}

int listenAt(const std::string& socket) {
  const Address address = addressOf(socket);
  const int descriptor = ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int on = 1;
  if (descriptor >= 0 && address.storage.ss_family != AF_UNIX) {
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  }
  if (descriptor < 0 || bind(descriptor, reinterpret_cast<const sockaddr*>(&address.storage), address.size) != 0 ||
      listen(descriptor, SOMAXCONN) != 0) {
    const std::string reason = std::strerror(errno);
    if (descriptor >= 0) {
      close(descriptor);
    }
    throw zaroruntime::RuntimeError("[mail_filter] policy_socket: cannot listen at " + socket + ": " + reason);
  }
  return descriptor;
}

// A file that an earlier filter left behind; no process listens there.
void removeOldFile(const std::string& path) {
  struct stat status = {};
  if (!path.empty() && lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
    unlink(path.c_str());
  }
}

// What happens to the recipient, in a word for the log, and the action that brings it about.
struct Outcome {
  const char* word;
  std::string action;
};

Outcome outcomeOf(const Verdict& verdict, const MailFilterOptions& options) {
  const RecipientOutcome outcome = outcomeAtRecipient(verdict, options);
  if (outcome.what == RecipientOutcome::What::Refuse) {
    return {"refuse", "550 5.7.1 " + asReplyText(outcome.text)};
  }
  if (outcome.what == RecipientOutcome::What::Postpone) {
    return {"postpone", "451 4.7.1 Mail to this recipient is postponed by policy"};
  }
  if (!options.shadow && !verdict.awaitsHeader && verdict.does(ZaroAction::Delete)) {
    return {"refuse", "550 5.7.1 Mail to this recipient is refused by policy"};
  }
  return {"pass", kNothing};
}

}  // namespace

std::string policyAction(const DecisionDesk& desk, const PolicyRequest& request) {
  if (request.value("request") != "smtpd_access_policy" || request.value("protocol_state") != "RCPT") {
    return kNothing;
  }
  const std::shared_ptr<const PolicyGeneration> policy = desk.policy.current();
  if (policy == nullptr) {
    desk.metrics.countUndecided();
    return desk.settings.acceptWithoutPolicy ? kNothing : "451 4.3.5 There is no mail policy";
  }
  const std::string sender = request.value("sender");
  const std::string recipient = request.value("recipient");
  Question question;
  question.sender = sender;
  question.recipient = recipient;
  question.authenticated = !request.value("sasl_username").empty();
  const Verdict verdict = desk.decideWithoutHeader(*policy, question);
  const Outcome outcome = outcomeOf(verdict, desk.settings.decisions);
  desk.tell(*policy, request.value("queue_id"), question, verdict, outcome.word);
  return outcome.action;
}

PolicyListener::PolicyListener(const DecisionDesk& desk, const DelegationLimits& limits)
    : m_desk(desk), m_limits(limits), m_file(desk.settings.policySocket), m_listening(-1) {
  removeOldFile(m_file.path());
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw zaroruntime::RuntimeError(std::string("cannot make a pipe: ") + std::strerror(errno));
  }
  m_stopRead = ends[0];
  m_stopWrite = ends[1];
  m_listening = listenAt(desk.settings.policySocket);
  m_file.open(desk.settings.socketMode, desk.settings.socketGroup);
  m_thread = std::thread([this] { _serve(); });
}

PolicyListener::~PolicyListener() {
  close(m_stopWrite);  // which the thread sees
  m_thread.join();
  m_file.remove();
  close(m_stopRead);
  close(m_listening);
  for (const Connection& connection : m_connections) {
    if (connection.descriptor != kClosed) {
      close(connection.descriptor);
    }
  }
}

void PolicyListener::_serve() {
  for (bool goesOn = true; goesOn;) {
    try {
      goesOn = _serveOnce();
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(kPause);
    }
  }
}

bool PolicyListener::_serveOnce() {
  std::vector<pollfd> waiting = {{m_stopRead, POLLIN, 0},
                                 {m_listening, static_cast<short>(m_acceptFailed ? 0 : POLLIN), 0}};
  for (const Connection& connection : m_connections) {
    const short wanted = connection.unsent.empty() ? POLLIN : POLLOUT;
    waiting.push_back({connection.descriptor, wanted, 0});
  }
  const int longest = _longestWait();
  m_acceptFailed = false;
  if (poll(waiting.data(), waiting.size(), longest) < 0) {
    return true;
  }
  if (waiting[0].revents != 0) {
    return false;
  }
  for (std::size_t i = 0; i < m_connections.size(); ++i) {
    Connection& connection = m_connections[i];
    const short events = waiting[i + 2].revents;
    const bool goesOn = events == 0 || _exchange(connection, events);
    if (!goesOn || Clock::now() >= connection.lastRequest + m_limits.idle) {
      close(connection.descriptor);
      connection.descriptor = kClosed;
    }
  }
  const auto isClosed = [](const Connection& connection) { return connection.descriptor == kClosed; };
  m_connections.erase(std::remove_if(m_connections.begin(), m_connections.end(), isClosed), m_connections.end());
  if (waiting[1].revents != 0) {
    _accept();
  }
  return true;
}

// In milliseconds; -1 is for ever.
int PolicyListener::_longestWait() const {
  constexpr int kForever = -1;
  if (m_acceptFailed) {
    return static_cast<int>(kPause.count());
  }
  if (m_connections.empty()) {
    return kForever;
  }
  const auto left = _idlest()->lastRequest + m_limits.idle - Clock::now();
  constexpr std::chrono::milliseconds kRoundedUp{1};
  return static_cast<int>(
      std::max(std::chrono::duration_cast<std::chrono::milliseconds>(left) + kRoundedUp, kRoundedUp).count());
}

std::vector<PolicyListener::Connection>::const_iterator PolicyListener::_idlest() const {
  return std::min_element(m_connections.begin(), m_connections.end(), [](const Connection& one, const Connection& other) {
    return one.lastRequest < other.lastRequest;
  });
}

void PolicyListener::_accept() {
  m_connections.reserve(m_connections.size() + 1);
  const int descriptor = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (descriptor >= 0) {
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // of no effect on unix sockets
    if (m_connections.size() >= m_limits.connections) {
      const auto idlest = _idlest();
      close(idlest->descriptor);
      m_connections.erase(idlest);
    }
    m_connections.push_back({descriptor, "", "", Clock::now()});
  }
  // The connection waits on, and would be told of at once.
  m_acceptFailed = descriptor < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM);
}

bool PolicyListener::_exchange(Connection& connection, short events) const {
  if ((events & (POLLERR | POLLNVAL)) != 0) {
    return false;
  }
  try {
    return (events & POLLOUT) != 0 ? _send(connection) : _receive(connection);
  } catch (const std::bad_alloc&) {
    return false;  // the mail server asks again, or postpones
  } catch (const std::exception& failure) {
    m_desk.log.error(std::string("policy delegation: ") + failure.what());
    return false;
  }
}

bool PolicyListener::_receive(Connection& connection) const {
  char buffer[4096];
  const ssize_t count = read(connection.descriptor, buffer, sizeof buffer);
  if (count < 0) {
    return errno == EAGAIN || errno == EINTR;
  }
  if (count == 0) {
    return false;
  }
  connection.received.append(buffer, static_cast<std::size_t>(count));
  while (const std::optional<PolicyRequest> request = PolicyRequest::takeFrom(connection.received)) {
    connection.unsent += policyAnswer(policyAction(m_desk, *request));
    connection.lastRequest = Clock::now();
  }
  return connection.received.size() <= PolicyRequest::kLongest && _send(connection);
}

bool PolicyListener::_send(Connection& connection) {
  if (connection.unsent.empty()) {
    return true;
  }
  const ssize_t count = send(connection.descriptor, connection.unsent.data(), connection.unsent.size(), MSG_NOSIGNAL);
  if (count < 0) {
    return errno == EAGAIN || errno == EINTR;
  }
  connection.unsent.erase(0, static_cast<std::size_t>(count));
  return true;
}
