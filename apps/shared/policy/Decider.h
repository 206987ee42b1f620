// The decision for one sender and one recipient. It knows nothing of mail servers: the filter, policy delegation and
// `zaroctl rule why` all ask it.
//
// The enabled rules whose scope and recipients contain the recipient are asked by position, each with what it compares:
// the envelope's sender, the address of the header's From, or both. The first rule that has a pattern of kind allow or
// block for what it asks decides; a rule that compares both takes the answer that blocks. Without such a rule the weak
// kinds of all rules together decide, for the envelope and for the header each; of two answers the one that blocks
// counts. Any number of threads may ask.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KxMatchExplanation.h"
#include "mail/MailAddress.h"
#include "policy/PolicyGeneration.h"

struct MailFilterOptions {
  std::string delimiter;  // characters that begin an extension of a local part; empty: none
  bool stripBatv = false;
  bool stripSrs = false;
  bool exemptAuthenticated = false;
  bool shadow = false;
  std::string header = "X-Zaro-Policy";
};

// Addresses are taken as mail spells them; an empty one is the null sender.
struct Question {
  std::string_view sender;
  std::optional<std::string_view> headerFrom;  // nothing: not known yet
  std::string_view recipient;
  bool authenticated = false;
};

struct Verdict {
  unsigned char code = 0;            // of KxWildcardEmail::matchEmailAddress
  const PolicyRule* rule = nullptr;  // that decides; null for code 0. Belongs to the generation, like the texts below.
  std::string_view pattern;
  unsigned int weight = 0;
  KxEmailBelongsTo kind = 0;
  std::string_view list;      // the name of the address group that holds the pattern
  bool byHeader = false;      // decided by the header's From
  bool isExempt = false;      // the sender is authenticated: no rule was asked
  bool awaitsHeader = false;  // the header's From can still change it

  unsigned char baseCode() const { return code & 0x7FU; }
  bool blocks() const { return baseCode() == 2; }
  // What is done to the mail; empty unless it blocks.
  const std::vector<const ActionKey*>& keys() const;
  bool does(ZaroAction::ActionType type) const { return blocks() && rule->does(type); }
};

// How a verdict came about.
struct DecisionExplanation {
  // What one of the two addresses of the sender was asked for.
  struct Side {
    bool isAsked = false;
    std::string address;             // in the form in which lists are asked
    std::vector<std::size_t> rules;  // of the trees of `matches`, as places in the generation's rules
    KxMatchExplanation matches;
  };

  std::string recipient;
  std::vector<std::size_t> rules;  // that were asked, by position
  std::size_t visited = 0;         // entries of the look-up of rules
  Side envelope;
  Side header;
};

class Decider {
 public:
  // Both must outlive it.
  Decider(const PolicyGeneration& generation, const MailFilterOptions& options)
      : m_generation(generation), m_options(options) {}

  // Throws std::bad_alloc.
  Verdict decide(const Question& question) const { return _decide(question, nullptr); }
  // The same decision, by the same steps, and how it came about.
  Verdict explain(const Question& question, DecisionExplanation& explanation) const {
    return _decide(question, &explanation);
  }

  // The forms in which lists are asked.
  std::string senderForm(std::string_view spelled) const;
  std::string recipientForm(std::string_view spelled) const;

 private:
  struct Answer;

  Verdict _decide(const Question& question, DecisionExplanation* explanation) const;
  Answer _ask(const std::string& sender, const std::vector<std::size_t>& applicable, bool (PolicyRule::*asks)() const,
              DecisionExplanation::Side* side) const;

  const PolicyGeneration& m_generation;
  const MailFilterOptions& m_options;
};
