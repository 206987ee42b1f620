// The one thread that makes snapshots: when the database's counter moves, it reads the policy, and makes its text, its
// compressed form and its tag once for all clients.
//
// A look that fails leaves the snapshot as it is; the log and a metric tell. So does a stored policy that no snapshot
// can be made of, which is not read again until it is another one or a reload is asked for. Every snapshot is kept on
// disk, and served after a start until the database has answered. A policy that did not change keeps its text and so
// its tag, also across a restart.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "metrics/ServerMetrics.h"
#include "policy/LastGoodPolicy.h"
#include "policy/PolicyError.h"
#include "policy/PolicySource.h"
#include "service/ServiceLog.h"
#include "snapshot/SnapshotHolder.h"

class SnapshotMaker {
 public:
  struct Calls {
    std::function<std::unique_ptr<PolicySource>()> makeSource;
    std::function<void()> onChange;        // after another snapshot is in place; must not throw
    std::function<void()> onBegun;         // once, when there is a snapshot or none was found; must not throw
    std::function<void()> registerServer;  // once, after a look that went well; again, ever later, when it throws
  };

  // The calls come on the maker's thread. What it is given must outlive it.
  SnapshotMaker(Calls calls, SnapshotHolder& snapshots, const LastGoodPolicy& lastGood, ServerMetrics& metrics,
                const ServiceLog& log);
  // Waits for the thread.
  ~SnapshotMaker();
  SnapshotMaker(const SnapshotMaker&) = delete;
  SnapshotMaker& operator=(const SnapshotMaker&) = delete;

  // Starts the thread.
  void start();
  // Asks for a look, which reads the policy even if the counter stands.
  void requestReload();
  // Lets the thread end. False when the database keeps it longer.
  bool stop(std::chrono::milliseconds longest);

 private:
  using Clock = std::chrono::steady_clock;

  void _run();
  void _useLastGood();
  void _look(bool forced);
  void _register();
  void _refuse(const UnreadablePolicy& refusal);
  void _serve(const MailPolicy& policy);
  void _replace(std::shared_ptr<const ServedSnapshot> snapshot);
  void _tellOutcome(const std::string& failure, bool forced);
  void _tellFailure(const std::string& why);
  void _tellBegun();
  // Waits for the next look; answers whether it was asked for.
  bool _wait();
  bool _mustStop();

  Calls m_calls;
  SnapshotHolder& m_snapshots;
  const LastGoodPolicy& m_lastGood;
  ServerMetrics& m_metrics;
  const ServiceLog& m_log;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_reload = false;
  bool m_stop = false;
  bool m_ended = false;

  // Of the maker's thread.
  std::unique_ptr<PolicySource> m_source;
  std::optional<std::uint64_t> m_version;  // of the database, served or refused; nothing for a snapshot from disk
  bool m_isRefused = false;
  std::string m_lastFailure;
  std::string m_whyUnregistered;
  Clock::time_point m_nextRegistration;
  std::chrono::seconds m_untilRegistration{1};

  std::thread m_thread;
};

// Makes a snapshot of a policy. Throws RuntimeError.
std::shared_ptr<const ServedSnapshot> makeSnapshot(const MailPolicy& policy);
// Makes one of a text that is one. Throws RuntimeError for any other text.
std::shared_ptr<const ServedSnapshot> makeSnapshot(std::string text);
// Whether two have the same policy: their texts differ at most in the time at which they were made.
bool haveSamePolicy(const ServedSnapshot& one, const ServedSnapshot& other);
