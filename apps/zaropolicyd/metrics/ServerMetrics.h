// What the policy server counts. Safe from any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "service/OpenMetrics.h"
#include "snapshot/ServedSnapshot.h"

class ServerMetrics {
 public:
  ServerMetrics();

  // A request that was answered. `path` is one of a few.
  void countRequest(const std::string& path, unsigned int status, std::size_t sentBytes);
  // A connection that had sent half a request, or taken half an answer, when its time was over.
  void countTimeOut(const char* what);
  // A connection that made room for another one, or found none.
  void countTurnedAway();
  void setConnections(std::size_t count) { m_connections.Set(static_cast<double>(count)); }
  void addHeld(int change) { m_held.Increment(change); }
  void setThreads(unsigned int count) { m_threads.Set(count); }
  void setSnapshot(const ServedSnapshot& snapshot);
  void countSnapshot(std::chrono::nanoseconds took);
  // A look at the database that failed.
  void countFailedLook() { m_failedLooks.Increment(); }
  // The stored policy that is not served; 0: it is.
  void setRefused(std::uint64_t version) { m_refused.Set(static_cast<double>(version)); }
  void countUnsavedPolicy() { m_unsavedPolicies.Increment(); }
  // The snapshot was found to be the stored policy.
  void confirmPolicy();

  // Everything in the text form of OpenMetrics.
  std::string text();

 private:
  prometheus::Registry m_registry;
  prometheus::Family<prometheus::Counter>& m_requests;
  prometheus::Counter& m_sentBytes;
  prometheus::Family<prometheus::Counter>& m_timeOuts;
  prometheus::Counter& m_turnedAway;
  prometheus::Gauge& m_connections;
  prometheus::Gauge& m_held;
  prometheus::Gauge& m_threads;
  prometheus::Gauge& m_version;
  prometheus::Gauge& m_rules;
  prometheus::Family<prometheus::Gauge>& m_snapshotBytes;
  prometheus::Histogram& m_snapshotSeconds;
  prometheus::Gauge& m_confirmed;
  prometheus::Gauge& m_age;
  prometheus::Counter& m_failedLooks;
  prometheus::Gauge& m_refused;
  prometheus::Counter& m_unsavedPolicies;
};
