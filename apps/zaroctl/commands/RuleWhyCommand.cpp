// rule why
#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "patterns/MatchExplanation.h"
#include "policy/MessageVerdict.h"
#include "policy/PolicyLoading.h"
#include "store/FilterSettings.h"
#include "store/PolicyRules.h"

using zaroruntime::Installation;

namespace {

struct WhyOptions {
  std::optional<std::string> admin;
  std::optional<std::string> headerFrom;
  std::string sender;
  std::string recipient;
};

// What the administrator may know of the rules; without one, everything.
class Sight {
 public:
  Sight(StoreConnection& db, const std::optional<std::string>& admin) {
    if (admin) {
      m_viewer = findViewer(*admin);
      m_sight.emplace(db, *m_viewer);
    }
  }

  bool seesRule(const PolicyRule& rule) const { return !m_viewer || m_sight->sees(*m_viewer, rule.stored); }
  // A list that is seen shows what stands in it.
  bool seesList(const MailPolicy::List& list) const { return !m_viewer || m_sight->groups.count(list.group) != 0; }
  // Whether the area may be named.
  bool seesArea(const PolicyRule& rule) const {
    return !m_viewer || !rule.stored.quarantine || m_sight->areas.count(*rule.stored.quarantine) != 0;
  }

 private:
  std::optional<Viewer> m_viewer;
  std::optional<PolicySight> m_sight;
};

class Why {
 public:
  Why(const PolicyGeneration& generation, const MailFilterOptions& options, const Sight& sight)
      : m_generation(generation), m_options(options), m_sight(sight) {}

  ExitCode print(Output& out, const WhyOptions& asked) {
    const Question question = {asked.sender, _headerOf(asked), asked.recipient};
    m_verdict = Decider(m_generation, m_options).explain(question, m_explanation);
    _collectRules();
    _collectPatterns("envelope", m_explanation.envelope);
    _collectPatterns("header", m_explanation.header);
    const Json decision = _decision();
    if (out.isByKey()) {
      out.record({{"sender", m_explanation.envelope.address},
                  {"header_from", m_explanation.header.isAsked ? Json(m_explanation.header.address) : Json(nullptr)},
                  {"recipient", m_explanation.recipient},
                  {"version", m_generation.version()},
                  {"rules", m_rules},
                  {"hidden_rules", m_hiddenRules},
                  {"patterns", m_patterns},
                  {"decision", decision}});
    } else {
      _printForPeople(out, decision);
    }
    return m_verdict.code != 0 ? ExitCode::Found : ExitCode::NotFound;
  }

 private:
  static std::optional<std::string_view> _headerOf(const WhyOptions& asked) {
    return asked.headerFrom ? std::make_optional<std::string_view>(*asked.headerFrom) : std::nullopt;
  }

  void _collectRules() {
    for (const std::size_t place : m_explanation.rules) {
      const PolicyRule& rule = m_generation.rules()[place];
      if (!m_sight.seesRule(rule)) {
        ++m_hiddenRules;
        continue;
      }
      m_rules.push_back({{"position", rule.stored.position},
                         {"rule", rule.stored.name},
                         {"compare", nameOfComparison(rule.stored.compare)},
                         {"actions", keysText(rule.keys)}});
    }
  }

  void _collectPatterns(const char* name, const DecisionExplanation::Side& side) {
    for (std::size_t number = 0; number != side.matches.candidates.size(); ++number) {
      const KxMatchCandidate& candidate = side.matches.candidates[number];
      const std::size_t place = side.rules[candidate.tree];
      const PolicyRule& rule = m_generation.rules()[place];
      const std::size_t list = m_generation.listOf(place, *candidate.leaf);
      if (!m_sight.seesRule(rule) || !m_sight.seesList(rule.stored.lists[list])) {
        continue;
      }
      m_patterns.push_back({{"number", number + 1},
                            {"asked", name},
                            {"rule", rule.stored.name},
                            {"pattern", candidate.leaf->getFullAddressAsStr()},
                            {"weight", candidate.weight},
                            {"kind", nameOfKind(candidate.state)},
                            {"list", rule.listNames[list]},
                            {"fate", fateText(candidate)}});
    }
  }

  // What is done, as far as the administrator may know.
  Json _decision() const {
    if (m_verdict.code == 0) {
      return {{"code", 0}, {"done", m_verdict.awaitsHeader ? "awaits the header's From" : "passes: no rule decides"}};
    }
    if (!m_sight.seesRule(*m_verdict.rule)) {
      return {{"done", "decided by a rule that is not seen"}};
    }
    Json decision = {{"code", m_verdict.code}, {"rule", m_verdict.rule->stored.name}};
    const auto& lists = m_verdict.rule->stored.lists;
    const auto& names = m_verdict.rule->listNames;
    bool isListSeen = false;
    for (std::size_t list = 0; list != lists.size(); ++list) {
      isListSeen = isListSeen || (names[list] == m_verdict.list && m_sight.seesList(lists[list]));
    }
    if (isListSeen) {
      decision["pattern"] = m_verdict.pattern;
      decision["weight"] = m_verdict.weight;
      decision["kind"] = nameOfKind(m_verdict.kind);
      decision["list"] = m_verdict.list;
    }
    decision["by"] = m_verdict.byHeader ? "header" : "envelope";
    decision["actions"] = keysText(m_verdict.keys());
    decision["done"] = _done();
    return decision;
  }

  std::string _done() const {
    if (!m_verdict.blocks()) {
      return m_verdict.baseCode() == 1 ? "passes" : "passes: allow and block are of equal weight";
    }
    if (m_options.shadow) {
      return "passes: shadow mode";
    }
    const std::string done = _outcome();
    return m_verdict.awaitsHeader ? done + ", unless the header's From changes it" : done;
  }

  // What happens to a message for this recipient alone.
  std::string _outcome() const {
    const MessageVerdict message = resolve({m_verdict}, m_options);
    if (message.refusal) {
      return "550 5.7.1 " + *message.refusal;
    }
    if (message.isPostponed) {
      return "451 4.7.1";
    }
    std::string done;
    for (const ActionKey* key : m_verdict.keys()) {
      const std::string words = _wordsFor(key->type, message);
      if (!words.empty() && done.find(words) == std::string::npos) {
        done.append(done.empty() ? "" : ", ").append(words);
      }
    }
    return done.empty() ? "passes: the rule has no action" : done;
  }

  // Empty for an action that a stronger one excludes.
  std::string _wordsFor(ZaroAction::ActionType type, const MessageVerdict& message) const {
    const RecipientOutcome& recipient = message.recipients.front();
    switch (type) {
      case ZaroAction::Delete:
        return recipient.what == RecipientOutcome::What::Drop ? "the recipient is dropped" : "";
      case ZaroAction::Readdress:
        return recipient.what == RecipientOutcome::What::Readdress ? "goes to " + recipient.text + " instead" : "";
      case ZaroAction::Quarantine:
        return !message.hold ? "" : m_sight.seesArea(*m_verdict.rule) ? "held: area " + *message.hold : "held";
      case ZaroAction::SubjectTagging:
        return message.tag ? "subject tagged " + quoted(*message.tag) : "";
      case ZaroAction::InsertXHeader:
        return message.headerValue ? m_options.header + ": " + *message.headerValue : "";
      case ZaroAction::Archive:
      case ZaroAction::Bcc:
        return "one more recipient: " + message.extraRecipients.front();
      default:  // Postpone
        return "";
    }
  }

  void _printForPeople(Output& out, const Json& decision) const {
    out.remark("sender " + m_explanation.envelope.address +
               (m_explanation.header.isAsked ? ", header's From " + m_explanation.header.address : std::string()) +
               ", recipient " + m_explanation.recipient);
    for (const Json& rule : m_rules) {
      out.remark("asked: rule " + std::to_string(rule.at("position").get<unsigned int>()) + " " +
                 quoted(rule.at("rule").get<std::string>()));
    }
    if (m_hiddenRules != 0) {
      out.remark("asked: " + std::to_string(m_hiddenRules) + " that are not seen");
    }
    std::string text;
    for (const auto& [key, value] : decision.items()) {
      text.append(text.empty() ? "" : "; ")
          .append(key)
          .append(" ")
          .append(value.is_string() ? value.get<std::string>() : value.dump());
    }
    out.remark(text);
    out.rows({{"number", "NUMBER"},
              {"asked", "ASKED"},
              {"rule", "RULE"},
              {"pattern", "PATTERN"},
              {"weight", "WEIGHT"},
              {"kind", "KIND"},
              {"list", "LIST"},
              {"fate", "FATE", Output::Width::Whole}},
             m_patterns);
  }

  const PolicyGeneration& m_generation;
  const MailFilterOptions& m_options;
  const Sight& m_sight;
  DecisionExplanation m_explanation;
  Verdict m_verdict;
  Json m_rules = Json::array();
  Json m_patterns = Json::array();
  std::size_t m_hiddenRules = 0;
};

ExitCode why(Output& out, const WhyOptions& asked) {
  StoreConnection db;
  const Sight sight(db, asked.admin);
  const PolicyGeneration generation(loadMailPolicy(db));
  if (!asked.admin) {  // a warning names a pattern, which not every administrator sees
    for (const std::string& warning : generation.warnings()) {
      diagnose(warning);
    }
  }
  const Installation installation = Installation::fromEnvironment();
  const FilterSettings settings = filterSettings(installation, zaroruntime::readSettings(installation));
  return Why(generation, settings.decisions, sight).print(out, asked);
}

}  // namespace

void addRuleWhy(CommandTree& tree) {
  const auto asked = std::make_shared<WhyOptions>();
  CLI::App* command =
      tree.add("rule why", "Tell what the rules do with mail from a sender to a recipient, and why",
               {"zaroctl rule why spam@example.net ann@north.sales.example.test",
                "zaroctl rule why --as sales-admin --header-from news@example.net '<>' ann@north.sales.example.test"},
               tellingNotThere([asked](Output& out) { return why(out, *asked); }));
  command->add_option("--as", asked->admin, "Tell only what this administrator may see")->type_name("ADMIN");
  command->add_option("--header-from", asked->headerFrom, "The address of the header's From")->type_name("ADDRESS");
  command->add_option("SENDER", asked->sender, "The envelope's sender; <> is the null sender")->required()->type_name("");
  command->add_option("RECIPIENT", asked->recipient, "One recipient")->required()->type_name("");
}
