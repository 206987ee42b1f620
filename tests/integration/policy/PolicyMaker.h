// Policies of tests, made of few words.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "policy/MailPolicy.h"
#include "policy/PolicyVocabulary.h"

class PolicyMaker {
 public:
  unsigned int group(const std::string& name, const std::vector<std::string>& members) {
    m_policy.groups.push_back({static_cast<unsigned int>(m_policy.groups.size()) + 1, name, {}});
    for (const std::string& member : members) {
      m_policy.groups.back().members.add(member);
    }
    return m_policy.groups.back().id;
  }
  unsigned int entity(const std::string& pattern) {
    m_policy.entities.push_back({static_cast<unsigned int>(m_policy.entities.size()) + 1, pattern});
    return m_policy.entities.back().id;
  }
  unsigned int area(const std::string& name) {
    m_policy.objects.push_back({static_cast<unsigned int>(m_policy.objects.size()) + 1, 3, name, ""});
    return m_policy.objects.back().id;
  }
  // An enabled rule behind the others, for every recipient, that blocks with some actions.
  MailPolicy::Rule& rule(const std::string& name, std::vector<MailPolicy::List> lists,
                         const std::vector<std::string>& keys = {}) {
    MailPolicy::Rule rule;
    rule.id = rule.position = static_cast<unsigned int>(m_policy.rules.size()) + 1;
    rule.name = name;
    rule.enabled = true;
    rule.lists = std::move(lists);
    rule.actions = actionBitmap(keys);
    m_policy.rules.push_back(rule);
    return m_policy.rules.back();
  }

  // The same with one list, whose group is made for it.
  MailPolicy::Rule& rule(const std::string& name, const std::vector<std::string>& members, KxEmailBelongsTo kind,
                         const std::vector<std::string>& keys = {}) {
    const unsigned int list = group(name + " list", members);
    return rule(name, {{list, kind}}, keys);
  }

  MailPolicy& policy() { return m_policy; }

 private:
  MailPolicy m_policy;
};
