#include "installation/StatementCatalog.h"

#include <fstream>
#include <iterator>

#include "ZaroRuntime/RuntimeError.h"

const std::vector<CataloguedStatement>& statementCatalog() {
  static const std::vector<CataloguedStatement> kStatements = {
      {"ui_StartTransaction.sql", "", StatementKind::Transaction, {}},
      {"ui_CommitTransaction.sql", "", StatementKind::Transaction, {}},
      {"ui_RollbackTransaction.sql", "", StatementKind::Transaction, {}},
      {"ui_GetAdminId.sql", "s", StatementKind::Query, {"AdminID"}},
      {"ui_GetAdminEntityById.sql", "u", StatementKind::Query, {"EntityID", "EntityType", "EntityName"}},
      {"ui_GetAllEntities.sql", "", StatementKind::Query, {"EntityID", "EntityType", "EntityName"}},
      {"ui_GetEntitiesByType.sql", "d", StatementKind::Query, {"EntityID", "EntityName"}},
      {"ui_IsAdminRoot_Id.sql", "u", StatementKind::Query, {"IsAdminRoot"}},
      {"ui_AddNamedObj.sql", "dss", StatementKind::Change, {"objectId"}},
      {"ui_ModifyNamedObj.sql", "dssu", StatementKind::Change, {}},
      {"ui_AddEntityNamedObj.sql", "uud", StatementKind::Change, {}},
      {"ui_GetNamedObjRule.sql", "uu", StatementKind::Query, {}},
      {"ui_RemoveNamedObj.sql", "uu", StatementKind::Change, {"retId"}},
      {"ui_GetEntityId4NamedObj.sql", "u", StatementKind::Query, {"EntityID"}},
      {"ui_GetNamedObjBlob.sql", "u", StatementKind::Query, {"Content", "Name"}},
      {"ui_GetEntityNamedObj.sql", "dd", StatementKind::Query, {"EntityID", "NamedObjID", "Name"}},
      {"ui_GetNamedObjByType.sql", "d", StatementKind::Query, {"Name", "ID", "Content"}},
      {"ui_AddAddressgroup.sql", "usus", StatementKind::Change, {}},
      {"ui_ModifyAddressgroup.sql", "uss", StatementKind::Change, {}},
      {"ui_RemoveAddressgroup.sql", "u", StatementKind::Change, {}},
      {"ui_GetMemberAddressByAGId.sql", "u", StatementKind::Query, {"MemberAddress"}},
      {"ui_GetComponentInfo.sql", "s", StatementKind::Query, {"scanner_id", "ip_addr", "agent_port"}},
      {"ui_GetGlobalSettingValue.sql", "ss", StatementKind::Query, {"value"}},
      {"ui_GetManualOrderSetting.sql", "", StatementKind::Query, {"FilterID", "RuleOrder", "FilterType"}},
  };
  return kStatements;
}

std::string harmlessStatement(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) {
    throw zaroruntime::RuntimeError(path + ": cannot be read");
  }
  std::string statement;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%' || at + 1 == text.size()) {
      statement += text[at];
      continue;
    }
    switch (text[++at]) {
      case 's':
        statement += 'x';
        break;
      case '%':
        statement += '%';
        break;
      default:
        statement += '1';
    }
  }
  // The loader drops a semicolon at the end as well.
  statement.erase(statement.find_last_not_of("; \t\r\n") + 1);
  return statement;
}
