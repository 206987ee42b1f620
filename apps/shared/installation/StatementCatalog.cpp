#include "installation/StatementCatalog.h"

namespace {

constexpr StatementBuffer kMadeToMeasure = {0, 0};

}  // namespace

const std::vector<CataloguedStatement>& statementCatalog() {
  static const std::vector<CataloguedStatement> kStatements = {
      {"ui_StartTransaction.sql", "", StatementKind::Transaction, {256}, {}},
      {"ui_CommitTransaction.sql", "", StatementKind::Transaction, {256}, {}},
      {"ui_RollbackTransaction.sql", "", StatementKind::Transaction, {256}, {}},
      {"ui_GetAdminId.sql", "s", StatementKind::Query, {4096}, {"AdminID"}},
      {"ui_GetAdminEntityById.sql", "u", StatementKind::Query, {512}, {"EntityID", "EntityType", "EntityName"}},
      {"ui_GetAllEntities.sql", "", StatementKind::Query, {512}, {"EntityID", "EntityType", "EntityName"}},
      {"ui_GetEntitiesByType.sql", "d", StatementKind::Query, {512}, {"EntityID", "EntityName"}},
      {"ui_IsAdminRoot_Id.sql", "u", StatementKind::Query, {512}, {"IsAdminRoot"}},
      {"ui_AddNamedObj.sql", "dss", StatementKind::Change, {8192, 8291}, {"objectId"}},
      {"ui_ModifyNamedObj.sql", "dssu", StatementKind::Change, {8192, 8291}, {}},
      {"ui_AddEntityNamedObj.sql", "uud", StatementKind::Change, {256}, {}},
      {"ui_GetNamedObjRule.sql", "uu", StatementKind::Query, {256}, {}},
      {"ui_RemoveNamedObj.sql", "uu", StatementKind::Change, {512}, {"retId"}},
      {"ui_GetEntityId4NamedObj.sql", "u", StatementKind::Query, {256}, {"EntityID"}},
      {"ui_GetNamedObjBlob.sql", "u", StatementKind::Query, {256}, {"Content", "Name"}},
      {"ui_GetEntityNamedObj.sql", "dd", StatementKind::Query, {512}, {"EntityID", "NamedObjID", "Name"}},
      {"ui_GetNamedObjByType.sql", "d", StatementKind::Query, {512}, {"Name", "ID", "Content"}},
      {"ui_AddAddressgroup.sql", "usus", StatementKind::Change, kMadeToMeasure, {}},
      {"ui_ModifyAddressgroup.sql", "uss", StatementKind::Change, kMadeToMeasure, {}},
      {"ui_RemoveAddressgroup.sql", "u", StatementKind::Change, {8192}, {}},
      {"ui_GetMemberAddressByAGId.sql", "u", StatementKind::Query, {8192}, {"MemberAddress"}},
      {"ui_GetComponentInfo.sql", "s", StatementKind::Query, {1024}, {"scanner_id", "ip_addr", "agent_port"}},
      {"ui_GetGlobalSettingValue.sql", "ss", StatementKind::Query, {256}, {"value"}},
      {"ui_GetManualOrderSetting.sql", "", StatementKind::Query, {256}, {"FilterID", "RuleOrder", "FilterType"}},
  };
  return kStatements;
}

const CataloguedStatement* findStatement(const std::string& file) {
  for (const CataloguedStatement& statement : statementCatalog()) {
    if (file == statement.file) {
      return &statement;
    }
  }
  return nullptr;
}

std::size_t bufferSize(const CataloguedStatement& statement, std::size_t texts) {
  constexpr std::size_t kRoomForTheRest = 100;
  return texts > statement.buffer.longestTexts || statement.buffer.fixed == 0 ? texts + kRoomForTheRest
                                                                              : statement.buffer.fixed;
}
