// Asks the Decider, and keeps log and metrics of what it answers; for the milter and for policy delegation alike.
#pragma once

#include <memory>
#include <string>

#include "loading/PolicyHolder.h"
#include "metrics/FilterMetrics.h"
#include "policy/Decider.h"
#include "service/ServiceLog.h"
#include "store/FilterSettings.h"

// What every session shares. Safe from any thread.
struct DecisionDesk {
  const FilterSettings& settings;
  const PolicyHolder& policy;
  FilterMetrics& metrics;
  const ServiceLog& log;

  // Decides by a generation, which must outlive the verdict, and counts the decision. One that the header's From can
  // still change is counted when it is asked for with that.
  Verdict decide(const PolicyGeneration& generation, const Question& question) const;
  // The same where no header will be known.
  Verdict decideWithoutHeader(const PolicyGeneration& generation, const Question& question) const;
  // One line in the log. `done` is what happens to the recipient, in one word.
  void tell(const PolicyGeneration& generation, const std::string& queueId, const Question& question,
            const Verdict& verdict, const std::string& done) const;
};
