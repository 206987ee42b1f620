// A policy made by hand, and a filter's parts around it.
#pragma once

#include <string>
#include <vector>

#include "DecisionDesk.h"
#include "loading/PolicyHolder.h"
#include "policy/MailPolicy.h"
#include "policy/PolicyVocabulary.h"
#include "store/FilterSettings.h"

namespace zarotest {

// Rules that block the senders "NAME@bad.test" for every recipient, each with an action of its own.
class HandmadePolicy {
 public:
  MailPolicy policy;

  // A rule whose list holds `members`, behind the rules that are there.
  MailPolicy::Rule& addRule(const std::string& name, const std::vector<std::string>& members, KxEmailBelongsTo kind,
                            const std::vector<std::string>& actions) {
    const auto number = static_cast<unsigned int>(policy.rules.size() + 1);
    policy.groups.push_back({number, name + " list", members});
    MailPolicy::Rule rule;
    rule.id = number;
    rule.name = name;
    rule.position = number;
    rule.enabled = true;
    rule.lists = {{number, kind}};
    rule.actions = actionBitmap(actions);
    policy.rules.push_back(rule);
    return policy.rules.back();
  }

  // The rule is for recipients that a pattern contains.
  void narrow(MailPolicy::Rule& rule, const std::string& scope) {
    const auto id = static_cast<unsigned int>(100 + policy.entities.size());
    policy.entities.push_back({id, scope});
    rule.scope = id;
  }

  unsigned int addArea(const std::string& name) {
    constexpr int kQuarantineArea = 3;
    const auto id = static_cast<unsigned int>(200 + policy.objects.size());
    policy.objects.push_back({id, kQuarantineArea, name, ""});
    return id;
  }
};

// What the parts of a filter share, with the defaults of the settings.
class FilterParts {
 public:
  FilterParts() : log(FilterLog::Target::StandardError), holder([] {}), desk{settings, holder, metrics, log} {
    settings.decisions = {"", true, false, true, false, "X-Zaro-Policy"};
  }

  void use(const MailPolicy& policy) { holder.replace(policy); }

  FilterSettings settings = {};
  FilterLog log;
  FilterMetrics metrics;
  PolicyHolder holder;
  DecisionDesk desk;
};

}  // namespace zarotest
