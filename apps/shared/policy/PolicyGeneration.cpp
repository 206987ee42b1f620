#include "policy/PolicyGeneration.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <new>
#include <utility>

#include "KxWildcardEmail.h"
#include "console/Text.h"
#include "mail/LetterCase.h"
#include "mail/MailAddress.h"
#include "patterns/PatternAdding.h"
#include "patterns/PatternPieces.h"

namespace {

constexpr int kQuarantineArea = 3;
// A leaf keeps a number for us in the bits of its kind that the library leaves alone.
constexpr unsigned int kNumberShift = 7;
constexpr std::size_t kHighestNumber = (std::size_t{1} << (32 - kNumberShift)) - 1;

// What every spelling of one pattern has in common, so that no two entries get the same leaf. For a tree, a pattern
// ends at a NUL.
std::string canonicalPattern(std::string_view pattern) {
  const std::string text = inLowerCase(normalPattern(pattern.substr(0, pattern.find('\0'))));
  const std::size_t at = text.find('@');
  if (at == std::string::npos) {
    return text == "*" ? "*@*" : text + "@." + text;
  }
  // Labels left of a "*" are ignored.
  const PatternPieces pieces = piecesOf(text);
  const std::string_view first = pieces.labels[pieces.firstCounting()];
  return text.substr(0, at + 1).append(text, static_cast<std::size_t>(first.data() - text.data()));
}

std::string nameOf(const MailPolicy::Rule& rule) {
  return "rule " + std::to_string(rule.id) + " (" + quoted(rule.name) + ")";
}

template <typename Element>
std::unordered_map<unsigned int, const Element*> byId(const std::vector<Element>& elements, const char* what) {
  std::unordered_map<unsigned int, const Element*> places;
  for (const Element& element : elements) {
    if (!places.emplace(element.id, &element).second) {
      throw PolicyError("the policy has two " + std::string(what) + " with the identifier " + std::to_string(element.id));
    }
  }
  return places;
}

// What an action needs beside being asked for, and the rule lacks, in words; empty when it has all.
using MissingText = std::string (*)(const MailPolicy::Rule& rule);

std::string missingAddress(const MailPolicy::Rule& rule) {
  if (rule.address.empty()) {
    return "an address";
  }
  // Mail servers make one or several addresses of their own of anything else, and the mail would be lost.
  return isMailbox(rule.address) ? "" : "an address, which " + quoted(rule.address) + " is not";
}

struct Need {
  ZaroAction::ActionType type;
  MissingText missing;
};
constexpr Need kNeeds[] = {
    {ZaroAction::Quarantine,
     [](const MailPolicy::Rule& rule) { return std::string(rule.quarantine ? "" : "a quarantine area"); }},
    {ZaroAction::SubjectTagging,
     [](const MailPolicy::Rule& rule) { return std::string(rule.tag.empty() ? "a tag" : ""); }},
    {ZaroAction::InsertXHeader,
     [](const MailPolicy::Rule& rule) { return std::string(rule.headerValue.empty() ? "a header value" : ""); }},
    {ZaroAction::Readdress, missingAddress},
    {ZaroAction::Bcc, missingAddress},
    {ZaroAction::Archive, missingAddress},
};

// Finds what rules refer to, and refuses the rules that cannot be applied.
class RuleResolver {
 public:
  explicit RuleResolver(const MailPolicy& policy)
      : m_groups(byId(policy.groups, "address groups")),
        m_entities(byId(policy.entities, "managing groups")),
        m_objects(byId(policy.objects, "objects")) {}

  PolicyRule resolve(const MailPolicy::Rule& rule) const {
    PolicyRule resolved;
    resolved.stored = rule;
    try {
      resolved.keys = keysIn(rule.actions);
    } catch (const zaroruntime::RuntimeError& wrong) {
      throw PolicyError(nameOf(rule) + ": " + wrong.what());
    }
    for (const ActionKey* key : resolved.keys) {
      if (!key->isSupported) {
        throw PolicyError(nameOf(rule) + " wants " + key->name + ", which a mail filter cannot do");
      }
    }
    if (const auto missing = missingForActions(rule)) {
      throw PolicyError(nameOf(rule) + ": " + *missing);
    }
    for (const std::string* text : {&rule.reply, &rule.tag, &rule.headerValue, &rule.address}) {
      _requireOneLine(*text, rule);
    }
    if (!comparison(nameOfComparison(rule.compare))) {
      throw PolicyError(nameOf(rule) + " compares " + nameOfComparison(rule.compare) + ", which is nothing known");
    }
    if (rule.scope) {
      resolved.scope = _find(m_entities, *rule.scope, rule, "the wildcard managing group").pattern;
    }
    if (rule.recipients) {
      resolved.recipients = _find(m_groups, *rule.recipients, rule, "the address group").name;
    }
    for (const MailPolicy::List& list : rule.lists) {
      if (!isListKind(list.kind)) {
        throw PolicyError(nameOf(rule) + " has a list of kind " + std::to_string(list.kind) + ", which is no kind");
      }
      resolved.listNames.push_back(_find(m_groups, list.group, rule, "the address group").name);
    }
    if (rule.quarantine) {
      const MailPolicy::Object& area = _find(m_objects, *rule.quarantine, rule, "the quarantine area");
      if (area.type != kQuarantineArea) {
        throw PolicyError(nameOf(rule) + " refers to object " + std::to_string(area.id) + ", which is no quarantine area");
      }
      _requireOneLine(area.name, rule);
      resolved.area = area.name;
    }
    return resolved;
  }

  const MailPolicy::Group& group(unsigned int id) const { return *m_groups.at(id); }

 private:
  template <typename Element>
  static const Element& _find(const std::unordered_map<unsigned int, const Element*>& elements, unsigned int id,
                              const MailPolicy::Rule& rule, const char* what) {
    const auto found = elements.find(id);
    if (found == elements.end()) {
      throw PolicyError(nameOf(rule) + " refers to " + what + " " + std::to_string(id) + ", which is not there");
    }
    return *found->second;
  }

  // What goes into a reply or a header: a line's end in it would begin another header.
  static void _requireOneLine(const std::string& text, const MailPolicy::Rule& rule) {
    const bool hasControls = std::any_of(text.begin(), text.end(), [](char character) {
      return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
    });
    if (hasControls) {
      throw PolicyError(nameOf(rule) + " has a control character in " + quoted(text));
    }
  }

  std::unordered_map<unsigned int, const MailPolicy::Group*> m_groups;
  std::unordered_map<unsigned int, const MailPolicy::Entity*> m_entities;
  std::unordered_map<unsigned int, const MailPolicy::Object*> m_objects;
};

std::vector<const MailPolicy::Rule*> enabledByPosition(const MailPolicy& policy) {
  std::vector<const MailPolicy::Rule*> rules;
  for (const MailPolicy::Rule& rule : policy.rules) {
    if (rule.enabled) {
      rules.push_back(&rule);
    }
  }
  std::sort(rules.begin(), rules.end(),
            [](const MailPolicy::Rule* one, const MailPolicy::Rule* other) { return one->position < other->position; });
  return rules;
}

// The rules stand in the order of their positions.
void refuseSamePosition(const MailPolicy::Rule* before, const MailPolicy::Rule& rule) {
  if (before != nullptr && before->position == rule.position) {
    throw PolicyError(nameOf(rule) + " has the position of another rule");
  }
}

}  // namespace

bool PolicyRule::does(ZaroAction::ActionType type) const {
  return std::any_of(keys.begin(), keys.end(), [&](const ActionKey* key) { return key->type == type; });
}

std::optional<std::string> missingForActions(const MailPolicy::Rule& rule) {
  for (const ActionKey* key : keysIn(rule.actions)) {
    for (const Need& need : kNeeds) {
      const std::string missing = need.type == key->type ? need.missing(rule) : "";
      if (!missing.empty()) {
        return std::string(key->name) + " needs " + missing;
      }
    }
  }
  return std::nullopt;
}

std::vector<std::string> unusableRules(const MailPolicy& policy) {
  const RuleResolver resolver(policy);
  std::vector<std::string> faults;
  const MailPolicy::Rule* before = nullptr;
  for (const MailPolicy::Rule* rule : enabledByPosition(policy)) {
    try {
      refuseSamePosition(before, *rule);
      static_cast<void>(resolver.resolve(*rule));
    } catch (const PolicyError& fault) {
      faults.emplace_back(fault.what());
    }
    before = rule;
  }
  return faults;
}

// Builds a generation; its indexes are of no use afterwards.
class PolicyGeneration::Builder {
 public:
  // Waits for more members of a group; false when it has all.
  using WaitForMembers = std::function<bool(unsigned int group)>;

  Builder(PolicyGeneration& generation, const MailPolicy& policy, WaitForMembers waitForMembers)
      : m_generation(generation), m_resolver(policy), m_waitForMembers(std::move(waitForMembers)) {
    const MailPolicy::Rule* before = nullptr;
    for (const MailPolicy::Rule* rule : enabledByPosition(policy)) {
      refuseSamePosition(before, *rule);
      generation.m_rules.push_back(m_resolver.resolve(*rule));
      before = rule;
    }
  }

  void build() {
    m_generation.m_recipients = _newTree();
    for (std::size_t place = 0; place != m_generation.m_rules.size(); ++place) {
      const MailPolicy::Rule& rule = m_generation.m_rules[place].stored;
      const std::uint32_t scope = _scopeOf(m_generation.m_rules[place]);
      if (rule.recipients) {
        m_generation.m_scopes[scope].rulesByGroup[_recipientsOf(*rule.recipients)].push_back(place);
      } else {
        m_generation.m_scopes[scope].rules.push_back(place);
      }
      m_generation.m_treeOfRule.push_back(_treeOf(m_generation.m_rules[place]));
    }
    for (const auto& [pattern, number] : m_numbers) {
      _require(addPattern(*m_generation.m_recipients, pattern.c_str(),
                          static_cast<KxEmailBelongsTo>(number << kNumberShift), nullptr),
               pattern);
    }
    if (m_refused != 0) {
      m_generation.m_warnings.push_back(std::to_string(m_refused) +
                                        " patterns stand in lists of one rule whose kinds exclude each other, and keep the "
                                        "kind of the first list; the first is " +
                                        quoted(m_firstRefused));
    }
    KxWildcardEmail::initScanTimeMode();
  }

 private:
  using Combination = std::vector<std::pair<unsigned int, KxEmailBelongsTo>>;

  static void _require(bool isAdded, const std::string& pattern) {
    if (!isAdded) {
      throw PolicyError("the address pattern " + quoted(pattern) + " cannot be stored in a tree");
    }
  }

  std::unique_ptr<KxWildcardRootNode> _newTree() { return std::make_unique<KxWildcardRootNode>(&m_generation.m_table); }

  Entry& _entryOf(std::string_view pattern) {
    const auto [place, isNew] = m_numbers.emplace(canonicalPattern(pattern), m_generation.m_entries.size());
    if (isNew) {
      if (place->second > kHighestNumber) {
        throw PolicyError("the scopes and recipients of the rules have too many patterns");
      }
      m_generation.m_entries.push_back({kNone, {}});
    }
    return m_generation.m_entries[place->second];
  }

  std::uint32_t _scopeOf(const PolicyRule& rule) {
    Entry& entry = _entryOf(rule.stored.scope ? rule.scope : "*");
    if (entry.scope == kNone) {
      entry.scope = static_cast<std::uint32_t>(m_generation.m_scopes.size());
      m_generation.m_scopes.emplace_back();
    }
    return entry.scope;
  }

  // The number of a group that narrows scopes.
  std::uint32_t _recipientsOf(unsigned int group) {
    const auto [place, isNew] = m_recipientGroups.emplace(group, static_cast<std::uint32_t>(m_recipientGroups.size()));
    if (isNew) {
      while (m_waitForMembers(group)) {
      }
      for (const std::string_view member : m_resolver.group(group).members) {
        std::vector<std::uint32_t>& groups = _entryOf(member).groups;
        if (groups.empty() || groups.back() != place->second) {
          groups.push_back(place->second);
        }
      }
    }
    return place->second;
  }

  KxWildcardNode* _treeOf(const PolicyRule& rule) {
    Combination combination;
    for (const MailPolicy::List& list : rule.stored.lists) {
      combination.emplace_back(list.group, list.kind);
    }
    if (combination.empty()) {
      return nullptr;
    }
    const auto [place, isNew] = m_combinations.emplace(combination, nullptr);
    if (isNew) {
      m_generation.m_trees.push_back(_newTree());
      place->second = m_generation.m_trees.back().get();
      _fill(*place->second, combination);
    }
    return place->second;
  }

  void _fill(KxWildcardRootNode& tree, const Combination& combination) {
    for (std::size_t list = 0; list != combination.size(); ++list) {
      const auto& [group, kind] = combination[list];
      const bool isOnlyOfKind = std::count_if(combination.begin(), combination.end(),
                                              [&, kind = kind](const auto& one) { return one.second == kind; }) == 1;
      // The kind tells the list where it can; a text for each leaf costs memory.
      const std::string number = std::to_string(list);
      _add(tree, m_resolver.group(group), kind, isOnlyOfKind ? nullptr : number.c_str());
    }
  }

  void _add(KxWildcardRootNode& tree, const MailPolicy::Group& group, KxEmailBelongsTo kind, const char* annotation) {
    const TextList& members = group.members;
    auto& [patterns, texts, added] = m_batch;
    for (std::size_t begin = 0, count = 0;; begin += count) {
      while (members.size() < begin + kAtOnce && m_waitForMembers(group.id)) {
      }
      count = std::min(members.size() - begin, kAtOnce);
      if (count == 0) {
        return;
      }
      for (std::size_t place = 0; place != count; ++place) {
        const std::string_view member = members[begin + place];
        texts[place] = isPlainPattern(member) ? member.data() : (patterns[place] = normalPattern(member)).c_str();
      }
      m_generation.m_senderPatterns +=
          tree.addAddressPatterns(texts.data(), count, kind, annotation, nullptr, added.data());
      for (std::size_t place = 0; place != count; ++place) {
        if (added[place]) {
          continue;
        }
        if (addPattern(tree, texts[place], kind, annotation)) {
          ++m_generation.m_senderPatterns;
        } else if (m_refused++ == 0) {
          m_firstRefused = texts[place];
        }
      }
    }
  }

  static constexpr std::size_t kAtOnce = 1024;

  // Patterns that are added together: `texts` points to those that are plain as stored, and into `patterns` for the others.
  struct Batch {
    std::array<std::string, kAtOnce> patterns;
    std::array<const char*, kAtOnce> texts;
    std::array<bool, kAtOnce> added;
  };

  PolicyGeneration& m_generation;
  RuleResolver m_resolver;
  WaitForMembers m_waitForMembers;
  std::unordered_map<std::string, std::size_t> m_numbers;  // of patterns of scopes and recipients
  std::unordered_map<unsigned int, std::uint32_t> m_recipientGroups;
  std::map<Combination, KxWildcardRootNode*> m_combinations;
  Batch m_batch;
  std::size_t m_refused = 0;
  std::string m_firstRefused;
};

PolicyGeneration::PolicyGeneration(const MailPolicy& policy) : m_version(policy.version) {
  Builder(*this, policy, [](unsigned int /*group*/) { return false; }).build();
}

PolicyGeneration::PolicyGeneration(ArrivingPolicy& policy) : m_version(policy.soFar().version) {
  Builder(*this, policy.soFar(), [&](unsigned int group) { return policy.waitForMembersOf(group); }).build();
  policy.whole();  // no generation is made of a policy that cannot be read to its end
}

PolicyGeneration::~PolicyGeneration() = default;

std::size_t PolicyGeneration::findApplicable(const std::string& recipient, std::vector<std::size_t>& applicable) const {
  applicable.clear();
  std::vector<KxListedEmailAddress*> leaves;
  if (!m_recipients->findAllMatches(recipient.c_str(), leaves)) {
    throw std::bad_alloc();
  }
  std::size_t visited = leaves.size();
  std::vector<std::uint32_t> groups;
  for (const KxListedEmailAddress* leaf : leaves) {
    const Entry& entry = m_entries[leaf->getState() >> kNumberShift];
    groups.insert(groups.end(), entry.groups.begin(), entry.groups.end());
  }
  std::sort(groups.begin(), groups.end());
  groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
  for (const KxListedEmailAddress* leaf : leaves) {
    const std::uint32_t number = m_entries[leaf->getState() >> kNumberShift].scope;
    if (number == kNone) {
      continue;
    }
    const Scope& scope = m_scopes[number];
    applicable.insert(applicable.end(), scope.rules.begin(), scope.rules.end());
    if (scope.rulesByGroup.size() < groups.size()) {
      for (const auto& [group, rules] : scope.rulesByGroup) {
        if (std::binary_search(groups.begin(), groups.end(), group)) {
          applicable.insert(applicable.end(), rules.begin(), rules.end());
        }
      }
      visited += scope.rulesByGroup.size();
      continue;
    }
    if (!scope.rulesByGroup.empty()) {
      for (const std::uint32_t group : groups) {
        const auto rules = scope.rulesByGroup.find(group);
        if (rules != scope.rulesByGroup.end()) {
          applicable.insert(applicable.end(), rules->second.begin(), rules->second.end());
        }
      }
      visited += groups.size();
    }
  }
  std::sort(applicable.begin(), applicable.end());
  return visited + applicable.size();
}

std::size_t PolicyGeneration::listOf(std::size_t rule, const KxListedEmailAddress& leaf) const {
  const std::string& number = leaf.getAnnotation();
  if (!number.empty()) {
    return std::stoul(number);
  }
  const std::vector<MailPolicy::List>& lists = m_rules[rule].stored.lists;
  const auto list = std::find_if(lists.begin(), lists.end(),
                                 [&](const MailPolicy::List& one) { return (one.kind & leaf.getState()) != 0; });
  return static_cast<std::size_t>(list - lists.begin());
}
