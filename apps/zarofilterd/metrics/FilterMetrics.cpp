#include "metrics/FilterMetrics.h"

#include "service/OpenMetrics.h"

namespace {

using prometheus::Histogram;

Histogram::BucketBoundaries decisionBuckets() {
  return {1e-6, 2e-6, 3e-6, 5e-6, 7e-6, 1e-5, 1.5e-5, 2e-5, 3e-5, 5e-5, 1e-4, 1e-3, 2e-3, 5e-3, 1e-2, 1e-1};
}

}  // namespace

FilterMetrics::FilterMetrics()
    : m_decisions(prometheus::BuildCounter()
                      .Name("zaro_filter_decisions_total")
                      .Help("Decisions for one sender and one recipient, by code and rule")
                      .Register(m_registry)),
      m_decisionSeconds(
          addHistogram(m_registry, "zaro_filter_decision_seconds", "How long a decision took", decisionBuckets())),
      m_undecided(addCounter(m_registry, "zaro_filter_undecided_total", "Recipients that came while there was no policy")),
      m_failedMessages(addCounter(m_registry, "zaro_filter_failed_messages_total",
                                  "Messages whose actions the mail server did not take")),
      m_generation(addGauge(m_registry, "zaro_filter_generation", "Version of the policy that decides; 0 without one")),
      m_refused(addGauge(m_registry, "zaro_filter_refused_generation",
                         "Version of the stored policy that could not be applied; 0: it could")),
      m_rules(addGauge(m_registry, "zaro_filter_rules", "Enabled rules of the policy")),
      m_patterns(addGauge(m_registry, "zaro_filter_patterns", "Patterns of senders in the policy")),
      m_confirmed(addGauge(m_registry, "zaro_filter_policy_confirmed_timestamp_seconds",
                           "When the policy was last found to be the stored one; 0: never")),
      m_age(addGauge(m_registry, "zaro_filter_policy_age_seconds",
                     "How long ago the policy was last found to be the stored one; -1: never")),
      m_reloadSeconds(addHistogram(m_registry, "zaro_filter_reload_seconds", "How long a reload took", policyBuckets())),
      m_failedReloads(addCounter(m_registry, "zaro_filter_reload_failures_total",
                                 "Reloads, and looks at whether one is due, that failed")),
      m_unsavedPolicies(
          addCounter(m_registry, "zaro_filter_unsaved_policies_total", "Policies that could not be kept on disk")),
      m_serverAnswers(prometheus::BuildCounter()
                          .Name("zaro_filter_policy_server_answers_total")
                          .Help("Answers of a policy server that count, by server")
                          .Register(m_registry)),
      m_serverFailures(prometheus::BuildCounter()
                           .Name("zaro_filter_policy_server_failures_total")
                           .Help("Questions that a policy server gave no answer to that counts, by server")
                           .Register(m_registry)),
      m_serverAnswered(prometheus::BuildGauge()
                           .Name("zaro_filter_policy_server_answer_timestamp_seconds")
                           .Help("When a policy server last gave an answer that counts, by server")
                           .Register(m_registry)) {}

void FilterMetrics::countDecision(unsigned int code, const std::string& rule, std::chrono::nanoseconds took) {
  {
    const std::lock_guard<std::mutex> lock(m_mutex);
    prometheus::Counter& decisions = m_decisions.Add({{"code", std::to_string(code)}, {"rule", rule}});
    m_decisionsOfRule[rule].insert(&decisions);
    decisions.Increment();
  }
  m_decisionSeconds.Observe(secondsOf(took));
}

void FilterMetrics::countUndecided() {
  m_undecided.Increment();
}

void FilterMetrics::countFailedMessage() {
  m_failedMessages.Increment();
}

void FilterMetrics::setGeneration(std::uint64_t version, std::size_t rules, std::size_t patterns) {
  m_generation.Set(static_cast<double>(version));
  m_rules.Set(static_cast<double>(rules));
  m_patterns.Set(static_cast<double>(patterns));
}

void FilterMetrics::setRefused(std::uint64_t version) {
  m_refused.Set(static_cast<double>(version));
}

void FilterMetrics::keepRules(const std::set<std::string>& names) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  for (auto rule = m_decisionsOfRule.begin(); rule != m_decisionsOfRule.end();) {
    if (rule->first.empty() || names.count(rule->first) != 0) {
      ++rule;
      continue;
    }
    for (prometheus::Counter* decisions : rule->second) {
      m_decisions.Remove(decisions);
    }
    rule = m_decisionsOfRule.erase(rule);
  }
}

void FilterMetrics::countReload(std::chrono::nanoseconds took) {
  m_reloadSeconds.Observe(secondsOf(took));
}

void FilterMetrics::countFailedReload() {
  m_failedReloads.Increment();
}

void FilterMetrics::countUnsavedPolicy() {
  m_unsavedPolicies.Increment();
}

void FilterMetrics::confirmPolicy() {
  m_confirmed.Set(secondsOfNow());
}

void FilterMetrics::countServerAnswer(const std::string& server) {
  m_serverAnswers.Add({{"server", server}}).Increment();
  m_serverAnswered.Add({{"server", server}}).Set(secondsOfNow());
}

void FilterMetrics::countServerFailure(const std::string& server) {
  m_serverFailures.Add({{"server", server}}).Increment();
}

std::string FilterMetrics::text() {
  m_age.Set(m_confirmed.Value() > 0 ? secondsOfNow() - m_confirmed.Value() : -1);
  return openMetricsText(m_registry);
}
