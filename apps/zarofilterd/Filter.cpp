#include "Filter.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

#include "DecisionDesk.h"
#include "ZaroRuntime/RuntimeError.h"
#include "delegation/PolicyListener.h"
#include "installation/Files.h"
#include "loading/FilterSource.h"
#include "loading/PolicyLoader.h"
#include "metrics/MetricsServer.h"
#include "milter/MessagesInProgress.h"
#include "milter/MilterFrontEnd.h"
#include "policy/LastGoodPolicy.h"
#include "service/ServiceManager.h"
#include "service/Signals.h"

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// Less than what a service manager waits; then mail is answered without a policy.
constexpr milliseconds kLongestStart = std::chrono::seconds(30);
constexpr milliseconds kGrace = std::chrono::seconds(30);
constexpr milliseconds kForTheFirstLook = std::chrono::seconds(1);
constexpr milliseconds kForTheLastReply = milliseconds(200);
constexpr milliseconds kBetweenLooks = std::chrono::seconds(1);

std::string madeDirectory(const std::string& directory) {
  constexpr mode_t kOwnerOnly = 0700;
  if (mkdir(directory.c_str(), kOwnerOnly) != 0 && errno != EEXIST) {
    throwErrno(directory, "cannot make the directory of the filter's state");
  }
  return directory;
}

class Filter {
 public:
  Filter(const FilterSettings& settings, const zaroruntime::Settings& stored, const ServiceLog& log)
      : m_log(log),
        m_lock(madeDirectory(settings.stateDirectory)),
        m_lastGood(settings.stateDirectory),
        m_loader([this, &settings,
                  &stored](auto decides) { return makePolicySource(settings, stored, _surroundings(decides)); },
                 m_lastGood, std::chrono::seconds(settings.pollSeconds), m_metrics, log),
        m_desk{settings, m_loader.policy(), m_metrics, log} {}

  // False when a signal ends it before there is anything to decide by; otherwise mail servers can connect when this
  // returns.
  bool start() {
    const FilterSettings& settings = m_desk.settings;
    if (!settings.metrics.empty()) {
      m_metricsServer = std::make_unique<MetricsServer>(settings.metrics, m_metrics);
    }
    m_loader.start([this] { m_signals.raise(Event::Begun); });
    if (!m_signals.waitUntilBegun(kLongestStart)) {
      return false;
    }
    if (m_loader.policy().current() == nullptr) {
      m_log.error(std::string("there is no policy: mail is ") +
                  (settings.acceptWithoutPolicy ? "accepted" : "postponed") + " until there is one");
    }
    if (!settings.policySocket.empty()) {
      m_policyListener = std::make_unique<PolicyListener>(m_desk);
    }
    m_milter = std::make_unique<MilterFrontEnd>(m_desk, m_messages);
    std::thread([this] {
      m_milter->run();
      m_signals.raise(Event::Ended);
    }).detach();
    m_signals.receive();
    return true;
  }

  // Until the filter is to end; answers the exit status.
  ExitCode waitForTheEnd() {
    for (;;) {
      switch (m_signals.wait(kBetweenLooks)) {
        case Event::Reload:
          m_loader.requestReload();
          break;
        case Event::Begun:  // later than the start has waited
          break;
        case Event::Stop:
          return ExitCode::Found;
        case Event::Ended:
          m_log.error("libmilter failed");
          return ExitCode::Unavailable;
        case Event::None:
          if (!m_milter->socketFile().isThere()) {
            // libmilter cannot open it again; the filter's supervisor starts it anew.
            m_log.error(m_milter->socketFile().path() + ": the socket is gone; the filter ends");
            return ExitCode::TryAgain;
          }
      }
    }
  }

  void stop() {
    tellStopping("Finishing the messages in progress");
    const Clock::time_point deadline = Clock::now() + kGrace;
    const auto left = [&] { return std::chrono::duration_cast<milliseconds>(deadline - Clock::now()); };
    // libmilter would break off messages if it were told to stop. Without the file no further connection comes.
    m_milter->socketFile().remove();
    m_policyListener.reset();
    if (!m_messages.finish(left())) {
      m_log.warning("messages are still in progress; the mail server will try again");
    }
    // libmilter writes the reply to the end of a message behind our back, after the callback.
    std::this_thread::sleep_for(kForTheLastReply);
    if (!m_loader.stop(std::max(left(), kBetweenLooks))) {
      m_log.warning("the policy is still being loaded");
    }
    m_metricsServer.reset();
    m_log.info("ended");
  }

  // The same after a start that a signal ended.
  void giveUp() {
    m_loader.stop(kForTheFirstLook);
    m_log.info("ended");
  }

 private:
  SourceSurroundings _surroundings(std::optional<std::uint64_t> decides) {
    return {decides, [this](const std::string& server) { m_metrics.countServerAnswer(server); },
            [this](const std::string& server) { m_metrics.countServerFailure(server); },
            [this](const std::string& text) { m_log.warning(text); }};
  }

  const ServiceLog& m_log;
  Signals m_signals;  // before the threads, which inherit what is blocked
  DirectoryLock m_lock;
  FilterMetrics m_metrics;
  LastGoodPolicy m_lastGood;
  PolicyLoader m_loader;
  DecisionDesk m_desk;
  MessagesInProgress m_messages;
  std::unique_ptr<MetricsServer> m_metricsServer;
  std::unique_ptr<PolicyListener> m_policyListener;
  std::unique_ptr<MilterFrontEnd> m_milter;
};

}  // namespace

void serve(const FilterSettings& settings, const zaroruntime::Settings& stored, const ServiceLog& log,
           const std::function<void()>& onReady) {
  Filter filter(settings, stored, log);
  if (!filter.start()) {
    filter.giveUp();
    _exit(static_cast<int>(ExitCode::Found));
  }
  log.info("ready: " + settings.socket);
  tellReady("Ready");
  onReady();
  const ExitCode code = filter.waitForTheEnd();
  filter.stop();
  _exit(static_cast<int>(code));
}
