// The one thread that builds and destroys policies. Another one reads members from the database for it (ArrivingPolicy).
//
// 1. The last good policy decides from the start, before the source is asked: a source that is down may take long to say so.
// 2. A reload that fails leaves the policy as it is; the log and a metric tell.
// 3. A stored policy that cannot be applied is not read again until it is another one or a reload is asked for.
// 4. A source that waits for a change is interrupted by whatever else there is to do.
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

#include "loading/PolicyHolder.h"
#include "metrics/FilterMetrics.h"
#include "policy/LastGoodPolicy.h"
#include "policy/PolicySource.h"
#include "service/ServiceLog.h"

class PolicyLoader {
 public:
  // Makes the source; `decides` is the version of the policy that decides already.
  using MakeSource = std::function<std::unique_ptr<PolicySource>(std::optional<std::uint64_t> decides)>;

  // What it is given must outlive it. `makeSource` is called on the loader's thread, where the source stays.
  PolicyLoader(MakeSource makeSource, const LastGoodPolicy& lastGood, std::chrono::seconds poll, FilterMetrics& metrics,
               const ServiceLog& log);
  // Waits for the thread.
  ~PolicyLoader();
  PolicyLoader(const PolicyLoader&) = delete;
  PolicyLoader& operator=(const PolicyLoader&) = delete;

  const PolicyHolder& policy() const { return m_holder; }

  // Starts the thread, which calls `onBegun` once, when it has a policy or has tried to get one. That must not throw.
  void start(std::function<void()> onBegun);
  // Asks for a reload, even if the version stands.
  void requestReload();
  // Lets the thread end once every generation is handed back. False when that has not come about in time.
  bool stop(std::chrono::milliseconds longest);

 private:
  using Clock = std::chrono::steady_clock;

  void _run();
  void _wait(Clock::time_point nextLook);
  bool _isDue(Clock::time_point nextLook, bool& forced);
  std::chrono::milliseconds _lookAt(bool forced);
  void _look(bool forced);
  void _adopt(ArrivingPolicy& policy, Clock::time_point began);
  void _refuse(std::uint64_t version);
  void _use(ArrivingPolicy& policy);
  bool _useLastGood();
  void _tellFailure(const std::string& why, bool forced);
  void _tellBegun();
  void _wake();
  void _change(bool& what);
  void _setSource(std::unique_ptr<PolicySource> source);

  MakeSource m_makeSource;
  const LastGoodPolicy& m_lastGood;
  const std::chrono::seconds m_poll;
  FilterMetrics& m_metrics;
  const ServiceLog& m_log;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_reload = false;
  bool m_returned = false;
  bool m_stop = false;
  bool m_ended = false;
  std::unique_ptr<PolicySource> m_source;  // replaced under the mutex, used by the loader's thread without it

  // Of the loader's thread.
  std::function<void()> m_onBegun;
  std::optional<std::uint64_t> m_version;  // the last one that the source gave, or could not be applied
  bool m_isRefused = false;                // it could not be
  bool m_hasLooked = false;
  std::string m_lastFailure;

  PolicyHolder m_holder;
  std::thread m_thread;
};
