#include "metrics/FilterMetrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(FilterMetrics, areInTheFormOfOpenMetrics) {
  FilterMetrics metrics;
  metrics.countDecision(2, "spam \"x\"", 3us);
  metrics.countDecision(2, "spam \"x\"", 3us);
  metrics.countDecision(0, "", 3us);
  metrics.countFailedReload();
  metrics.setGeneration(17, 3, 1000);
  const std::string text = metrics.text();
  EXPECT_THAT(text, HasSubstr("# TYPE zaro_filter_decisions counter\n"));
  EXPECT_THAT(text, HasSubstr("zaro_filter_decisions_total{code=\"2\",rule=\"spam \\\"x\\\"\"} 2\n"));
  EXPECT_THAT(text, HasSubstr("zaro_filter_decisions_total{code=\"0\",rule=\"\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("zaro_filter_decision_seconds_count 3\n"));
  EXPECT_THAT(text, HasSubstr("zaro_filter_reload_failures_total 1\n"));
  EXPECT_THAT(text, HasSubstr("zaro_filter_generation 17\n"));
  EXPECT_THAT(text, HasSubstr("zaro_filter_policy_age_seconds -1\n"));
  EXPECT_THAT(text, Not(HasSubstr("# TYPE zaro_filter_decisions_total")));
  EXPECT_THAT(text, EndsWith("\n# EOF\n"));
}

TEST(FilterMetrics, forgetTheRulesThatAreGone) {
  FilterMetrics metrics;
  for (const char* rule : {"kept", "gone", ""}) {
    metrics.countDecision(1, rule, 3us);
    metrics.countDecision(2, rule, 3us);
  }
  metrics.keepRules({"kept", "new"});
  const std::string text = metrics.text();
  EXPECT_THAT(text, Not(HasSubstr("rule=\"gone\"")));
  EXPECT_THAT(text, HasSubstr("{code=\"2\",rule=\"kept\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("{code=\"2\",rule=\"\"} 1\n"));
  metrics.countDecision(2, "gone", 3us);  // by a message that keeps the policy before
  EXPECT_THAT(metrics.text(), HasSubstr("{code=\"2\",rule=\"gone\"} 1\n"));
}

TEST(FilterMetrics, tellTheAgeOfAConfirmedPolicy) {
  FilterMetrics metrics;
  metrics.confirmPolicy();
  EXPECT_THAT(metrics.text(), Not(HasSubstr("zaro_filter_policy_age_seconds -1")));
}

}  // namespace
