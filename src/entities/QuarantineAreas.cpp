// Quarantine areas, the system's own among them.
#include "ZaroErrC.h"
#include "ZaroNamedObj.h"
#include "db/StoreStatement.h"
#include "entities/ReservedName.h"

using ZARO::isReservedName;
using ZARO::RdbmsInterface;
using ZARO::shownText;

namespace {

constexpr int kNoRow = 1;
constexpr int kFailed = -1;
constexpr int kMostFailures = 1000;  // one after the other; without a connection there would be no end of them

// Reads the rows until one is the system's area and has a content; 0, or the code of why there is none.
int readReservedArea(RdbmsInterface& db, const char* statement, QuarantineData& area) {
  int failures = 0;
  for (int fetched = db.fetchNextRow(); fetched != kNoRow; fetched = db.fetchNextRow()) {
    failures = fetched == kFailed ? failures + 1 : 0;
    if (failures == kMostFailures) {
      return ZaroErrC::DatabaseFailure;
    }
    const char* column = db.getColVal("Name");
    if (column == nullptr) {
      PolicyLog::log(LogLevel::Error, "ZaroNamedObj::getOPPQuarantineArea: could not retrieve Name for statement %s",
                     statement);
      continue;
    }
    if (!isReservedName(column)) {
      continue;
    }
    area.name = column;
    column = db.getColVal("ID");
    if (!ZARO::readNumber(column, area.id)) {
      PolicyLog::log(LogLevel::Error,
                     "ZaroNamedObj::getOPPQuarantineArea: could not retrieve ID from %s for statement %s",
                     shownText(column), statement);
      return ZaroErrC::MissingData;
    }
    column = db.getColVal("Content");
    if (column == nullptr) {
      PolicyLog::log(LogLevel::Error, "ZaroNamedObj::getOPPQuarantineArea: could not retrieve Content for statement %s",
                     statement);
      continue;
    }
    area.content = column;
    return ZaroErrC::Success;
  }
  return ZaroErrC::MissingData;
}

}  // namespace

int ZaroNamedObj::getOPPQuarantineArea(RdbmsInterface& /*db*/, QuarantineData& area) {
  char buffer[512];
  ZARO::StatementText statement(buffer, sizeof buffer);
  const auto read = [&]() -> int {
    statement.load("ui_GetNamedObjByType.sql", static_cast<int>(QuarantineArea));
    RdbmsInterface own;  // callers may be in the middle of a result
    own.executeSQL(statement.get());
    return readReservedArea(own, statement.get(), area);
  };
  return statement.guard("ZaroNamedObj::getOPPQuarantineArea: Exception \"%s\" thrown for statement %s",
                         static_cast<int>(ZaroErrC::DatabaseFailure), read);
}

bool ZaroNamedObj::getEditableQuanantineData(RdbmsInterface& db, unsigned int adminId, std::vector<QuarantineData>& out) {
  std::vector<SummaryNamedObject> summaries;
  if (!getIds(db, adminId, QuarantineArea, summaries)) {
    return false;
  }
  out.reserve(summaries.size() + 1);
  for (const SummaryNamedObject& summary : summaries) {
    QuarantineData area;
    area.id = summary.id;
    area.name = summary.name;
    area.editable = summary.editable;
    out.push_back(area);
  }
  QuarantineData reserved;
  if (getOPPQuarantineArea(db, reserved) == ZaroErrC::Success) {
    reserved.editable = false;
    out.push_back(reserved);
  }
  for (QuarantineData& area : out) {
    std::string name;
    if (!getBlob(db, area.id, area.content, name)) {
      return false;
    }
  }
  return true;
}
