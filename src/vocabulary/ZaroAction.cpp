#include "ZaroAction.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

#include "PolicyLog.h"

namespace {

constexpr auto kNo = ZaroAction::Change::No;
constexpr auto kYes = ZaroAction::Change::Yes;
constexpr auto kUnexpected = ZaroAction::Change::Unexpected;

// Strongest first. What looks like a slip is stored and compared by other programs: the taggings share an X-header name,
// one X-header name is in capitals, header tagging is unclassified, and the last encryption has a name for logs only.
// clang-format off
constexpr ZaroAction::Definition kActions[] = {
    //                               log name                  X-header name        terminal  header       body
    {ZaroAction::Archive,            "ArchiveAction",          "archive",           false,    kNo,         kNo},
    {ZaroAction::Delete,             "DeleteAction",           "delete",            true,     kNo,         kNo},
    {ZaroAction::Quarantine,         "QuarantineAction",       "quarantine",        true,     kNo,         kNo},
    {ZaroAction::Readdress,          "ReaddressAction",        "readdress",         true,     kYes,        kNo},
    {ZaroAction::DeleteAttachment,   "DeleteAttachmentAction", "delete_attachment", false,    kNo,         kYes},
    {ZaroAction::VirusClean,         "VirusCleanAction",       "clean",             false,    kNo,         kYes},
    {ZaroAction::HeaderTagging,      "HeaderTaggingAction",    "tag",               false,    kUnexpected, kUnexpected},
    {ZaroAction::SubjectTagging,     "SubjectTaggingAction",   "tag",               false,    kNo,         kYes},
    {ZaroAction::Stamp,              "StampAction",            "stamp",             false,    kNo,         kYes},
    {ZaroAction::Bcc,                "BccAction",              "BCC",               false,    kYes,        kNo},
    {ZaroAction::Notify,             "NotifyAction",           "notification",      false,    kNo,         kNo},
    {ZaroAction::Handoff,            "HandoffAction",          "handoff",           true,     kNo,         kNo},
    {ZaroAction::Postpone,           "PostponeAction",         "postpone",          false,    kNo,         kNo},
    {ZaroAction::LogOnly,            "LogOnly",                "log",               false,    kNo,         kNo},
    {ZaroAction::Veridock,           "VeridockAction",         "veridock",          false,    kNo,         kNo},
    {ZaroAction::InsertXHeader,      "InsertXHeaderTag",       "xheader",           false,    kNo,         kNo},
    {ZaroAction::IBEEncrypt,         "IBEEncryptAction",       "ibeencrypt",        false,    kNo,         kNo},
    {ZaroAction::IBEEncryptReserved, "IBEEncryptAction",       "unknown",           false,    kUnexpected, kUnexpected},
};
// clang-format on

constexpr ZaroAction::Definition kUnknownAction = {
    ZaroAction::ActionType(-1), "Unknown", "unknown", false, kUnexpected, kUnexpected};

constexpr const ZaroAction::Definition& find(int type) {
  for (const ZaroAction::Definition& action : kActions) {
    if (action.type == type) {
      return action;
    }
  }
  return kUnknownAction;
}

constexpr bool strictlyRising() {
  int last = -1;
  for (const ZaroAction::Definition& action : kActions) {
    if (action.type <= last) {
      return false;
    }
    last = action.type;
  }
  return true;
}

constexpr bool allUnknown(std::initializer_list<int> types) {
  for (const int type : types) {
    if (&find(type) != &kUnknownAction) {
      return false;
    }
  }
  return true;
}

static_assert(strictlyRising(), "one row per action, in rank order");
static_assert(allUnknown({14, 15, 17, 19, 20}), "the gaps in the numbers are deliberate");
static_assert(std::size(kActions) + 5 == 22 + 1, "every other number from 0 to 22 has its row");

bool willModify(ZaroAction::Change change, ZaroAction::ActionType type, const char* unexpectedMessage) {
  if (change == kUnexpected) {
    PolicyLog::log(LogLevel::Error, unexpectedMessage, ZaroAction::getActionName(type), static_cast<int>(type));
    return true;
  }
  return change == kYes;
}

}  // namespace

ZaroAction::~ZaroAction() = default;

void ZaroAction::begin() {}

void ZaroAction::end() {}

ZaroTable<ZaroAction::Definition> ZaroAction::definitions() {
  return ZaroTable<Definition>(kActions);
}

const char* ZaroAction::getActionName(ActionType type) {
  return find(type).name;
}

const char* ZaroAction::getActNameForXHdr(ActionType type) {
  return find(type).nameForXHdr;
}

bool ZaroAction::IsTerminal(ActionType type) {
  return find(type).terminal;
}

bool ZaroAction::willModifyMsgHdr(ActionType type) {
  return willModify(find(type).header, type, "ZaroAction::willModifyMsgHdr: unexpected action %s (%d)");
}

bool ZaroAction::willModifyMsgBody(ActionType type) {
  return willModify(find(type).body, type, "ZaroAction::willModifyMsgBody: unexpected action %s (%d)");
}

bool ZaroAction::willModifyMsgHdr(const std::vector<ZaroAction*>& actions) {
  return std::any_of(actions.begin(), actions.end(),
                     [](const ZaroAction* action) { return willModifyMsgHdr(action->getActionType()); });
}

bool ZaroAction::willModifyMsgBody(const std::vector<ZaroAction*>& actions) {
  return std::any_of(actions.begin(), actions.end(),
                     [](const ZaroAction* action) { return willModifyMsgBody(action->getActionType()); });
}

bool ZaroAction::originalMsgRequired(const std::vector<ZaroAction*>& actions) {
  return std::any_of(actions.begin(), actions.end(),
                     [](const ZaroAction* action) { return action->isOriginalMsgRequired(); });
}

ZaroAction::ActionType ZaroAction::getHighestOrderAction(const std::vector<ZaroAction*>& actions) {
  ActionType highest = LogOnly;
  for (const ZaroAction* action : actions) {
    highest = std::min(highest, action->getActionType());
  }
  return highest;
}
