// The store of named objects: statements, codes and messages of each operation.
#include "EntityTest.h"
#include "ZaroNamedObj.h"
#include "scripted/Prelude.h"

namespace {

using zarotest::entity;

constexpr auto kKind = static_cast<ZaroNamedObj::NaObjType>(9);
constexpr unsigned int kNone = 4294967295u;

class ObjectStore : public zarotest::EntityTest {
 protected:
  static void answer(const std::string& file, const std::vector<std::string>& columns, const std::vector<Row>& rows) {
    platform().database.replyToFile(file, Reply(columns, rows));
  }
  static void acceptOwners() { platform().database.replyToFile("ui_AddEntityNamedObj.sql", Reply()); }
  static void setOwners(const std::vector<Row>& rows) { answer("ui_GetEntityId4NamedObj.sql", {"EntityID"}, rows); }
  // Whether a rule refers to every object.
  static void setInUse(bool inUse) {
    platform().database.replyToFile("ui_GetNamedObjRule.sql",
                                    Reply({"ID"}, inUse ? std::vector<Row>{{"1"}} : std::vector<Row>{}));
  }

  unsigned int addObject(const char* name = "n", const char* content = "c") {
    return ZaroNamedObj::addObj(m_db, name, content, kKind);
  }
};

class Concrete : public ZaroNamedObj {
 public:
  bool load(ZARO::RdbmsInterface&, unsigned int) override { return false; }
  bool store(ZARO::RdbmsInterface&, unsigned int) override { return false; }
  NaObjType getType() const override { return QuarantineArea; }
};

TEST(NamedObject, kindsHaveTheirNumbers) {
  const Concrete object;
  EXPECT_EQ(object.getType(), 3);
  EXPECT_EQ(ZaroNamedObj::GroupOfAddresses, 5);
  EXPECT_EQ(sizeof(ZaroNamedObj::NaObjType), 4u);
  EXPECT_EQ(sizeof(ZaroNamedObj), sizeof(void*)) << "no data members";
}

TEST(NamedObject, recordsAreZeroAtFirst) {
  const SummaryNamedObject summary;
  EXPECT_TRUE(summary.id == 0 && !summary.editable && !summary.deletable && summary.name.empty());
  const QuarantineData area;
  EXPECT_TRUE(area.id == 0 && !area.editable && area.name.empty() && area.content.empty());
}

TEST(NamedObject, probeTouchesNothing) {
  std::string content = "c";
  std::string name = "n";
  EXPECT_TRUE(ZaroNamedObj::test(1, content, name));
  EXPECT_EQ(content + name, "cn");
}

// --- Adding ---

TEST_F(ObjectStore, addedObjectHasItsParametersEscaped) {
  answer("ui_AddNamedObj.sql", {"objectId"}, {{"41"}});
  EXPECT_EQ(addObject("o'brien", "it's 100%s"), 41u);
  EXPECT_THAT(platform().database.statements(), ElementsAre("ui_AddNamedObj.sql [9] [o''brien] [it''s 100%s]"));
  EXPECT_EQ(platform().statements.last().bufferSize, 8192);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

struct StatementSize {
  std::size_t name;
  std::size_t content;
  int buffer;
};

TEST_F(ObjectStore, bufferGrowsWithLongData) {
  // With the quotes, which are doubled, counted twice.
  const StatementSize sizes[] = {{1, 0, 8192},    {291, 8000, 8192}, {292, 8000, 8392},      {0, 8292, 8392},
                                 {8292, 0, 8392}, {5, 9000, 9105},   {512, 5000000, 5000612}};
  for (const StatementSize& size : sizes) {
    platform().reset();
    platform().database.replyToFile("ui_AddNamedObj.sql", Reply({"objectId"}, {{"1"}}));
    platform().database.replyToFile("ui_ModifyNamedObj.sql", Reply());
    const std::string name(size.name, 'n');
    const std::string content(size.content, 'c');
    addObject(name.c_str(), content.c_str());
    EXPECT_EQ(platform().statements.last().bufferSize, size.buffer);
    ZaroNamedObj::modifyObj(m_db, name.c_str(), content.c_str(), kKind, 1);
    EXPECT_EQ(platform().statements.last().bufferSize, size.buffer);
  }
  addObject("n", std::string(4146, '\'').c_str());
  EXPECT_EQ(platform().statements.last().bufferSize, 8393);
}

TEST_F(ObjectStore, dataThatFillsTheFixedBufferIsRefused) {
  EXPECT_EQ(addObject("n", std::string(8200, 'c').c_str()), kNone);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::addObj: Exception \"ui_AddNamedObj.sql does not fit into 8192 bytes\" thrown "
                           "for name:n; type:9")});
}

TEST_F(ObjectStore, objectWithoutIdentifierIsNotAdded) {
  answer("ui_AddNamedObj.sql", {"objectId"}, {});
  EXPECT_EQ(addObject(), kNone);
  platform().reset();
  answer("ui_AddNamedObj.sql", {"objectId"}, {{kNull}});
  EXPECT_EQ(addObject(), kNone);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::addObj: could not retrieve objectId from NULL string for name:n; type:9")});
  platform().reset();
  answer("ui_AddNamedObj.sql", {"objectId"}, {{"x"}});
  EXPECT_EQ(addObject("o'b"), kNone);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::addObj: could not retrieve objectId from x for name:o'b; type:9")});
}

TEST_F(ObjectStore, missingRowIsLoggedWithTheName) {
  answer("ui_AddNamedObj.sql", {"objectId"}, {});
  addObject("o'b");
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::addObj: could not retrieve objectId for name:o'b; type:9")});
}

TEST_F(ObjectStore, failedAddIsLogged) {
  platform().faults.throwText(Point::Execute, "lost");
  EXPECT_EQ(addObject(), kNone);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::addObj: Exception \"lost\" thrown for name:n; type:9")});
  EXPECT_EQ(addObject(nullptr, "c"), kNone);
  EXPECT_EQ(addObject("n", nullptr), kNone);
  platform().faults.throwOther(Point::Execute);
  EXPECT_THROW(addObject(), OtherFailure);
}

TEST_F(ObjectStore, everyEntityOfTheAdministratorOwnsWhatIsAdded) {
  assign(7, {entity(1, 0, "a"), entity(4294967290u, 6, "*@b.test"), entity(3, 2, "c")});
  answer("ui_AddNamedObj.sql", {"objectId"}, {{"41"}});
  acceptOwners();
  unsigned int id = 0;
  EXPECT_TRUE(ZaroNamedObj::add(m_db, 7, "n", "c", kKind, id));
  EXPECT_EQ(id, 41u);
  EXPECT_THAT(platform().database.statements(),
              ElementsAre("ui_GetAdminEntityById.sql [7]", "ui_AddNamedObj.sql [9] [n] [c]",
                          "ui_AddEntityNamedObj.sql [1] [41] [9]", "ui_AddEntityNamedObj.sql [4294967290] [41] [9]",
                          "ui_AddEntityNamedObj.sql [3] [41] [9]"));
  EXPECT_EQ(platform().statements.last().bufferSize, 256);
}

TEST_F(ObjectStore, administratorWithoutEntitiesAddsNothing) {
  assign(7, {});
  unsigned int id = 5;
  EXPECT_FALSE(ZaroNamedObj::add(m_db, 7, "n", "c", kKind, id));
  EXPECT_EQ(id, 5u);
  EXPECT_THAT(platform().database.statements(), ElementsAre("ui_GetAdminEntityById.sql [7]"));
  EXPECT_EQ(platform().log.lines()[1],
            error("ZaroNamedObj::add: EntityUtils::getEntity failed (ZaroErrC:1002) for admin 7"));
}

TEST_F(ObjectStore, objectStaysWhenAnOwnershipFails) {
  assign(7, {entity(1, 0, "a"), entity(2, 0, "b"), entity(3, 0, "c")});
  answer("ui_AddNamedObj.sql", {"objectId"}, {{"41"}});
  acceptOwners();
  platform().database.reply("ui_AddEntityNamedObj.sql [2] [41] [9]", Reply::failure("locked"));
  unsigned int id = 0;
  EXPECT_FALSE(ZaroNamedObj::add(m_db, 7, "n", "c", kKind, id));
  EXPECT_EQ(id, 41u);
  EXPECT_EQ(platform().database.statements().back(), "ui_AddEntityNamedObj.sql [2] [41] [9]");
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::addEntityNamedObjIds: Exception \"locked\" thrown for statement "
                           "ui_AddEntityNamedObj.sql [2] [41] [9]")});
}

TEST_F(ObjectStore, failedObjectHasNoOwners) {
  assign(7, {entity(1, 0, "a")});
  answer("ui_AddNamedObj.sql", {"objectId"}, {});
  unsigned int id = 0;
  EXPECT_FALSE(ZaroNamedObj::add(m_db, 7, "n", "c", kKind, id));
  EXPECT_EQ(id, kNone);
  EXPECT_EQ(platform().database.statements().size(), 2u);
}

TEST_F(ObjectStore, noOwnersAreWrittenWithoutAStatement) {
  std::vector<GroupEntity> nobody;
  EXPECT_TRUE(ZaroNamedObj::addEntityNamedObjIds(m_db, 1, kKind, nobody));
  EXPECT_THAT(platform().database.statements(), IsEmpty());
}

// --- Modifying ---

TEST_F(ObjectStore, modifyingAsksNobody) {
  platform().database.replyToFile("ui_ModifyNamedObj.sql", Reply());
  EXPECT_TRUE(ZaroNamedObj::modify(m_db, 41, 4294967295u, "o'b", "c'", kKind));
  EXPECT_EQ(ZaroNamedObj::modifyObj(m_db, "n", "c", kKind, 4294967294u), 0);
  EXPECT_THAT(platform().database.statements(), ElementsAre("ui_ModifyNamedObj.sql [9] [o''b] [c''] [41]",
                                                            "ui_ModifyNamedObj.sql [9] [n] [c] [4294967294]"));
}

TEST_F(ObjectStore, failedModificationIsLogged) {
  platform().faults.throwText(Point::Load, "unreadable", 0);
  EXPECT_FALSE(ZaroNamedObj::modify(m_db, 41, 7, "n", "c", kKind));
  EXPECT_EQ(ZaroNamedObj::modifyObj(m_db, "n", "c", kKind, 41), -1);
  const auto line = error("ZaroNamedObj::modifyObj: Exception \"unreadable\" thrown");
  EXPECT_EQ(platform().log.lines(), (LogLines{line, line}));
  platform().faults.clear();
  platform().faults.throwOther(Point::Load);
  EXPECT_THROW(ZaroNamedObj::modifyObj(m_db, "n", "c", kKind, 41), OtherFailure);
}

// --- Editability of one object ---

TEST_F(ObjectStore, rootEditsEverything) {
  setRoot(7, true);
  EXPECT_TRUE(ZaroNamedObj::isEditable(m_db, 7, 41));
  EXPECT_THAT(platform().database.statements(), ElementsAre("ui_IsAdminRoot_Id.sql [7]"));
}

TEST_F(ObjectStore, onlyTheAdministratorsOwnEntitiesMayOwnWhatIsEditable) {
  setRoot(7, false);
  assign(7, {entity(1, 0, "a"), entity(2, 6, "*@*")});
  const std::vector<std::pair<std::vector<Row>, bool>> cases = {
      {{}, true}, {{{"1"}}, true}, {{{"2"}, {"1"}}, true}, {{{"1"}, {"3"}}, false}, {{{"3"}}, false}};
  for (const auto& [owners, editable] : cases) {
    setOwners(owners);
    EXPECT_EQ(ZaroNamedObj::isEditable(m_db, 7, 41), editable);
    platform().reset();
    setRoot(7, false);
    assign(7, {entity(1, 0, "a"), entity(2, 6, "*@*")});
  }
}

TEST_F(ObjectStore, editabilityThatCannotBeReadIsNone) {
  setRoot(7, false);
  assign(7, {});
  EXPECT_FALSE(ZaroNamedObj::isEditable(m_db, 7, 41));
  EXPECT_EQ(platform().log.lines()[1],
            error("ZaroNamedObj::isEditable: EntityUtils::getEntity failed (ZaroErrC:1002) for admin 7"));
  platform().reset();
  setRoot(7, false);
  assign(7, {entity(1, 0, "a")});
  setOwners({{"1"}, {kNull}});
  EXPECT_FALSE(ZaroNamedObj::isEditable(m_db, 7, 41));
  EXPECT_EQ(platform().log.lines(),
            (LogLines{error("ZaroNamedObj::getEntityIds: could not retrieve EntityID from NULL string for statement "
                            "ui_GetEntityId4NamedObj.sql [41]"),
                      error("ZaroNamedObj::isEditable: getEntityIds failed")}));
}

// --- Removing ---

class Removing : public ObjectStore {
 protected:
  int remove() { return ZaroNamedObj::remove(m_db, 41, 7); }
  void allow() {
    setInUse(false);
    setRoot(7, true);
  }
};

TEST_F(Removing, objectInUseIsRefusedBeforeAnythingElse) {
  setInUse(true);
  EXPECT_EQ(remove(), 6025);
  EXPECT_THAT(platform().database.statements(), ElementsAre("ui_GetNamedObjRule.sql [41] [41]"));
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(Removing, secondFetchTellsAFailureFromARule) {
  platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {}).endingRowsWith(-1));
  EXPECT_EQ(remove(), 1003);
  platform().reset();
  platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {{"1"}}).endingRowsWith(-1));
  EXPECT_EQ(remove(), 1003) << "a row, and then a failure";
  platform().reset();
  platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {{"1"}, {"2"}}).endingRowsWith(-1));
  EXPECT_EQ(remove(), 6025);
  platform().reset();
  platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {}).endingRowsWith(2));
  EXPECT_EQ(remove(), 6025);
}

TEST_F(Removing, whoMayNotEditMayNotRemove) {
  setInUse(false);
  setRoot(7, false);
  assign(7, {entity(1, 0, "a")});
  setOwners({{"2"}});
  EXPECT_EQ(remove(), 6024);
}

TEST_F(Removing, answerOfTheDatabaseDecidesTheCode) {
  const std::vector<std::pair<const char*, int>> cases = {{"1", 0}, {"-1", 6022}, {"-2", 6023}, {"0", 0}, {"-3", 0}};
  for (const auto& [answered, code] : cases) {
    platform().reset();
    allow();
    answer("ui_RemoveNamedObj.sql", {"retId"}, {{answered}});
    EXPECT_EQ(remove(), code);
    EXPECT_EQ(platform().database.statements().back(), "ui_RemoveNamedObj.sql [41] [7]");
    EXPECT_EQ(platform().statements.last().bufferSize, 512);
  }
}

TEST_F(Removing, noAnswerIs1003) {
  allow();
  answer("ui_RemoveNamedObj.sql", {"retId"}, {});
  EXPECT_EQ(remove(), 1003);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("uinamedObjectI::remove: No data returned for query ui_RemoveNamedObj.sql [41] [7]")});
}

TEST_F(Removing, thrownTextIs1003WithTheStatementAtWork) {
  platform().faults.throwText(Point::Execute, "lost");
  EXPECT_EQ(remove(), 1003);
  allow();
  platform().database.replyToFile("ui_RemoveNamedObj.sql", Reply::failure("locked"));
  EXPECT_EQ(remove(), 1003);
  EXPECT_EQ(
      platform().log.lines(),
      (LogLines{
          error("uiNamedObjectI::remove: Exception \"lost\" thrown for statement ui_GetNamedObjRule.sql [41] [41]"),
          error("uiNamedObjectI::remove: Exception \"locked\" thrown for statement ui_RemoveNamedObj.sql [41] [7]")}));
  platform().faults.throwOther(Point::Execute);
  EXPECT_THROW(remove(), OtherFailure);
}

// --- Deletability ---

TEST_F(ObjectStore, whatNoRuleRefersToIsDeletable) {
  for (const auto& [end, deletable] : std::vector<std::pair<int, bool>>{{1, true}, {-1, false}, {2, false}}) {
    platform().reset();
    platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {}).endingRowsWith(end));
    EXPECT_EQ(ZaroNamedObj::_isDeletability(m_db, 41), deletable);
    EXPECT_EQ(platform().statements.last().bufferSize, 256);
  }
  platform().reset();
  setInUse(true);
  EXPECT_FALSE(ZaroNamedObj::_isDeletability(m_db, 41));
  EXPECT_THAT(platform().database.statements(), ElementsAre("ui_GetNamedObjRule.sql [41] [41]"));
}

TEST_F(ObjectStore, deletabilityThatCannotBeReadIsNone) {
  platform().faults.throwText(Point::FetchRow, "lost");
  setInUse(false);
  EXPECT_FALSE(ZaroNamedObj::_isDeletability(m_db, 41));
  EXPECT_EQ(platform().log.lines(), LogLines{error("ZaroNamedObj::_isDeletability: Exception \"lost\" thrown for "
                                                   "statement ui_GetNamedObjRule.sql [41] [41]")});
  platform().faults.throwOther(Point::FetchRow);
  EXPECT_THROW(ZaroNamedObj::_isDeletability(m_db, 41), OtherFailure);
}

// --- Owners ---

TEST_F(ObjectStore, ownersAreAppendedInTheOrderOfTheRows) {
  setOwners({{"3"}, {"1"}, {"4294967290"}, {"3"}});
  std::vector<unsigned int> owners = {9};
  EXPECT_TRUE(ZaroNamedObj::getEntityIds(m_db, owners, 41));
  EXPECT_THAT(owners, ElementsAre(9u, 3u, 1u, 4294967290u, 3u));
  EXPECT_GE(owners.capacity(), 10u);
  EXPECT_EQ(platform().statements.last().text, "ui_GetEntityId4NamedObj.sql [41]");
  EXPECT_EQ(platform().statements.last().bufferSize, 256);
}

TEST_F(ObjectStore, ownerThatIsNoNumberStopsTheReading) {
  setOwners({{"3"}, {"x"}, {"4"}});
  std::vector<unsigned int> owners;
  EXPECT_FALSE(ZaroNamedObj::getEntityIds(m_db, owners, 41));
  EXPECT_THAT(owners, ElementsAre(3u));
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::getEntityIds: could not retrieve EntityID from x for statement "
                           "ui_GetEntityId4NamedObj.sql [41]")});
}

TEST_F(ObjectStore, failedOwnersAreLoggedAsContent) {
  platform().faults.throwText(Point::Execute, "lost");
  std::vector<unsigned int> owners;
  EXPECT_FALSE(ZaroNamedObj::getEntityIds(m_db, owners, 41));
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error("ZaroNamedObj::getBlob: Exception \"lost\" thrown for statement ui_GetEntityId4NamedObj.sql [41]")});
  platform().faults.throwOther(Point::Execute);
  EXPECT_THROW(ZaroNamedObj::getEntityIds(m_db, owners, 41), OtherFailure);
}

// --- Content ---

class Content : public ObjectStore {
 protected:
  bool read(const std::vector<Row>& rows) {
    answer("ui_GetNamedObjBlob.sql", {"Content", "Name"}, rows);
    return ZaroNamedObj::getBlob(m_db, 41, m_content, m_name);
  }

  std::string m_content = "old content";
  std::string m_name = "old name";
};

TEST_F(Content, isReadWithTheName) {
  EXPECT_TRUE(read({{"new content", "new name"}, {"other", "other"}}));
  EXPECT_EQ(m_content, "new content");
  EXPECT_EQ(m_name, "new name");
  EXPECT_EQ(platform().statements.last().text, "ui_GetNamedObjBlob.sql [41]");
  EXPECT_EQ(platform().statements.last().bufferSize, 256);
  EXPECT_TRUE(ZaroNamedObj::getContentBlob(m_db, 41, m_name, m_content));
  EXPECT_EQ(m_name, "new content");
}

TEST_F(Content, nullNameIsLeftAlone) {
  EXPECT_TRUE(read({{"", kNull}}));
  EXPECT_EQ(m_content, "");
  EXPECT_EQ(m_name, "old name");
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(Content, missingContentIsAFailure) {
  EXPECT_FALSE(read({}));
  EXPECT_FALSE(ZaroNamedObj::getContentBlob(m_db, 41, m_content, m_name));
  const auto line = error("ZaroNamedObj::getBlob: could not retrieve blob for statement ui_GetNamedObjBlob.sql [41]");
  EXPECT_EQ(platform().log.lines(), (LogLines{line, line}));
  platform().reset();
  EXPECT_FALSE(read({{kNull, "new name"}}));
  EXPECT_EQ(platform().log.lines(), LogLines{error("ZaroNamedObj::getBlob: could not retrieve Content from NULL string "
                                                   "for statement ui_GetNamedObjBlob.sql [41]")});
  EXPECT_EQ(m_content + m_name, "old contentold name");
}

TEST_F(Content, thrownTextIsAFailure) {
  platform().faults.throwText(Point::ColumnText, "lost", 2);
  EXPECT_FALSE(read({{"new content", "new name"}}));
  EXPECT_EQ(m_content, "new content");
  EXPECT_EQ(platform().log.lines(), LogLines{error("ZaroNamedObj::getBlob: Exception \"lost\" thrown for statement "
                                                   "ui_GetNamedObjBlob.sql [41]")});
  platform().faults.throwOther(Point::ColumnText);
  EXPECT_THROW(read({{"a", "b"}}), OtherFailure);
}

}  // namespace
