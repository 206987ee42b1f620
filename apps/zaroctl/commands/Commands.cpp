#include "commands/Commands.h"
#include "commands/CommandTree.h"

namespace {

// In the order of the help text.
// clang-format off
constexpr void (*kCommands[])(CommandTree&) = {
    addInit,
    addCheck,
    addPassword,
    addSchemaStatus,
    addSchemaUpgrade,
    addExport,
    addImport,
    addBackup,
    addAdminId,
    addAdminList,
    addAdminShow,
    addAdminAdd,
    addAdminRemove,
    addAdminAssign,
    addAdminUnassign,
    addEntityList,
    addEntityShow,
    addEntityAdd,
    addEntityRemove,
    addEntityRelatives,
    addEntityContains,
    addEntityTree,
    addActionList,
    addActionShow,
    addFilterList,
    addBlobRead,
    addBlobWrite,
    addBase64Encode,
    addBase64Decode,
    addObjectList,
    addObjectShow,
    addObjectAdd,
    addObjectModify,
    addObjectRemove,
    addObjectWhy,
    addObjectPolicyText,
    addQuarantineList,
    addGroupList,
    addGroupShow,
    addGroupAdd,
    addGroupModify,
    addGroupRemove,
    addGroupImport,
    addGroupExport,
    addMatch,
    addLint,
    addSettingsServer,
    addSettingsClient,
    addSettingsFilter,
    addSettingsSet,
    addServersList,
    addServersAdd,
    addServersRemove,
    addPolicyFetch,
    addPolicyShow,
    addPolicyDiff,
    addPolicyRaise,
    addRuleList,
    addRuleShow,
    addRuleAdd,
    addRuleModify,
    addRuleRemove,
    addRuleMove,
    addRuleWhy,
    addRulesOrder,
    addRulesSetOrder,
    addAudit,
    addAuditTrim,
    addCompletion,
};
// clang-format on

}  // namespace

void addAllCommands(CommandTree& tree) {
  for (const auto add : kCommands) {
    add(tree);
  }
}
