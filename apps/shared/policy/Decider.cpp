#include "policy/Decider.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "KxWildcardEmail.h"

namespace {

constexpr KxEmailBelongsTo kFirstTier = 1 | 2;
constexpr unsigned char kBlock = 2;

std::string formOf(std::string_view spelled, const AddressForm& form) {
  return spelled.empty() ? "<>" : normalAddress(spelled, form);
}

}  // namespace

// What the trees of some rules say of one address.
struct Decider::Answer {
  unsigned char code = 0;
  std::size_t rule = 0;  // meaningless for code 0
  KxEmailBelongsTo kind = 0;
  const char* pattern = nullptr;

  bool isOfFirstTier() const { return code != 0 && (kind & kFirstTier) != 0; }
  bool blocks() const { return (code & 0x7FU) == kBlock; }

  // Whether this counts rather than the answer for the other address of the sender.
  bool precedes(const Answer& other) const {
    if (code == 0 || other.code == 0) {
      return code != 0;
    }
    if (isOfFirstTier() != other.isOfFirstTier()) {
      return isOfFirstTier();
    }
    if (isOfFirstTier() && rule != other.rule) {
      return rule < other.rule;
    }
    return blocks() != other.blocks() ? blocks() : rule < other.rule;
  }
};

const std::vector<const ActionKey*>& Verdict::keys() const {
  static const std::vector<const ActionKey*> none;
  return blocks() ? rule->keys : none;
}

std::string Decider::senderForm(std::string_view spelled) const {
  return formOf(spelled, {m_options.delimiter, m_options.stripBatv, m_options.stripSrs});
}

// SRS names the sender of the mail that was forwarded. A recipient in that form is the forwarder's.
std::string Decider::recipientForm(std::string_view spelled) const {
  return formOf(spelled, {m_options.delimiter, m_options.stripBatv, false});
}

Decider::Answer Decider::_ask(const std::string& sender, const std::vector<std::size_t>& applicable,
                              bool (PolicyRule::*asks)() const, DecisionExplanation::Side* side) const {
  std::vector<std::size_t> rules;
  std::vector<KxWildcardNode*> trees;
  for (const std::size_t rule : applicable) {
    if ((m_generation.rules()[rule].*asks)()) {
      rules.push_back(rule);
      trees.push_back(m_generation.treeOf(rule));
    }
  }
  Answer answer;
  unsigned int tree = 0;
  if (side == nullptr) {
    answer.code = KxWildcardEmail::matchEmailAddress(sender.c_str(), trees, &tree, &answer.pattern, &answer.kind);
  } else {
    side->isAsked = true;
    side->address = sender;
    side->rules = rules;
    answer.code = KxWildcardEmail::explainEmailAddress(sender.c_str(), trees, side->matches);
    tree = side->matches.treeIndex;
    answer.pattern = side->matches.name;
    answer.kind = side->matches.belongsTo;
  }
  if (answer.code != 0) {
    answer.rule = rules[tree];
  }
  return answer;
}

Verdict Decider::_decide(const Question& question, DecisionExplanation* explanation) const {
  Verdict verdict;
  if (question.authenticated && m_options.exemptAuthenticated) {
    verdict.isExempt = true;
    return verdict;
  }
  const std::string recipient = recipientForm(question.recipient);
  std::vector<std::size_t> applicable;
  const std::size_t visited = m_generation.findApplicable(recipient, applicable);
  if (explanation != nullptr) {
    explanation->recipient = recipient;
    explanation->rules = applicable;
    explanation->visited = visited;
  }

  const std::string sender = senderForm(question.sender);
  const Answer envelope =
      _ask(sender, applicable, &PolicyRule::asksEnvelope, explanation != nullptr ? &explanation->envelope : nullptr);
  const auto firstOfHeader = std::find_if(applicable.begin(), applicable.end(),
                                          [&](std::size_t rule) { return m_generation.rules()[rule].asksHeader(); });
  Answer header;
  std::string from;
  if (firstOfHeader != applicable.end()) {
    if (question.headerFrom) {
      from = senderForm(*question.headerFrom);
      header = _ask(from, applicable, &PolicyRule::asksHeader, explanation != nullptr ? &explanation->header : nullptr);
    } else {
      // No answer for the header comes before that of an earlier rule, nor of the same rule when that blocks.
      verdict.awaitsHeader = !envelope.isOfFirstTier() || *firstOfHeader < envelope.rule ||
                             (*firstOfHeader == envelope.rule && !envelope.blocks());
    }
  }

  verdict.byHeader = header.precedes(envelope);
  const Answer& answer = verdict.byHeader ? header : envelope;
  if (answer.code == 0) {
    verdict.byHeader = false;
    return verdict;
  }
  verdict.code = answer.code;
  verdict.rule = &m_generation.rules()[answer.rule];
  verdict.pattern = answer.pattern;
  verdict.kind = answer.kind;
  std::vector<KxListedEmailAddress*> leaves;
  if (!m_generation.treeOf(answer.rule)->findAllMatches((verdict.byHeader ? from : sender).c_str(), leaves)) {
    throw std::bad_alloc();
  }
  const auto leaf = std::find_if(leaves.begin(), leaves.end(), [&](const KxListedEmailAddress* one) {
    return std::strcmp(one->getFullAddressAsStr(), answer.pattern) == 0;
  });
  if (leaf != leaves.end()) {
    verdict.weight = (*leaf)->getWeight();
    verdict.list = verdict.rule->listNames[m_generation.listOf(answer.rule, **leaf)];
  }
  return verdict;
}
