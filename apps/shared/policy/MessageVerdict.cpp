#include "policy/MessageVerdict.h"

#include <algorithm>
#include <array>
#include <tuple>

using What = RecipientOutcome::What;

namespace {

RecipientOutcome outcomeOf(const Verdict& verdict) {
  if (!verdict.blocks()) {
    return {};
  }
  const MailPolicy::Rule& rule = verdict.rule->stored;
  if (verdict.does(ZaroAction::Delete)) {
    return rule.reply.empty() ? RecipientOutcome{What::Drop, {}} : RecipientOutcome{What::Refuse, rule.reply};
  }
  if (verdict.does(ZaroAction::Readdress)) {
    return {What::Readdress, rule.address};
  }
  // A recipient that is postponed would miss the quarantine.
  return {verdict.does(ZaroAction::Postpone) && !verdict.does(ZaroAction::Quarantine) ? What::Postpone : What::Pass, {}};
}

// Whether the recipient gets the message.
bool isKept(const RecipientOutcome& outcome) {
  return outcome.what == What::Pass || outcome.what == What::Readdress;
}

bool are(const std::vector<RecipientOutcome>& outcomes, What what) {
  return !outcomes.empty() && std::all_of(outcomes.begin(), outcomes.end(),
                                          [&](const RecipientOutcome& outcome) { return outcome.what == what; });
}

bool has(const std::vector<RecipientOutcome>& outcomes, What what) {
  return std::any_of(outcomes.begin(), outcomes.end(),
                     [&](const RecipientOutcome& outcome) { return outcome.what == what; });
}

int rankOf(const Verdict& verdict) {
  return verdict.keys().empty() ? ZaroAction::LogOnly : verdict.keys().front()->type;
}

// The first of two rules by position tells the decision, after what it is: block, tie, allow.
bool isStronger(const Verdict& one, const Verdict& other) {
  const auto orderOf = [](const Verdict& verdict) {
    constexpr std::array<unsigned char, 3> kCodes = {2, 9, 1};
    return std::make_tuple(std::find(kCodes.begin(), kCodes.end(), verdict.baseCode()), rankOf(verdict),
                           verdict.rule->stored.position);
  };
  return orderOf(one) < orderOf(other);
}

// A text inside a header's value: nothing in it ends the line, the part or the alphabet of mail.
std::string headerText(std::string_view text) {
  constexpr std::size_t kLongest = 256;
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string safe;
  for (const char character : text) {
    if (safe.size() >= kLongest) {
      return safe + "...";
    }
    const auto byte = static_cast<unsigned char>(character);
    if (byte < ' ' || byte > '~' || character == ';') {
      safe.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]});
    } else {
      safe += character;
    }
  }
  return safe;
}

std::string decisionText(const Verdict& verdict) {
  return "rule=" + headerText(verdict.rule->stored.name) + "; code=" + std::to_string(verdict.code) +
         "; pattern=" + headerText(verdict.pattern);
}

std::string shadowText(const std::vector<Verdict>& verdicts) {
  std::vector<const ActionKey*> keys;
  for (const Verdict& verdict : verdicts) {
    keys.insert(keys.end(), verdict.keys().begin(), verdict.keys().end());
  }
  std::sort(keys.begin(), keys.end(),
            [](const ActionKey* one, const ActionKey* other) { return one->type < other->type; });
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return "shadow; would=" + (keys.empty() ? "none" : keysText(keys));
}

// What belongs to the whole message, of the verdicts for recipients that get it, and the copies that any asks for.
class MessageActions {
 public:
  explicit MessageActions(MessageVerdict& message) : m_message(message) {}

  void add(const Verdict& verdict, bool isRecipientKept) {
    if (!verdict.blocks()) {
      return;
    }
    const PolicyRule& rule = *verdict.rule;
    if (verdict.does(ZaroAction::Archive) || verdict.does(ZaroAction::Bcc)) {
      std::vector<std::string>& extra = m_message.extraRecipients;
      if (std::find(extra.begin(), extra.end(), rule.stored.address) == extra.end()) {
        extra.push_back(rule.stored.address);
      }
    }
    if (!isRecipientKept) {
      return;
    }
    _take(verdict, ZaroAction::Quarantine, m_hold, m_message.hold, rule.area);
    _take(verdict, ZaroAction::SubjectTagging, m_tag, m_message.tag, rule.stored.tag);
    _take(verdict, ZaroAction::InsertXHeader, m_headerValue, m_message.headerValue, rule.stored.headerValue);
  }

 private:
  static void _take(const Verdict& verdict, ZaroAction::ActionType type, const PolicyRule*& from,
                    std::optional<std::string>& taken, const std::string& text) {
    if (verdict.does(type) && (from == nullptr || verdict.rule->stored.position < from->stored.position)) {
      from = verdict.rule;
      taken = text;
    }
  }

  MessageVerdict& m_message;
  const PolicyRule* m_hold = nullptr;
  const PolicyRule* m_tag = nullptr;
  const PolicyRule* m_headerValue = nullptr;
};

// The strongest verdict that decided; of those for recipients that get the message, if any does.
std::optional<std::size_t> decidingAmong(const std::vector<Verdict>& verdicts,
                                         const std::vector<RecipientOutcome>& outcomes) {
  const bool isAnyKept = std::any_of(outcomes.begin(), outcomes.end(), isKept);
  std::optional<std::size_t> deciding;
  for (std::size_t place = 0; place != verdicts.size(); ++place) {
    if (verdicts[place].code != 0 && (!isAnyKept || isKept(outcomes[place])) &&
        (!deciding || isStronger(verdicts[place], verdicts[*deciding]))) {
      deciding = place;
    }
  }
  return deciding;
}

MessageVerdict shadowOf(const std::vector<Verdict>& verdicts) {
  MessageVerdict message;
  message.recipients.resize(verdicts.size());
  message.deciding = decidingAmong(verdicts, message.recipients);
  if (message.deciding) {
    message.decision = shadowText(verdicts);
  }
  return message;
}

}  // namespace

RecipientOutcome outcomeAtRecipient(const Verdict& verdict, const MailFilterOptions& options) {
  if (options.shadow || verdict.awaitsHeader) {
    return {};
  }
  RecipientOutcome outcome = outcomeOf(verdict);
  return outcome.what == What::Refuse || outcome.what == What::Postpone ? outcome : RecipientOutcome();
}

MessageVerdict resolve(const std::vector<Verdict>& verdicts, const MailFilterOptions& options,
                       const std::vector<Verdict>& turnedAway) {
  if (options.shadow) {
    return shadowOf(verdicts);
  }
  MessageVerdict message;
  std::vector<RecipientOutcome>& outcomes = message.recipients;
  for (const Verdict& verdict : verdicts) {
    outcomes.push_back(outcomeOf(verdict));
  }
  message.deciding = decidingAmong(verdicts, outcomes);
  if (are(outcomes, What::Refuse)) {
    message.refusal = outcomes[*message.deciding].text;
    return message;
  }
  if (has(outcomes, What::Postpone)) {
    if (std::none_of(outcomes.begin(), outcomes.end(), isKept)) {
      message.isPostponed = true;
      return message;
    }
    // One recipient cannot be postponed any more, and the others shall not wait.
    std::replace_if(
        outcomes.begin(), outcomes.end(), [](const RecipientOutcome& one) { return one.what == What::Postpone; },
        RecipientOutcome());
    message.deciding = decidingAmong(verdicts, outcomes);
  }
  MessageActions actions(message);
  for (std::size_t place = 0; place != verdicts.size(); ++place) {
    if (outcomes[place].what == What::Refuse) {
      outcomes[place] = {What::Drop, {}};
    }
    actions.add(verdicts[place], isKept(outcomes[place]));
  }
  for (const Verdict& verdict : turnedAway) {
    constexpr bool kIsRecipientKept = false;
    actions.add(verdict, kIsRecipientKept);
  }
  message.isDiscarded = !verdicts.empty() && message.extraRecipients.empty() && are(outcomes, What::Drop);
  if (message.deciding) {
    message.decision = decisionText(verdicts[*message.deciding]);
  }
  return message;
}
