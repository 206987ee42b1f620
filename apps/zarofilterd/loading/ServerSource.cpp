#include "loading/ServerSource.h"

#include <utility>

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

// Shorter than what middle boxes close idle connections after.
constexpr std::chrono::seconds kWait(25);
// A server that answers a question to be held sooner does not hold it, or has much that is new.
constexpr std::chrono::seconds kHeld(1);
constexpr milliseconds kBetweenSnapshots(1000);
constexpr std::chrono::seconds kNoWait(0);

}  // namespace

ServerSource::ServerSource(ClientSettings settings, const SourceSurroundings& surroundings)
    : m_surroundings(surroundings),
      m_client(std::move(settings), _surroundingsOfClient()),
      m_version(surroundings.leastVersion) {}

std::optional<ArrivingPolicy> ServerSource::loadUnless(std::optional<std::uint64_t> known) {
  PolicyQuestion question;
  question.leastVersion = m_version;
  question.isUrgent = std::exchange(m_isUrgent, false);
  if (known && known == m_version) {
    question.etag = m_etag;
    question.wait = kWait;
  }
  const Clock::time_point asked = Clock::now();
  PolicyAnswer answer = m_client.ask(question);
  if (answer.kind == PolicyAnswer::Kind::Interrupted) {
    throw LoadInterrupted();
  }
  _tellOfOthers();
  const bool isHeld = question.wait == kNoWait || Clock::now() - asked >= kHeld;
  const bool isSame = !question.etag.empty() && answer.etag == question.etag;
  if (answer.kind == PolicyAnswer::Kind::Unchanged || isSame) {
    m_pause = isHeld ? std::make_optional(milliseconds::zero()) : std::nullopt;
    return std::nullopt;
  }
  m_version = answer.policy.version;
  m_etag = std::move(answer.etag);
  m_pause = isHeld ? milliseconds::zero() : kBetweenSnapshots;
  if (m_etag.empty()) {
    m_pause.reset();  // without a tag no question can be held
  }
  return std::move(answer.policy);
}

std::optional<milliseconds> ServerSource::pause(bool hasFailed) const {
  const milliseconds pause = m_client.pause();
  return hasFailed ? (pause > milliseconds::zero() ? std::make_optional(pause) : std::nullopt) : m_pause;
}

PolicyClientSurroundings ServerSource::_surroundingsOfClient() {
  PolicyClientSurroundings surroundings;
  surroundings.registered = registeredServers;
  surroundings.answered = [this](const std::string& server) {
    m_failures.erase(server);
    m_told.erase(server);
    m_surroundings.answered(server);
  };
  surroundings.failed = [this](const std::string& server, const std::string& why) {
    m_failures[server] = why;
    m_surroundings.failed(server);
  };
  return surroundings;
}

// While a server answers, the failures of the others are warnings; once each.
void ServerSource::_tellOfOthers() {
  for (const auto& [server, why] : m_failures) {
    std::string& told = m_told[server];
    if (told != why) {
      m_surroundings.warn("policy server " + server + ": " + why);
      told = why;
    }
  }
}
