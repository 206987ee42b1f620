// One state of the policy, ready to decide mail: trees over a string table of their own, frozen.
//
// 1. Making and destroying a generation makes, fills, freezes and destroys trees: one thread at a time, the same as for
//    everything else that does (see KxWildcardEmail.h). Making one freezes whatever else waits to be frozen.
// 2. A made generation never changes. Any number of threads may ask it.
// 3. It takes everything along when it is destroyed. What it gave away by pointer or reference lives as long as it does.
//
// Memory: a pattern of an address group costs about 260 bytes for each different combination of lists that holds the
// group; rules with the same lists in the same order share one tree. The address groups that narrow scopes cost the same
// once, however many rules name them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KxStringtable.h"
#include "KxWildcardNode.h"
#include "policy/ArrivingPolicy.h"
#include "policy/MailPolicy.h"
#include "policy/PolicyError.h"
#include "policy/PolicyVocabulary.h"

// An enabled rule, with the names that what it refers to has.
struct PolicyRule {
  MailPolicy::Rule stored;
  std::string scope;                   // the pattern as stored; empty: every recipient
  std::string recipients;              // the group's name; empty: all of the scope
  std::vector<std::string> listNames;  // of `stored.lists`
  std::string area;                    // the quarantine area's name
  std::vector<const ActionKey*> keys;  // what a block does, the strongest first

  bool asksEnvelope() const { return stored.compare != MailPolicy::Compare::Header; }
  bool asksHeader() const { return stored.compare != MailPolicy::Compare::Envelope; }
  bool does(ZaroAction::ActionType type) const;
};

// Why the enabled rules that cannot be applied cannot be, by position; one such rule keeps a generation from being
// made. The members of groups are not looked at.
std::vector<std::string> unusableRules(const MailPolicy& policy);

// What an action of a rule needs and the rule lacks, in words; nothing when it has all. Throws as `keysIn`.
std::optional<std::string> missingForActions(const MailPolicy::Rule& rule);

class PolicyGeneration {
 public:
  // Builds everything of the enabled rules. Throws PolicyError for a rule that refers to what is not there, has a wrong
  // kind, comparison or action, or lacks what its action needs, and std::bad_alloc.
  explicit PolicyGeneration(const MailPolicy& policy);
  // The same, while members still arrive; all of them have arrived when it returns. Throws also what waiting for them
  // throws.
  explicit PolicyGeneration(ArrivingPolicy& policy);
  ~PolicyGeneration();
  PolicyGeneration(const PolicyGeneration&) = delete;
  PolicyGeneration& operator=(const PolicyGeneration&) = delete;

  std::uint64_t version() const { return m_version; }
  // By position.
  const std::vector<PolicyRule>& rules() const { return m_rules; }
  std::size_t trees() const { return m_trees.size(); }
  // Patterns in the trees of senders, and in the tree of scopes and recipients.
  std::size_t senderPatterns() const { return m_senderPatterns; }
  std::size_t recipientPatterns() const { return m_entries.size(); }
  // What is odd in the policy but does not keep it from being applied, for the log.
  const std::vector<std::string>& warnings() const { return m_warnings; }

  // The rules whose scope and recipients contain the recipient, by position, as places in `rules`.
  //   recipient   in the form of normalAddress
  //   applicable  cleared first
  // Returns how many entries of the look-up were visited, which does not grow with the number of rules that do not apply.
  std::size_t findApplicable(const std::string& recipient, std::vector<std::size_t>& applicable) const;

  // The tree of a rule's lists; null for a rule without lists.
  KxWildcardNode* treeOf(std::size_t rule) const { return m_treeOfRule[rule]; }
  // The list of a rule that a pattern in its tree comes from, as a place in its lists.
  std::size_t listOf(std::size_t rule, const KxListedEmailAddress& leaf) const;

 private:
  class Builder;

  // What a pattern in the tree of scopes and recipients stands for.
  struct Entry {
    std::uint32_t scope;  // a place in m_scopes, or kNone
    std::vector<std::uint32_t> groups;
  };
  struct Scope {
    std::vector<std::size_t> rules;                                            // without recipients
    std::unordered_map<std::uint32_t, std::vector<std::size_t>> rulesByGroup;  // with
  };
  static constexpr std::uint32_t kNone = static_cast<std::uint32_t>(-1);

  std::uint64_t m_version;
  std::vector<PolicyRule> m_rules;
  std::vector<std::string> m_warnings;
  std::vector<Entry> m_entries;
  std::vector<Scope> m_scopes;
  std::size_t m_senderPatterns = 0;

  KxStringtable m_table;  // outlives the trees
  std::unique_ptr<KxWildcardRootNode> m_recipients;
  std::vector<std::unique_ptr<KxWildcardRootNode>> m_trees;
  std::vector<KxWildcardNode*> m_treeOfRule;
};
