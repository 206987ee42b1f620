#include "metrics/ServerMetrics.h"

ServerMetrics::ServerMetrics()
    : m_requests(prometheus::BuildCounter()
                     .Name("zaro_server_requests_total")
                     .Help("Requests that were answered, by path and status")
                     .Register(m_registry)),
      m_sentBytes(addCounter(m_registry, "zaro_server_sent_bytes_total", "Bytes of answers, before TLS")),
      m_timeOuts(prometheus::BuildCounter()
                     .Name("zaro_server_timeouts_total")
                     .Help("Connections that had sent half a request, or taken half an answer, when their time was over")
                     .Register(m_registry)),
      m_turnedAway(addCounter(m_registry, "zaro_server_turned_away_total",
                              "Connections that made room for another one, or found none")),
      m_connections(addGauge(m_registry, "zaro_server_connections", "Open connections")),
      m_held(addGauge(m_registry, "zaro_server_held_requests", "Requests that wait for another policy")),
      m_threads(addGauge(m_registry, "zaro_server_threads", "Threads that serve")),
      m_version(addGauge(m_registry, "zaro_server_policy_version", "Version of the policy that is served; 0 without one")),
      m_rules(addGauge(m_registry, "zaro_server_rules", "Rules of the policy, disabled ones too")),
      m_snapshotBytes(prometheus::BuildGauge()
                          .Name("zaro_server_snapshot_bytes")
                          .Help("Size of the snapshot, by the encoding in which it is sent")
                          .Register(m_registry)),
      m_snapshotSeconds(addHistogram(m_registry, "zaro_server_snapshot_seconds",
                                     "How long the text of a policy and its compression took", policyBuckets())),
      m_confirmed(addGauge(m_registry, "zaro_server_policy_confirmed_timestamp_seconds",
                           "When the policy was last found to be the stored one; 0: never")),
      m_age(addGauge(m_registry, "zaro_server_policy_age_seconds",
                     "How long ago the policy was last found to be the stored one; -1: never")),
      m_failedLooks(addCounter(m_registry, "zaro_server_look_failures_total", "Looks at the database that failed")),
      m_refused(addGauge(m_registry, "zaro_server_refused_policy_version",
                         "Version of the stored policy that cannot be served; 0: it can")),
      m_unsavedPolicies(
          addCounter(m_registry, "zaro_server_unsaved_policies_total", "Policies that could not be kept on disk")) {}

void ServerMetrics::countRequest(const std::string& path, unsigned int status, std::size_t sentBytes) {
  m_requests.Add({{"path", path}, {"status", std::to_string(status)}}).Increment();
  m_sentBytes.Increment(static_cast<double>(sentBytes));
}

void ServerMetrics::countTimeOut(const char* what) {
  m_timeOuts.Add({{"what", what}}).Increment();
}

void ServerMetrics::countTurnedAway() {
  m_turnedAway.Increment();
}

void ServerMetrics::setSnapshot(const ServedSnapshot& snapshot) {
  m_version.Set(static_cast<double>(snapshot.version));
  m_rules.Set(static_cast<double>(snapshot.rules));
  m_snapshotBytes.Add({{"encoding", "identity"}}).Set(static_cast<double>(snapshot.text->size()));
  m_snapshotBytes.Add({{"encoding", "gzip"}}).Set(static_cast<double>(snapshot.gzip->size()));
}

void ServerMetrics::countSnapshot(std::chrono::nanoseconds took) {
  m_snapshotSeconds.Observe(secondsOf(took));
}

void ServerMetrics::confirmPolicy() {
  m_confirmed.Set(secondsOfNow());
}

std::string ServerMetrics::text() {
  m_age.Set(m_confirmed.Value() > 0 ? secondsOfNow() - m_confirmed.Value() : -1);
  return openMetricsText(m_registry);
}
