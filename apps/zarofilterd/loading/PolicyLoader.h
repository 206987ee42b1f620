// The one thread that reads, builds and destroys policies.
//
// A reload that fails leaves the policy as it is; the log and a metric tell. The first one that fails takes the last
// good policy from disk.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
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
  // What it is given must outlive it. `makeSource` is called on the loader's thread, where the source stays.
  PolicyLoader(std::function<std::unique_ptr<PolicySource>()> makeSource, const LastGoodPolicy& lastGood,
               std::chrono::seconds poll, FilterMetrics& metrics, const ServiceLog& log);
  // Waits for the thread.
  ~PolicyLoader();
  PolicyLoader(const PolicyLoader&) = delete;
  PolicyLoader& operator=(const PolicyLoader&) = delete;

  const PolicyHolder& policy() const { return m_holder; }

  // Starts the thread, and waits until it has tried to get a policy.
  void start();
  // Asks for a reload, even if the version stands.
  void requestReload();
  // Lets the thread end once every generation is handed back. False when that has not come about in time.
  bool stop(std::chrono::milliseconds longest);

 private:
  using Clock = std::chrono::steady_clock;

  void _run();
  void _wait(Clock::time_point nextLook);
  bool _isDue(Clock::time_point nextLook, bool& forced);
  void _look(PolicySource& source, bool forced);
  void _adopt(const MailPolicy& policy, Clock::time_point began);
  void _use(const MailPolicy& policy);
  void _useLastGood();
  void _tellFailure(const std::string& why);
  void _wake();

  std::function<std::unique_ptr<PolicySource>()> m_makeSource;
  const LastGoodPolicy& m_lastGood;
  const std::chrono::seconds m_poll;
  FilterMetrics& m_metrics;
  const ServiceLog& m_log;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_reload = false;
  bool m_returned = false;
  bool m_stop = false;
  bool m_tried = false;
  bool m_ended = false;

  // Of the loader's thread.
  std::optional<std::uint64_t> m_version;  // of the source; nothing for a policy from disk
  std::string m_lastFailure;

  PolicyHolder m_holder;
  std::thread m_thread;
};
