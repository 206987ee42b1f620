#include "loading/PolicyLoader.h"

#include <set>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "service/FailureText.h"
#include "service/ServiceManager.h"

PolicyLoader::PolicyLoader(MakeSource makeSource, const LastGoodPolicy& lastGood, std::chrono::seconds poll,
                           FilterMetrics& metrics, const ServiceLog& log)
    : m_makeSource(std::move(makeSource)),
      m_lastGood(lastGood),
      m_poll(poll),
      m_metrics(metrics),
      m_log(log),
      m_holder([this] { _wake(); }) {}

PolicyLoader::~PolicyLoader() {
  if (m_thread.joinable()) {
    _change(m_stop);
    m_thread.join();
  }
}

void PolicyLoader::start(std::function<void()> onBegun) {
  m_onBegun = std::move(onBegun);
  m_thread = std::thread([this] { _run(); });
}

void PolicyLoader::requestReload() {
  _change(m_reload);
}

bool PolicyLoader::stop(std::chrono::milliseconds longest) {
  _change(m_stop);
  std::unique_lock<std::mutex> lock(m_mutex);
  return m_changed.wait_for(lock, longest, [this] { return m_ended; });
}

void PolicyLoader::_run() {
  if (_useLastGood()) {
    _tellBegun();
  }
  Clock::time_point nextLook = Clock::now();
  bool forced = false;
  for (;;) {
    if (_isDue(nextLook, forced)) {
      const std::chrono::milliseconds pause = _lookAt(forced);
      nextLook = Clock::now() + pause;
    }
    m_holder.destroyReturned();
    _wait(nextLook);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stop) {
      break;
    }
  }
  _setSource(nullptr);
  m_holder.clear();
  m_holder.destroyReturned();
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_ended = true;
  m_changed.notify_all();
}

// Answers the pause before the next look.
std::chrono::milliseconds PolicyLoader::_lookAt(bool forced) {
  bool isInterrupted = false;
  const std::string failure = failureOf([&] {
    try {
      _look(forced);
    } catch (const LoadInterrupted&) {
      isInterrupted = true;
    }
  });
  if (isInterrupted) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_reload = m_reload || forced;  // what was asked for is still to be done
    return std::chrono::milliseconds::zero();
  }
  if (failure.empty()) {
    m_lastFailure.clear();
  } else {
    static_cast<void>(failureOf([&] { _tellFailure(failure, forced); }));  // without memory, only what it counts
  }
  m_hasLooked = true;
  _tellBegun();
  const auto pause = m_source ? m_source->pause(!failure.empty()) : std::nullopt;
  return pause.value_or(m_poll);
}

void PolicyLoader::_wait(Clock::time_point nextLook) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait_until(lock, nextLook, [this] { return m_reload || m_returned || m_stop; });
  m_returned = false;
}

// Whether it is time to look; `forced` when it was asked for.
bool PolicyLoader::_isDue(Clock::time_point nextLook, bool& forced) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  forced = std::exchange(m_reload, false);
  return forced || Clock::now() >= nextLook;
}

void PolicyLoader::_look(bool forced) {
  if (!m_source) {
    const auto decides = m_holder.current();
    _setSource(m_makeSource(decides ? std::make_optional(decides->version()) : std::nullopt));
  }
  if (forced) {
    m_source->leaveOutPauses();
  }
  const Clock::time_point began = Clock::now();
  try {
    if (std::optional<ArrivingPolicy> policy = m_source->loadUnless(forced ? std::nullopt : m_version)) {
      _adopt(*policy, began);
    }
  } catch (const UnreadablePolicy& refusal) {
    _refuse(refusal.version());
    throw;
  }
  if (!m_isRefused) {
    m_metrics.confirmPolicy();
  }
}

void PolicyLoader::_adopt(ArrivingPolicy& policy, Clock::time_point began) {
  const std::uint64_t version = policy.soFar().version;
  // The first one belongs to the start, of whose end the filter tells.
  if (m_hasLooked) {
    tellReloading();
  }
  const std::string failure = failureOf([&] {
    try {
      _use(policy);
    } catch (const PolicyError&) {
      _refuse(version);
      throw;
    }
  });
  if (m_hasLooked) {
    tellReady(failure.empty() ? "Policy " + std::to_string(version) : "The policy could not be reloaded");
  }
  if (!failure.empty()) {
    throw zaroruntime::RuntimeError(failure);
  }
  m_version = version;
  m_isRefused = false;
  m_metrics.setRefused(0);
  m_metrics.countReload(Clock::now() - began);
  const std::string unsaved = failureOf([&] { m_lastGood.save(policy.whole()); });
  if (!unsaved.empty()) {
    m_metrics.countUnsavedPolicy();
    m_log.warning("the policy is not kept on disk: " + unsaved);
  }
}

// It would be refused again as long as it is the stored one.
void PolicyLoader::_refuse(std::uint64_t version) {
  m_version = version;
  m_isRefused = true;
  m_metrics.setRefused(version);
}

void PolicyLoader::_use(ArrivingPolicy& policy) {
  m_holder.replace(policy);
  const auto generation = m_holder.current();
  m_metrics.setGeneration(generation->version(), generation->rules().size(), generation->senderPatterns());
  std::set<std::string> names;
  for (const PolicyRule& rule : generation->rules()) {
    names.insert(rule.stored.name);
  }
  m_metrics.keepRules(names);
  for (const std::string& warning : generation->warnings()) {
    m_log.warning(warning);
  }
  m_log.info("policy " + std::to_string(generation->version()) +
             " decides: " + std::to_string(generation->rules().size()) + " rules, " +
             std::to_string(generation->senderPatterns()) + " patterns of senders");
}

// False when there is none.
bool PolicyLoader::_useLastGood() {
  const std::string failure = failureOf([&] {
    if (std::optional<MailPolicy> policy = m_lastGood.load()) {
      m_log.info("the last good policy counts until the stored one is read");
      ArrivingPolicy arrived(*std::move(policy));
      _use(arrived);
    }
  });
  if (!failure.empty()) {
    m_log.error("the last good policy cannot be used: " + failure);
  }
  return m_holder.current() != nullptr;
}

// The log has a failure once, however often it comes; a reload that was asked for is answered each time.
void PolicyLoader::_tellFailure(const std::string& why, bool forced) {
  m_metrics.countFailedReload();
  if (forced || why != m_lastFailure) {
    m_log.error("the policy is not reloaded: " + why);
    m_lastFailure = why;
  }
}

void PolicyLoader::_tellBegun() {
  if (m_onBegun) {
    std::exchange(m_onBegun, nullptr)();
  }
}

void PolicyLoader::_wake() {
  _change(m_returned);
}

// Any thread: tells the loader's one that there is something to do.
void PolicyLoader::_change(bool& what) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  what = true;
  if (m_source) {
    m_source->interrupt();
  }
  m_changed.notify_all();
}

void PolicyLoader::_setSource(std::unique_ptr<PolicySource> source) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_source = std::move(source);
}
