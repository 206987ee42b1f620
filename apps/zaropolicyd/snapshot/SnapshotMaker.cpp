#include "snapshot/SnapshotMaker.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "policy/PolicySnapshot.h"
#include "service/FailureText.h"
#include "service/ServiceManager.h"
#include "snapshot/Gzip.h"

namespace {

// A held request is answered within this and the time that a snapshot takes.
constexpr std::chrono::seconds kBetweenLooks(1);

constexpr std::chrono::seconds kLongestUntilRegistration(60);

std::shared_ptr<const ServedSnapshot> snapshotOf(const MailPolicy& policy, std::string text) {
  std::string tag = '"' + std::to_string(policy.version) + '-';
  tag.append(digestOf(text)).append("\"");
  auto gzip = std::make_shared<const std::string>(gzipped(text));
  return std::make_shared<const ServedSnapshot>(ServedSnapshot{policy.version, std::move(tag),
                                                               std::make_shared<const std::string>(std::move(text)),
                                                               std::move(gzip), policy.rules.size()});
}

// What stands between the head, which has the time, and the tail, which has the digest.
std::string_view bodyOf(const ServedSnapshot& snapshot) {
  const std::string_view text = *snapshot.text;
  const std::size_t begin = text.find('\n');
  const std::size_t end = text.rfind('\n', text.size() - 2);
  return text.substr(begin, end - begin);
}

}  // namespace

std::shared_ptr<const ServedSnapshot> makeSnapshot(const MailPolicy& policy) {
  std::string text;
  writeSnapshot(policy, [&](std::string_view piece) { text += piece; });
  return snapshotOf(policy, std::move(text));
}

std::shared_ptr<const ServedSnapshot> makeSnapshot(std::string text) {
  const MailPolicy policy = readSnapshotText(text);
  return snapshotOf(policy, std::move(text));
}

bool haveSamePolicy(const ServedSnapshot& one, const ServedSnapshot& other) {
  return one.version == other.version && bodyOf(one) == bodyOf(other);
}

SnapshotMaker::SnapshotMaker(Calls calls, SnapshotHolder& snapshots, const LastGoodPolicy& lastGood,
                             ServerMetrics& metrics, const ServiceLog& log)
    : m_calls(std::move(calls)), m_snapshots(snapshots), m_lastGood(lastGood), m_metrics(metrics), m_log(log) {}

SnapshotMaker::~SnapshotMaker() {
  if (m_thread.joinable()) {
    stop(std::chrono::milliseconds(0));
    m_thread.join();
  }
}

void SnapshotMaker::start() {
  m_thread = std::thread([this] { _run(); });
}

void SnapshotMaker::requestReload() {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_reload = true;
  }
  m_changed.notify_all();
}

bool SnapshotMaker::stop(std::chrono::milliseconds longest) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_stop = true;
  m_changed.notify_all();
  return m_changed.wait_for(lock, longest, [this] { return m_ended; });
}

void SnapshotMaker::_run() {
  _useLastGood();
  if (m_snapshots.current() != nullptr) {
    _tellBegun();
  }
  for (bool forced = false; !_mustStop(); forced = _wait()) {
    const std::string failure = failureOf([&] { _look(forced); });
    // What the log and the service manager miss for want of memory ends no service.
    static_cast<void>(failureOf([&] { _tellOutcome(failure, forced); }));
    _tellBegun();
    if (failure.empty()) {
      static_cast<void>(failureOf([&] { _register(); }));
    }
  }
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_ended = true;
  m_changed.notify_all();
}

void SnapshotMaker::_useLastGood() {
  const std::string failure = failureOf([&] {
    if (std::optional<std::string> text = m_lastGood.text()) {
      _replace(makeSnapshot(*std::move(text)));
    }
  });
  if (!failure.empty()) {
    m_log.warning("the policy that was kept on disk cannot be served: " + failure);
  }
}

void SnapshotMaker::_look(bool forced) {
  if (!m_source) {
    m_source = m_calls.makeSource();
  }
  try {
    if (std::optional<ArrivingPolicy> arriving = m_source->loadUnless(forced ? std::nullopt : m_version)) {
      const MailPolicy& policy = arriving->whole();
      _serve(policy);
      m_version = policy.version;
      m_isRefused = false;
      m_metrics.setRefused(0);
    }
  } catch (const UnreadablePolicy& refusal) {
    _refuse(refusal);
  }
  m_snapshots.setReachable(true);
  if (!m_isRefused) {
    m_snapshots.confirm();
    m_metrics.confirmPolicy();
  }
}

// It would be refused again as long as it is the stored one.
void SnapshotMaker::_refuse(const UnreadablePolicy& refusal) {
  m_version = refusal.version();
  m_isRefused = true;
  m_metrics.setRefused(refusal.version());
  m_log.error("policy " + std::to_string(refusal.version()) + " is not served: " + refusal.what());
}

// The log has a failure once, as with looks. It is none of the policy.
void SnapshotMaker::_register() {
  if (!m_calls.registerServer || Clock::now() < m_nextRegistration) {
    return;
  }
  const std::string failure = failureOf(m_calls.registerServer);
  if (failure.empty()) {
    m_calls.registerServer = nullptr;
    return;
  }
  if (failure != m_whyUnregistered) {
    m_log.error("not registered: " + failure);
    m_whyUnregistered = failure;
  }
  m_nextRegistration = Clock::now() + m_untilRegistration;
  m_untilRegistration = std::min(2 * m_untilRegistration, kLongestUntilRegistration);
}

void SnapshotMaker::_serve(const MailPolicy& policy) {
  const Clock::time_point began = Clock::now();
  const std::shared_ptr<const ServedSnapshot> made = makeSnapshot(policy);
  const std::shared_ptr<const ServedSnapshot> served = m_snapshots.current();
  m_metrics.countSnapshot(Clock::now() - began);
  if (served != nullptr && haveSamePolicy(*made, *served)) {
    return;
  }
  if (served != nullptr && made->version < served->version) {
    m_log.warning("the database's counter went back from " + std::to_string(served->version) + " to " +
                  std::to_string(made->version) +
                  "; clients refuse a policy that is older than theirs (zaroctl policy raise " +
                  std::to_string(served->version) + " mends that)");
  }
  _replace(made);
  const std::string unsaved = failureOf([&] { m_lastGood.saveText(*made->text); });
  if (!unsaved.empty()) {
    m_metrics.countUnsavedPolicy();
    m_log.warning("the policy is not kept on disk: " + unsaved);
  }
}

void SnapshotMaker::_replace(std::shared_ptr<const ServedSnapshot> snapshot) {
  m_metrics.setSnapshot(*snapshot);
  m_log.info("policy " + std::to_string(snapshot->version) + " is served: " + std::to_string(snapshot->rules) +
             " rules, " + std::to_string(snapshot->text->size()) + " bytes, " + std::to_string(snapshot->gzip->size()) +
             " compressed");
  m_snapshots.replace(std::move(snapshot));
  m_calls.onChange();
}

void SnapshotMaker::_tellOutcome(const std::string& failure, bool forced) {
  if (failure.empty()) {
    m_lastFailure.clear();
  } else {
    _tellFailure(failure);
  }
  if (forced) {
    tellReady(failure.empty() && !m_isRefused ? "Policy " + std::to_string(*m_version)
                                              : "The policy could not be reloaded");
  }
}

// The log has a failure once, however often it comes.
void SnapshotMaker::_tellFailure(const std::string& why) {
  m_snapshots.setReachable(false);
  m_metrics.countFailedLook();
  if (why != m_lastFailure) {
    m_log.error("the policy is not reloaded: " + why);
    m_lastFailure = why;
  }
}

void SnapshotMaker::_tellBegun() {
  if (m_calls.onBegun) {
    std::exchange(m_calls.onBegun, nullptr)();
  }
}

bool SnapshotMaker::_wait() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait_for(lock, kBetweenLooks, [this] { return m_reload || m_stop; });
  return std::exchange(m_reload, false);
}

bool SnapshotMaker::_mustStop() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_stop;
}
