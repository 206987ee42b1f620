#include "policyclient/PolicyClient.h"

#include <algorithm>
#include <memory>
#include <random>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "installation/PrivateFile.h"
#include "policy/PolicySnapshot.h"

using std::chrono::milliseconds;
using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

// Of a snapshot, as text. A million patterns are some 40 MB.
constexpr std::size_t kLargestSnapshot = std::size_t(1) << 30U;
constexpr std::size_t kLongestToken = 4096;
// Where the settings set no time: a client that waited for ever would never come to the next server.
constexpr std::chrono::seconds kTimeOut(60);

std::function<double()> generator() {
  auto engine = std::make_shared<std::minstd_rand>(std::random_device{}());
  return [engine] { return std::uniform_real_distribution<double>(0, 1)(*engine); };
}

std::chrono::seconds orDefault(std::chrono::seconds timeOut) {
  return timeOut.count() != 0 ? timeOut : kTimeOut;
}

HttpOptions optionsOf(const ClientSettings& settings) {
  HttpOptions options;
  options.keepAlive = settings.keepAlive;
  options.connectTimeout = orDefault(settings.sendTimeout);
  options.largestBody = kLargestSnapshot;
  options.ca = settings.ca;
  options.certificate = settings.certificate;
  options.privateKey = settings.privateKey;
  return options;
}

// A server's own failure, after which it may ask to be left alone.
class ServerFailure : public RuntimeError {
 public:
  ServerFailure(const std::string& why, FailureKind kind, milliseconds pause = milliseconds::zero())
      : RuntimeError(why, kind), m_pause(pause) {}

  milliseconds pause() const { return m_pause; }

 private:
  milliseconds m_pause;
};

[[noreturn]] void refuse(const HttpAnswer& answer) {
  const std::string status = "(status " + std::to_string(answer.status) + ")";
  switch (answer.status) {
    case 401:
    case 403:
      throw ServerFailure(
          "does not take this host for a client " + status + "; token_file or certificate in section policy_client",
          FailureKind::Refused, answer.retryAfter);
    case 429:
    case 503:
      throw ServerFailure("has no policy to hand out now " + status, FailureKind::ConnectionLost, answer.retryAfter);
    default:
      break;
  }
  if (answer.status >= 300 && answer.status < 400) {
    throw ServerFailure("sends its clients elsewhere " + status + ", where none goes", FailureKind::Other);
  }
  throw ServerFailure("hands out no policy " + status, FailureKind::Other, answer.retryAfter);
}

std::string tokenIn(const std::string& path) {
  std::string token = readPrivateFile(path);
  token.erase(token.find_last_not_of(" \t\r\n") + 1);
  const bool isVisible =
      std::all_of(token.begin(), token.end(), [](char letter) { return letter > ' ' && letter < 127; });
  if (token.empty() || token.size() > kLongestToken || !isVisible) {
    throw RuntimeError(path + ": does not hold a token: one line of ASCII without blanks", FailureKind::Configuration);
  }
  return token;
}

}  // namespace

PolicyClient::PolicyClient(ClientSettings settings, PolicyClientSurroundings surroundings)
    : m_settings(std::move(settings)), m_surroundings(std::move(surroundings)), m_transfer(optionsOf(m_settings)) {
  if (!m_surroundings.chance) {
    m_surroundings.chance = generator();
  }
}

PolicyAnswer PolicyClient::ask(const PolicyQuestion& question) {
  _findServers();
  FailureKind kind = FailureKind::ConnectionLost;
  for (std::size_t i = 0; i < m_servers.size(); ++i) {
    const std::size_t at = (m_current + i) % m_servers.size();
    Server& server = m_servers[at];
    if (!question.isUrgent && server.backOff.remaining(m_surroundings.now()) > milliseconds::zero()) {
      continue;
    }
    try {
      PolicyAnswer answer = _ask(server, question);
      m_current = at;
      return answer;
    } catch (const ServerFailure& failure) {
      _fail(server, failure.what(), failure.pause());
      kind = failure.kind();
    } catch (const RuntimeError& failure) {
      _fail(server, failure.what(), milliseconds::zero());
      kind = failure.kind();
    }
  }
  throw RuntimeError(_failures(), kind);
}

milliseconds PolicyClient::pause() const {
  milliseconds shortest = BackOff::kLongest;
  for (const Server& server : m_servers) {
    shortest = std::min(shortest, server.backOff.remaining(m_surroundings.now()));
  }
  return m_servers.empty() ? m_listBackOff.remaining(m_surroundings.now()) : shortest;
}

// Throws RuntimeError when there is none; then the list has a pause as well.
std::vector<PolicyServerAddress> PolicyClient::_addresses() {
  if (!m_settings.servers.empty()) {
    return m_settings.servers;
  }
  try {
    std::vector<PolicyServerAddress> addresses = m_surroundings.registered();
    if (addresses.empty()) {
      throw RuntimeError(
          "there is no policy server to ask: host in section policy_client is empty, and none is registered",
          FailureKind::Configuration);
    }
    m_listBackOff.succeed();
    return addresses;
  } catch (const RuntimeError&) {
    m_listBackOff.fail(m_surroundings.now(), m_surroundings.chance());
    throw;
  }
}

// Servers come and go, so that the list is read again while all of them fail; the ones that stay keep their pauses.
// While the list cannot be had the one before counts.
void PolicyClient::_findServers() {
  const bool isFirst = m_servers.empty();
  const bool allFail =
      std::all_of(m_servers.begin(), m_servers.end(), [](const Server& server) { return !server.failure.empty(); });
  const bool isListDue =
      m_settings.servers.empty() && allFail && m_listBackOff.remaining(m_surroundings.now()) == milliseconds::zero();
  if (!isFirst && !isListDue) {
    return;
  }
  std::vector<PolicyServerAddress> addresses;
  try {
    addresses = _addresses();
  } catch (const RuntimeError&) {
    if (isFirst) {
      throw;
    }
    return;
  }
  std::vector<Server> servers;
  for (const PolicyServerAddress& address : addresses) {
    const auto before = std::find_if(m_servers.begin(), m_servers.end(),
                                     [&](const Server& server) { return server.address == address; });
    servers.push_back(before != m_servers.end() ? *before : Server{address, BackOff(), ""});
  }
  m_servers = std::move(servers);
  const double chance = isFirst ? m_surroundings.chance() : 0;
  m_current = std::min(static_cast<std::size_t>(chance * static_cast<double>(m_servers.size())), m_servers.size() - 1);
}

PolicyAnswer PolicyClient::_ask(Server& server, const PolicyQuestion& question) {
  std::optional<HttpAnswer> http = m_transfer.get(_requestTo(server, question));
  PolicyAnswer answer;
  if (!http) {
    return answer;
  }
  answer.server = server.address.text();
  if (http->status == 304 && !question.etag.empty()) {
    answer.kind = PolicyAnswer::Kind::Unchanged;
    answer.etag = question.etag;
  } else if (http->status == 200) {
    answer.kind = PolicyAnswer::Kind::Snapshot;
    answer.etag = std::move(http->etag);
    answer.text = std::move(http->body);
    answer.policy = readSnapshotText(answer.text);
    if (question.leastVersion && answer.policy.version < *question.leastVersion) {
      throw ServerFailure(
          "hands out version " + std::to_string(answer.policy.version) + ", and this host has " +
              std::to_string(*question.leastVersion) +
              " already; if the database came back from a backup, raise its counter (zaroctl policy raise), or stop "
              "the filter and fetch the policy into its place",
          FailureKind::Data);
    }
  } else {
    refuse(*http);
  }
  server.backOff.succeed();
  server.failure.clear();
  m_surroundings.answered(answer.server);
  return answer;
}

void PolicyClient::_fail(Server& server, const std::string& why, milliseconds pause) {
  server.backOff.fail(m_surroundings.now(), m_surroundings.chance(), pause);
  server.failure = why;
  m_surroundings.failed(server.address.text(), why);
}

// Of every server, also of those that were not asked this time: so the text changes only when a reason does.
std::string PolicyClient::_failures() const {
  std::string text;
  for (const Server& server : m_servers) {
    if (!server.failure.empty()) {
      text += (text.empty() ? "" : "; ") + ("policy server " + server.address.text() + ": ") + server.failure;
    }
  }
  return text;
}

HttpRequest PolicyClient::_requestTo(const Server& server, const PolicyQuestion& question) const {
  const bool waits = !question.etag.empty() && question.wait.count() > 0;
  HttpRequest request;
  request.url = std::string(m_settings.usesTls ? "https://" : "http://") + server.address.text() + "/v1/policy" +
                (waits ? "?wait=" + std::to_string(question.wait.count()) : "");
  request.patience = orDefault(m_settings.receiveTimeout) + (waits ? question.wait : std::chrono::seconds(0));
  request.headers.emplace_back("Accept: application/x-ndjson");
  if (!question.etag.empty()) {
    request.headers.push_back("If-None-Match: " + question.etag);
  }
  if (!m_settings.certificate.empty()) {
    readPrivateFile(m_settings.privateKey.empty() ? m_settings.certificate : m_settings.privateKey);
  }
  if (!m_settings.tokenFile.empty()) {
    request.headers.push_back("Authorization: Bearer " + tokenIn(m_settings.tokenFile));
  }
  return request;
}
