// A filter's parts, as tests put them together.
#pragma once

#include "DecisionDesk.h"
#include "loading/PolicyHolder.h"
#include "policy/MailPolicy.h"
#include "store/FilterSettings.h"

namespace zarotest {

// What the parts of a filter share, with the defaults of the settings.
class FilterParts {
 public:
  FilterParts() : log(ServiceLog::Target::StandardError), holder([] {}), desk{settings, holder, metrics, log} {
    settings.decisions = {"", true, false, true, false, "X-Zaro-Policy"};
  }

  void use(const MailPolicy& policy) {
    ArrivingPolicy arrived(policy);
    holder.replace(arrived);
  }

  FilterSettings settings = {};
  ServiceLog log;
  FilterMetrics metrics;
  PolicyHolder holder;
  DecisionDesk desk;
};

}  // namespace zarotest
