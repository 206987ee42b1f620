#include "http/RequestHandler.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "http/RequestFields.h"

namespace {

enum class Resource { Policy, Health, Readiness, Metrics };

struct PathRow {
  const char* path;
  Resource resource;
};

constexpr PathRow kPaths[] = {
    {"/v1/policy", Resource::Policy},
    {"/healthz", Resource::Health},
    {"/readyz", Resource::Readiness},
    {"/metrics", Resource::Metrics},
};

constexpr const char* kPlain = "text/plain; charset=utf-8";
constexpr const char* kSecondsToRetry = "2";

Answer answerOf(unsigned int status, const char* type, std::string body) {
  Answer answer;
  answer.status = status;
  answer.fields.emplace_back("Content-Type", type);
  answer.fields.emplace_back("Cache-Control", "no-store");
  answer.body = std::make_shared<const std::string>(std::move(body));
  return answer;
}

Answer refuse(const std::string& why) {
  Answer answer = plainAnswer(401, "a client certificate or a bearer token is needed: " + why);
  answer.fields.emplace_back("WWW-Authenticate", "Bearer realm=\"policy\"");
  answer.refusal = why;
  return answer;
}

Answer unavailable() {
  Answer answer = plainAnswer(503, "there is no policy yet");
  answer.fields.emplace_back("Retry-After", kSecondsToRetry);
  return answer;
}

}  // namespace

Answer plainAnswer(unsigned int status, const std::string& text) {
  return answerOf(status, kPlain, text + "\n");
}

void RequestHandler::replaceTokens(std::shared_ptr<const Tokens> tokens) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_tokens.swap(tokens);
}

Answer RequestHandler::answer(const Request& request) const {
  const std::optional<Target> target = parseTarget(request.target, kLongestHold);
  const auto* row = std::find_if(std::begin(kPaths), std::end(kPaths),
                                 [&](const PathRow& known) { return target && target->path == known.path; });
  const bool isKnown = row != std::end(kPaths);
  const std::string why = _whyRefused(request, !isKnown || row->resource == Resource::Policy);
  Answer answer;
  if (!why.empty()) {
    answer = refuse(why);
  } else if (!target) {
    answer = plainAnswer(400, "the target of the request is wrong");
  } else if (!isKnown) {
    answer = plainAnswer(404, "not found");
  } else if (request.method != "GET" && request.method != "HEAD") {
    answer = plainAnswer(405, "GET and HEAD only");
    answer.fields.emplace_back("Allow", "GET, HEAD");
  } else if (row->resource == Resource::Policy) {
    answer = _policy(request, target->wait.value_or(std::chrono::seconds(0)));
  } else if (row->resource == Resource::Health) {
    answer = plainAnswer(200, "ok");
  } else if (row->resource == Resource::Readiness) {
    answer = _readiness();
  } else {
    answer = answerOf(200, kOpenMetricsType, m_metrics.text());
  }
  if (isKnown) {
    answer.path = row->path;
  }
  return answer;
}

// The state of the server is for the host itself as well, so that what watches over it there needs no token.
std::string RequestHandler::_whyRefused(const Request& request, bool isPolicy) const {
  if (!m_needsProof || request.hasCertificate || (request.isLocal && !isPolicy)) {
    return "";
  }
  if (request.authorization.empty()) {
    return request.certificateFault.empty() ? "there is none"
                                            : "the certificate is not good: " + request.certificateFault;
  }
  const std::optional<std::string_view> token = bearerToken(request.authorization);
  if (!token) {
    return "the Authorization field holds no bearer token";
  }
  std::shared_ptr<const Tokens> tokens;
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    tokens = m_tokens;
  }
  return tokens != nullptr && tokens->contains(*token) ? "" : "the token is wrong";
}

Answer RequestHandler::_policy(const Request& request, std::chrono::seconds wait) const {
  const std::shared_ptr<const ServedSnapshot> snapshot = m_snapshots.current();
  if (snapshot == nullptr) {
    Answer answer = unavailable();
    answer.hold = wait;
    return answer;
  }
  Answer answer;
  const bool compressed = takesGzip(request.acceptEncoding);
  answer.status = 200;
  answer.body = compressed ? snapshot->gzip : snapshot->text;
  answer.fields = {{"ETag", snapshot->tag}, {"Vary", "Accept-Encoding"}, {"Cache-Control", "private, no-cache"}};
  if (holdsTag(request.ifNoneMatch, snapshot->tag)) {
    answer.status = 304;
    answer.hold = wait;
    return answer;
  }
  answer.fields.emplace_back("Content-Type", "application/x-ndjson");
  if (compressed) {
    answer.fields.emplace_back("Content-Encoding", "gzip");
  }
  return answer;
}

Answer RequestHandler::_readiness() const {
  const std::shared_ptr<const ServedSnapshot> snapshot = m_snapshots.current();
  const SnapshotHolder::Freshness freshness = m_snapshots.freshness();
  nlohmann::ordered_json state = {{"ready", snapshot != nullptr}};
  state["version"] = snapshot != nullptr ? nlohmann::ordered_json(snapshot->version) : nullptr;
  state["age_seconds"] = freshness.age ? nlohmann::ordered_json(freshness.age->count()) : nullptr;
  state["database"] = freshness.isReachable ? "reachable" : "unreachable";
  Answer answer = answerOf(snapshot != nullptr ? 200 : 503, "application/json", state.dump() + "\n");
  if (snapshot == nullptr) {
    answer.fields.emplace_back("Retry-After", kSecondsToRetry);
  }
  return answer;
}
