// The policy rules of the installation, as commands need them.
//
// 1. An administrator sees and makes rules whose scope is one of the administrator's wildcard managing groups, or is
//    contained in one; the administration root sees and makes all, and is the only one for rules without a scope.
// 2. A rule names address groups and quarantine areas that the administrator sees. One that has others, given
//    by another administrator, is seen without their names, and not changed.
// 3. A change is one transaction that locks the administrator's rights, what the rule refers to, in the order of
//    identifiers, and then the rules: places of rules depend on each other.
// 4. It writes what differs: one that makes no difference is no other version of the policy, and no entry in the audit trail.
//
// Everything here throws DatabaseError when the database fails, RuntimeError for what is refused, UsageError for a rule that
// makes no sense, and NotThere for what is not there or not seen.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "policy/MailPolicy.h"
#include "store/Objects.h"

// What an administrator sees of what rules refer to, by identifier.
struct PolicySight {
  std::set<unsigned int> scopes;
  std::map<unsigned int, std::string> groups;
  std::map<unsigned int, std::string> areas;

  PolicySight(StoreConnection& db, const Viewer& viewer);

  bool sees(const Viewer& viewer, const MailPolicy::Rule& rule) const;
  // Whether everything that a rule refers to is seen.
  bool seesAllOf(const MailPolicy::Rule& rule) const;
};

// A rule as it is stored, and the names of what it refers to; nothing for what is not seen.
struct VisibleRule {
  struct List {
    std::optional<std::string> group;
    KxEmailBelongsTo kind;
  };

  MailPolicy::Rule stored;
  std::string scope;  // the pattern; empty for all recipients
  std::optional<std::string> recipients;
  std::vector<List> lists;
  std::optional<std::string> area;
  bool modifiable;
};

// By position.
std::vector<VisibleRule> visibleRules(const Viewer& viewer);

// A rule as the command line names it.
struct WantedRule {
  std::string text;
  bool isId = false;
};

// It must be the only one of its name that the viewer sees.
VisibleRule findRule(const Viewer& viewer, const WantedRule& wanted);

// What is to be another; what the change does not name stays.
struct RuleChange {
  struct Scope {
    bool isForAll = false;
    std::string entity;
  };
  struct List {
    std::string group;
    KxEmailBelongsTo kind;
  };

  // Groups are named as they are stored, or group-id:ID.
  std::optional<std::string> name;
  std::optional<unsigned int> position;  // a rule that is there, and those behind it, make room
  std::optional<bool> enabled;
  std::optional<Scope> scope;
  std::optional<std::string> recipients;  // a group; empty for none
  std::optional<std::vector<List>> lists;
  std::optional<MailPolicy::Compare> compare;
  std::optional<std::string> actions;      // a bitmap
  std::optional<unsigned int> quarantine;  // 0 for none
  std::optional<std::string> reply;
  std::optional<std::string> tag;
  std::optional<std::string> headerValue;
  std::optional<std::string> address;

  bool isEmpty() const;
};

constexpr unsigned int kHighestPosition = 1000000000;

// The change names the scope; the rule is enabled unless it says otherwise, and behind all others unless it has a position.
VisibleRule addRule(const std::string& admin, const std::string& name, const RuleChange& change);
VisibleRule changeRule(const std::string& admin, const WantedRule& wanted, const RuleChange& change);
// As it was.
VisibleRule removeRule(const std::string& admin, const WantedRule& wanted);
