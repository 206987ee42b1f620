// The administrators' own order of rule filters.
#include <cstring>
#include <optional>

#include "ZaroErrC.h"
#include "db/StoreStatement.h"
#include "miscUtils.h"

using ZARO::StoreStatement;

namespace {

using Filter = ZaroFilter::FilterType;

constexpr Filter kVirus[] = {ZaroFilter::Virus};
constexpr Filter kAttachment[] = {ZaroFilter::AttachmentTrueType, ZaroFilter::AttachmentMimeType,
                                  ZaroFilter::AttachmentNameExt, ZaroFilter::AttachmentNumber};
constexpr Filter kSize[] = {ZaroFilter::SizeMessage, ZaroFilter::SizeAttachment};
constexpr Filter kSpam[] = {ZaroFilter::SpamOstrel};
constexpr Filter kContent[] = {ZaroFilter::ContentSubject, ZaroFilter::ContentSubjectBlank, ZaroFilter::ContentBody,
                               ZaroFilter::ContentHeader, ZaroFilter::ContentAttachment};
// What ranks after every filter ends the group on purpose; policies are built by it.
constexpr Filter kOther[] = {ZaroFilter::RecipientNumber, ZaroFilter::TimeRange, ZaroFilter::Phishing,
                             ZaroFilter::NoFilter};

constexpr const char* kNotVirus = "miscUtils::_verifyFilterNames: expected name %s for  ZaroFilter::Virus";
constexpr const char* kNotAttachment = "miscUtils::_verifyFilterNames: expected name %s for  ZaroFilter::Attachment";
constexpr const char* kNotSize = "miscUtils::_verifyFilterNames: expected name %s for  ZaroFilter::Size";
constexpr const char* kNotSpam = "miscUtils::_verifyFilterNames: expected name %s for  ZaroFilter::SpamOstrel";

struct GroupRow {
  miscUtils::FilterGroup group;
  const char* otherName;  // logged, with the stored name, when that is not the group's
};

// Three groups are reported under the name of one; log watchers match them so.
constexpr GroupRow kGroups[] = {
    {{1, "Virus", ZaroTable<Filter>(kVirus)}, kNotVirus},
    {{2, "Attachment", ZaroTable<Filter>(kAttachment)}, kNotAttachment},
    {{3, "Size", ZaroTable<Filter>(kSize)}, kNotSize},
    {{4, "Spam", ZaroTable<Filter>(kSpam)}, kNotSpam},
    {{5, "Content", ZaroTable<Filter>(kContent)}, kNotSize},
    {{6, "Other", ZaroTable<Filter>(kOther)}, kNotSize},
};

constexpr bool withoutGaps() {
  int expected = 1;
  for (const GroupRow& row : kGroups) {
    if (row.group.id != expected++) {
      return false;
    }
  }
  return true;
}
static_assert(withoutGaps(), "one row per group, from 1");

const GroupRow* findRow(int id) {
  for (const GroupRow& row : kGroups) {
    if (row.group.id == id) {
      return &row;
    }
  }
  return nullptr;
}

using OrderStatement = StoreStatement<256>;

// Whether the order is switched on; nothing, and logged, when that is not stored.
std::optional<bool> readSwitch(ZARO::RdbmsInterface& db, OrderStatement& statement) {
  statement.run("ui_GetGlobalSettingValue.sql", "email-scan", "manualRuleOrder");
  constexpr int kNoRow = 1;  // with any other answer the column is asked for, and is not there
  const char* value = db.fetchNextRow() == kNoRow ? nullptr : db.getColVal("value");
  if (value == nullptr) {
    PolicyLog::log(LogLevel::Error,
                   "miscUtils::getUserDefinedRuleOrder: could not retrieve manualRuleOrder setting for statement %s",
                   statement.text());
    return std::nullopt;
  }
  return std::strcmp(value, "on") == 0;
}

// The group of the current row. False, and logged, when it is no number.
bool readFilterId(ZARO::RdbmsInterface& db, const OrderStatement& statement, int& filterId) {
  const char* column = db.getColVal("FilterID");
  const bool read = ZARO::readNumber(column, filterId);
  if (!read) {
    PolicyLog::log(LogLevel::Error,
                   "miscUtils::getUserDefinedRuleOrder: failed to retrieve FilterID from %s string for statement %s",
                   column != nullptr ? column : "NULL", statement.text());
  }
  return read;
}

void appendFilters(int filterId, std::vector<Filter>& order) {
  const miscUtils::FilterGroup* group = miscUtils::findFilterGroup(filterId);
  if (group == nullptr) {
    PolicyLog::log(LogLevel::Error, "miscUtils::getUserDefinedRuleOrder: Invalid filter id %d", filterId);
    return;
  }
  order.insert(order.end(), group->filters.begin(), group->filters.end());
}

void compareName(int filterId, const char* storedName) {
  const GroupRow* row = findRow(filterId);
  if (row == nullptr) {
    PolicyLog::log(LogLevel::Error, "miscUtils::_verifyFilterNames: unexpected filter type %d", filterId);
  } else if (std::strcmp(storedName, row->group.name) != 0) {
    PolicyLog::log(LogLevel::Error, row->otherName, storedName);
  }
}

}  // namespace

int miscUtils::getUserDefinedRuleOrder(ZARO::RdbmsInterface& db, bool& bManualOrder,
                                       std::vector<ZaroFilter::FilterType>& order, bool bVerify) {
  order.clear();
  bManualOrder = false;
  OrderStatement statement(db);
  const auto read = [&]() -> int {
    const std::optional<bool> switchedOn = readSwitch(db, statement);
    if (!switchedOn) {
      return ZaroErrC::MissingData;
    }
    if (!*switchedOn) {
      return ZaroErrC::Success;
    }
    statement.run("ui_GetManualOrderSetting.sql");
    for (int position = 1; db.fetchNextRow() == 0; ++position) {
      int filterId = 0;
      if (!readFilterId(db, statement, filterId)) {
        return ZaroErrC::MissingData;
      }
      appendFilters(filterId, order);
      if (bVerify) {
        _verifyFilterNames(db, position, filterId);
      }
    }
    bManualOrder = true;
    return ZaroErrC::Success;
  };
  return statement.guard("miscUtils::getUserDefinedRuleOrder: Exception \"%s\" thrown for statement %s",
                         static_cast<int>(ZaroErrC::DatabaseFailure), read);
}

const miscUtils::FilterGroup* miscUtils::findFilterGroup(int id) {
  const GroupRow* row = findRow(id);
  return row != nullptr ? &row->group : nullptr;
}

void miscUtils::_verifyFilterNames(ZARO::RdbmsInterface& db, int expectedOrder, int filterId) {
  ZARO::catchThrownText(
      [&] {
        const char* order = db.getColVal("RuleOrder");
        int storedOrder = 0;
        if (!ZARO::readNumber(order, storedOrder)) {
          PolicyLog::log(LogLevel::Error,
                         "miscUtils::_verifyFilterNames: failed to retrieve RuleOrder from %s string for filterId %d",
                         order != nullptr ? order : "NULL", filterId);
          return;
        }
        const char* name = db.getColVal("FilterType");
        if (name == nullptr) {
          PolicyLog::log(LogLevel::Error,
                         "miscUtils::_verifyFilterNames: failed to retrieve FilterType for filterId %d", filterId);
          return;
        }
        if (storedOrder != expectedOrder) {
          PolicyLog::log(LogLevel::Error,
                         "miscUtils::_verifyFilterNames: expected order %d != dbOrder %d for filter: %d; %s",
                         expectedOrder, storedOrder, filterId, name);
        }
        compareName(filterId, name);
      },
      [](const char* thrown) {
        PolicyLog::log(LogLevel::Error, "miscUtils::_verifyFilterNames: Exception \"%s\" thrown", thrown);
      });
}
