// What happens to a message, out of the verdicts for its recipients.
//
// What is done to one recipient is for that recipient alone; what can only be done to the whole message is done if any
// verdict asks for it. Of two things that exclude each other the stronger by the library's ranking is done: for one
// recipient Delete before Quarantine before Readdress before Postpone; for the message the area, tag and value of the
// rule that comes first.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "policy/Decider.h"

struct RecipientOutcome {
  enum class What {
    Pass,
    Refuse,    // 550 5.7.1 with `text`
    Postpone,  // 451 4.7.1
    Drop,      // deleted silently
    Readdress  // `text` is the recipient instead
  };

  What what = What::Pass;
  std::string text;
};

// What can be said when the recipient is named: Refuse, Postpone, or Pass for all that is done at the end of the
// message, also for a verdict that awaits the header. Shadow mode passes everything.
RecipientOutcome outcomeAtRecipient(const Verdict& verdict, const MailFilterOptions& options);

struct MessageVerdict {
  // For each of the verdicts: Pass, Drop or Readdress. Refuse and Postpone too, though the recipient has been accepted:
  // they say why `refusal` or `isPostponed` is set, and every recipient has the same then.
  std::vector<RecipientOutcome> recipients;
  std::optional<std::string> refusal;        // the message is refused with it: 550 5.7.1
  bool isPostponed = false;                  // 451 4.7.1
  bool isDiscarded = false;                  // no recipient is left
  std::optional<std::string> hold;           // the name of the quarantine area
  std::optional<std::string> tag;            // before the subject
  std::optional<std::string> headerValue;    // one more header of the settings' name, with it
  std::vector<std::string> extraRecipients;  // each once
  std::optional<std::string> decision;       // the value of the header that tells the decision
  std::optional<std::size_t> deciding;       // the verdict that it tells, as a place
};

// Resolves the verdicts for the recipients that were accepted. In shadow mode there is only `decision`.
//   turnedAway  verdicts for recipients that were refused or postponed as they were named: if the message goes on, the
//               copies are made that they ask for
MessageVerdict resolve(const std::vector<Verdict>& verdicts, const MailFilterOptions& options,
                       const std::vector<Verdict>& turnedAway = {});
