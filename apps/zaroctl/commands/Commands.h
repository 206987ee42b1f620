// Every command of the program. A new one is a file of its own, or stands beside its likes, with a declaration here and
// a line in Commands.cpp.
#pragma once

class CommandTree;

void addActionList(CommandTree& tree);
void addActionShow(CommandTree& tree);
void addAdminAdd(CommandTree& tree);
void addAdminAssign(CommandTree& tree);
void addAdminId(CommandTree& tree);
void addAdminList(CommandTree& tree);
void addAdminRemove(CommandTree& tree);
void addAdminUnassign(CommandTree& tree);
void addAudit(CommandTree& tree);
void addAuditTrim(CommandTree& tree);
void addBase64Decode(CommandTree& tree);
void addBase64Encode(CommandTree& tree);
void addBlobRead(CommandTree& tree);
void addBlobWrite(CommandTree& tree);
void addCheck(CommandTree& tree);
void addCompletion(CommandTree& tree);
void addEntityAdd(CommandTree& tree);
void addEntityContains(CommandTree& tree);
void addEntityList(CommandTree& tree);
void addEntityRelatives(CommandTree& tree);
void addEntityRemove(CommandTree& tree);
void addEntityShow(CommandTree& tree);
void addEntityTree(CommandTree& tree);
void addFilterList(CommandTree& tree);
void addGroupAdd(CommandTree& tree);
void addGroupExport(CommandTree& tree);
void addGroupImport(CommandTree& tree);
void addGroupList(CommandTree& tree);
void addGroupModify(CommandTree& tree);
void addGroupRemove(CommandTree& tree);
void addGroupShow(CommandTree& tree);
void addInit(CommandTree& tree);
void addLint(CommandTree& tree);
void addMatch(CommandTree& tree);
void addObjectAdd(CommandTree& tree);
void addObjectList(CommandTree& tree);
void addObjectModify(CommandTree& tree);
void addObjectPolicyText(CommandTree& tree);
void addObjectRemove(CommandTree& tree);
void addObjectShow(CommandTree& tree);
void addObjectWhy(CommandTree& tree);
void addPassword(CommandTree& tree);
void addQuarantineList(CommandTree& tree);
void addRuleList(CommandTree& tree);
void addRuleShow(CommandTree& tree);
void addRuleAdd(CommandTree& tree);
void addRuleModify(CommandTree& tree);
void addRuleRemove(CommandTree& tree);
void addRuleMove(CommandTree& tree);
void addRuleWhy(CommandTree& tree);
void addRulesOrder(CommandTree& tree);
void addRulesSetOrder(CommandTree& tree);
void addSchemaStatus(CommandTree& tree);
void addSchemaUpgrade(CommandTree& tree);
void addServersAdd(CommandTree& tree);
void addServersList(CommandTree& tree);
void addServersRemove(CommandTree& tree);
void addSettingsClient(CommandTree& tree);
void addSettingsFilter(CommandTree& tree);
void addSettingsServer(CommandTree& tree);
void addSettingsSet(CommandTree& tree);

void addAllCommands(CommandTree& tree);
