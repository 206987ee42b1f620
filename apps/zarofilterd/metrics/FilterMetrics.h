// What the filter counts. Safe from any thread.
#pragma once

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>

class FilterMetrics {
 public:
  FilterMetrics();

  // One decision by a rule, or by none: then its name is empty.
  void countDecision(unsigned int code, const std::string& rule, std::chrono::nanoseconds took);
  // A recipient that came while there was no policy.
  void countUndecided();
  // A message whose actions the mail server did not take.
  void countFailedMessage();
  void setGeneration(std::uint64_t version, std::size_t rules, std::size_t patterns);
  // The stored policy of a version could not be applied; 0: it could.
  void setRefused(std::uint64_t version);
  // Forgets the decisions of other rules, so that renamed and removed ones do not pile up.
  void keepRules(const std::set<std::string>& names);
  void countReload(std::chrono::nanoseconds took);
  void countFailedReload();
  // A policy that could not be kept on disk.
  void countUnsavedPolicy();
  // The policy was found to be the current one, or replaced.
  void confirmPolicy();
  // A policy server that was asked gave an answer that counts, or failed.
  void countServerAnswer(const std::string& server);
  void countServerFailure(const std::string& server);

  // Everything in the text form of OpenMetrics.
  std::string text();

 private:
  std::mutex m_mutex;
  std::map<std::string, std::set<prometheus::Counter*>> m_decisionsOfRule;  // under the mutex, as their counters

  prometheus::Registry m_registry;
  prometheus::Family<prometheus::Counter>& m_decisions;
  prometheus::Histogram& m_decisionSeconds;
  prometheus::Counter& m_undecided;
  prometheus::Counter& m_failedMessages;
  prometheus::Gauge& m_generation;
  prometheus::Gauge& m_refused;
  prometheus::Gauge& m_rules;
  prometheus::Gauge& m_patterns;
  prometheus::Gauge& m_confirmed;
  prometheus::Gauge& m_age;
  prometheus::Histogram& m_reloadSeconds;
  prometheus::Counter& m_failedReloads;
  prometheus::Counter& m_unsavedPolicies;
  prometheus::Family<prometheus::Counter>& m_serverAnswers;
  prometheus::Family<prometheus::Counter>& m_serverFailures;
  prometheus::Family<prometheus::Gauge>& m_serverAnswered;
};
