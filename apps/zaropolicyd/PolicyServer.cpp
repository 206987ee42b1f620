#include "PolicyServer.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <system_error>

#include "ZaroRuntime/RuntimeError.h"
#include "access/ServerFiles.h"
#include "console/ExitCode.h"
#include "http/HttpServer.h"
#include "http/RequestHandler.h"
#include "installation/Files.h"
#include "metrics/ServerMetrics.h"
#include "policy/LastGoodPolicy.h"
#include "policy/PolicySource.h"
#include "service/FailureText.h"
#include "service/ServiceManager.h"
#include "service/Signals.h"
#include "snapshot/SnapshotMaker.h"
#include "store/DefaultedSettings.h"
#include "store/PolicyServers.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kGrace = std::chrono::seconds(30);
constexpr milliseconds kForTheDatabase = std::chrono::seconds(5);
constexpr milliseconds kForTheFirstLook = std::chrono::seconds(1);
constexpr milliseconds kLongestStart = std::chrono::seconds(10);
constexpr milliseconds kForever = std::chrono::hours(24);

std::string madeDirectory(const std::string& directory) {
  std::error_code failure;
  std::filesystem::create_directories(directory, failure);
  if (failure) {
    throw zaroruntime::RuntimeError(directory + ": cannot make the directory of the server's state: " + failure.message(),
                                    zaroruntime::FailureKind::Creation);
  }
  return directory;
}

class PolicyServer {
 public:
  PolicyServer(const ServerSettings& settings, const ServerPlaces& places, const ServiceLog& log)
      : m_settings(settings),
        m_places(places),
        m_log(log),
        m_lock(madeDirectory(places.stateDirectory)),
        m_lastGood(places.stateDirectory),
        m_handler(m_snapshots, m_metrics, !settings.tokenFile.empty() || !settings.clientCa.empty()),
        m_server(settings, m_handler, m_metrics, log),
        m_maker(_calls(), m_snapshots, m_lastGood, m_metrics, log) {
    _readTokens();
  }

  // False when a signal ends it before there is anything to serve; otherwise clients can connect when this returns.
  bool start() {
    if (!m_settings.https && !isLoopback(m_settings.address)) {
      m_log.warning("the policy and the tokens of clients cross the network unencrypted; protocol HTTPS protects them");
    }
    m_maker.start();
    if (!m_signals.waitUntilBegun(kLongestStart)) {
      return false;
    }
    if (m_snapshots.current() == nullptr) {
      m_log.error("there is no policy: clients are told to try again until there is one");
    }
    m_server.start();
    m_signals.receive();
    return true;
  }

  void waitForTheEnd() {
    for (;;) {
      const Event event = m_signals.wait(kForever);
      if (event == Event::Stop) {
        return;
      }
      if (event == Event::Reload) {
        static_cast<void>(failureOf([this] { _reload(); }));  // without memory for what it tells
        m_maker.requestReload();
      }
    }
  }

  // False when a thread cannot be waited for.
  bool stop() {
    tellStopping("Finishing the requests in progress");
    if (!m_server.finish(kGrace)) {
      m_log.warning("requests are still in progress; their clients will try again");
    }
    return _stopMaker(kForTheDatabase);
  }

  // The same after a start that a signal ended.
  bool giveUp() { return _stopMaker(kForTheFirstLook); }

 private:
  SnapshotMaker::Calls _calls() {
    std::function<void()> registration;
    if (!m_places.registered.empty()) {
      registration = [this] {
        const PolicyServerInfo server = registerPolicyServer(m_places.registered, static_cast<int>(m_settings.port));
        m_log.info("registered as " + policyServerName(server.scannerId) + ": " + server.ipAddr + " port " +
                   std::to_string(server.agentPort));
      };
    }
    return {makeDatabaseSource, [this] { m_server.tellOfChange(); }, [this] { m_signals.raise(Event::Begun); },
            registration};
  }

  bool _stopMaker(milliseconds longest) {
    const bool isFree = m_maker.stop(longest);
    m_log.info("ended");
    return isFree;
  }

  void _readTokens() { m_handler.replaceTokens(readTokens(m_settings)); }

  // What cannot be read leaves what was read before.
  void _reload() {
    tellReloading();
    bool isAll = true;
    for (const std::string& failure :
         {failureOf([this] { _readTokens(); }), failureOf([this] { m_server.reloadTls(); })}) {
      if (!failure.empty()) {
        m_log.error("what was there before stays: " + failure);
        isAll = false;
      }
    }
    if (isAll) {
      m_log.info("tokens and certificates are read again");
    } else {
      m_log.warning("not all tokens and certificates are read again");
    }
  }

  const ServerSettings& m_settings;
  const ServerPlaces& m_places;
  const ServiceLog& m_log;
  Signals m_signals;  // before the threads, which inherit what is blocked
  DirectoryLock m_lock;
  ServerMetrics m_metrics;
  LastGoodPolicy m_lastGood;
  SnapshotHolder m_snapshots;
  RequestHandler m_handler;
  HttpServer m_server;
  SnapshotMaker m_maker;  // tells the server
};

}  // namespace

void serve(const ServerSettings& settings, const ServerPlaces& places, const ServiceLog& log,
           const std::function<void()>& onReady) {
  PolicyServer server(settings, places, log);
  const bool serves = server.start();
  if (serves) {
    log.info("ready: " + settings.address + " port " + std::to_string(settings.port) +
             (settings.https ? " by HTTPS" : " by HTTP"));
    tellReady("Ready");
    onReady();
    server.waitForTheEnd();
  }
  if (!(serves ? server.stop() : server.giveUp())) {
    _exit(static_cast<int>(ExitCode::Found));  // the driver of a database that does not answer gives up much later
  }
}
