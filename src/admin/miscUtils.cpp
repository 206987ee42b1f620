#include "miscUtils.h"

#include "ZaroErrC.h"
#include "db/StoreStatement.h"

using ZARO::EscapedText;
using ZARO::StoreStatement;

int miscUtils::getAdminId(ZARO::RdbmsInterface& db, const char* adminName, unsigned int& adminId) {
  constexpr unsigned int kNoAdmin = 4294967295u;
  const EscapedText name(adminName);
  StoreStatement<4096> statement(db);

  // The messages name the operation with an underscore; log watchers match them so.
  return statement.guard(
      "miscUtils::_getAdminId: Exception \"%s\" thrown for statement %s", static_cast<int>(ZaroErrC::DatabaseFailure),
      [&]() -> int {
        statement.run("ui_GetAdminId.sql", name.get());
        if (db.fetchNextRow() != 0) {
          return ZaroErrC::MissingData;
        }
        const char* column = db.getColVal("AdminID");
        if (!ZARO::readNumber(column, adminId) || adminId == kNoAdmin) {
          PolicyLog::log(LogLevel::Error, "miscUtils::_getAdminId: could not retrieve admin ID from %s for statement %s",
                         ZARO::shownText(column), statement.text());
          return ZaroErrC::MissingData;
        }
        return ZaroErrC::Success;
      });
}
