// The entities of an administrator, and who is the root.
#include "EntityTest.h"
#include "scripted/Prelude.h"

namespace {

using zarotest::entity;
using zarotest::EntitySet;
using zarotest::shownAll;

// --- The record ---

TEST(GroupEntity, isZeroAtFirst) {
  EXPECT_EQ(zarotest::shown(GroupEntity()), "0 0 ");
}

TEST(GroupEntity, setsGoByNameAloneByteByByte) {
  EntitySet entities;
  for (const GroupEntity& one : {entity(1, 0, "b"), entity(2, 2, "b"), entity(3, 0, "B"), entity(4, 0, "ab"),
                                 entity(5, 0, "a"), entity(6, 0, "\xC3\xA4")}) {
    entities.insert(one);
  }
  EXPECT_THAT(shownAll(entities), ElementsAre("3 0 B", "5 0 a", "4 0 ab", "1 0 b", "6 0 \xC3\xA4"));
}

// --- An administrator's entities ---

class AdminEntities : public zarotest::EntityTest {
 protected:
  int read() { return EntityUtils::getEntity(m_db, 7, m_entities); }

  std::vector<GroupEntity> m_entities;
};

TEST_F(AdminEntities, comeInTheOrderOfTheRowsBehindWhatIsThere) {
  m_entities.push_back(entity(1, 1, "there"));
  assign(7, {entity(9, 6, "*@*"), entity(4294967290u, 2, "cn=a"), entity(9, 6, "*@*"), entity(2, 99, "")});
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(shownAll(m_entities), ElementsAre("1 1 there", "9 6 *@*", "4294967290 2 cn=a", "9 6 *@*", "2 99 "));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
}

TEST_F(AdminEntities, noneIs1002) {
  for (const int end : {1, -1, 2}) {
    platform().reset();
    platform().database.replyToFile("ui_GetAdminEntityById.sql", Reply().endingRowsWith(end));
    EXPECT_EQ(read(), 1002);
    EXPECT_THAT(m_entities, IsEmpty());
    EXPECT_EQ(platform().log.lines(), LogLines{error("[Verbose] administrator '7' has no managing group assignments.")});
  }
}

TEST_F(AdminEntities, nullNameIs1002AndKeepsEarlierOnes) {
  platform().database.replyToFile(
      "ui_GetAdminEntityById.sql",
      Reply({"EntityID", "EntityType", "EntityName"}, {{"1", "0", "a"}, {"2", "0", kNull}, {"3", "0", "c"}}));
  EXPECT_EQ(read(), 1002);
  EXPECT_THAT(shownAll(m_entities), ElementsAre("1 0 a"));
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("EntityUtils::getEntity: could not retrieve IdsColEntityName from NULL string")});
}

TEST_F(AdminEntities, numbersAreReadAsNumbers) {
  assign(7, {entity(1, 6, "a")});
  read();
  EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#1.getColVal"),
              ElementsAre("KxDbConnect#1.getColValInt(\"EntityID\")", "KxDbConnect#1.getColValInt(\"EntityType\")",
                          "KxDbConnect#1.getColVal(\"EntityName\")"));
}

TEST_F(AdminEntities, thrownTextIs1003) {
  assign(7, {entity(1, 0, "a"), entity(2, 0, "b")});
  platform().faults.throwText(Point::FetchRow, "lost", 2);
  EXPECT_EQ(read(), 1003);
  EXPECT_THAT(shownAll(m_entities), ElementsAre("1 0 a"));
  platform().faults.throwText(Point::Load, "unreadable");
  EXPECT_EQ(read(), 1003);
  EXPECT_EQ(
      platform().log.lines(),
      (LogLines{error("EntityUtils::getEntity: Exception \"lost\" thrown for statement ui_GetAdminEntityById.sql [7]"),
                error("EntityUtils::getEntity: Exception \"unreadable\" thrown for statement ")}));
}

TEST_F(AdminEntities, otherExceptionsPass) {
  platform().faults.throwOther(Point::Load);
  EXPECT_THROW(read(), OtherFailure);
}

// --- All entities ---

class AllEntities : public zarotest::EntityTest {
 protected:
  int read(const std::vector<Row>& rows) {
    platform().database.reply("ui_GetAllEntities.sql", Reply({"EntityID", "EntityType", "EntityName"}, rows));
    return EntityUtils::getAllEntities(m_db, m_entities);
  }

  EntitySet m_entities;
};

TEST_F(AllEntities, areInsertedWhateverTheirType) {
  m_entities.insert(entity(99, 1, "there"));
  std::vector<Row> rows;
  for (int type = 0; type <= 7; ++type) {
    rows.push_back({std::to_string(type + 1), std::to_string(type), std::string(1, static_cast<char>('a' + type))});
  }
  EXPECT_EQ(read(rows), 0);
  EXPECT_THAT(shownAll(m_entities),
              ElementsAre("1 0 a", "2 1 b", "3 2 c", "4 3 d", "5 4 e", "6 5 f", "7 6 g", "8 7 h", "99 1 there"));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
}

TEST_F(AllEntities, firstOfANameStays) {
  EXPECT_EQ(read({{"1", "0", "sales"}, {"2", "2", "sales"}}), 0);
  EXPECT_THAT(shownAll(m_entities), ElementsAre("1 0 sales"));
}

TEST_F(AllEntities, noneIsNoFailure) {
  EXPECT_EQ(read({}), 0);
  EXPECT_THAT(m_entities, IsEmpty());
}

TEST_F(AllEntities, numbersMayBeFollowedByAnything) {
  EXPECT_EQ(read({{"12abc", " 6 or so", "a"}}), 0);
  EXPECT_THAT(shownAll(m_entities), ElementsAre("12 6 a"));
}

struct BrokenRow {
  Row row;
  int status;
  const char* logged;
};

TEST_F(AllEntities, brokenRowsStopTheReading) {
  const BrokenRow rows[] = {
      {{kNull, "0", "a"},
       1002,
       "EntityUtils::getAllEntities: could not retrieve EntityID from NULL string for statement ui_GetAllEntities.sql"},
      {{"x1", "0", "a"},
       1002,
       "EntityUtils::getAllEntities: could not retrieve EntityID from x1 for statement ui_GetAllEntities.sql"},
      {{"", kNull, kNull},
       1002,
       "EntityUtils::getAllEntities: could not retrieve EntityID from  for statement ui_GetAllEntities.sql"},
      {{"1", kNull, "a"},
       1002,
       "EntityUtils::getAllEntities: could not retrieve EntityType from NULL string for statement "
       "ui_GetAllEntities.sql"},
      {{"1", "six", "a"},
       1002,
       "EntityUtils::getAllEntities: could not retrieve EntityType from six for statement ui_GetAllEntities.sql"},
      {{"1", "8", kNull}, 1007, "EntityUtils::getAllEntities: Invalid entityTypevalue: 8"},
      {{"1", "-1", "a"}, 1007, "EntityUtils::getAllEntities: Invalid entityTypevalue: -1"},
      {{"1", "7", kNull},
       1002,
       "EntityUtils::getAllEntities: could not retrieve EntityName for statement ui_GetAllEntities.sql"},
  };
  for (const BrokenRow& broken : rows) {
    SCOPED_TRACE(broken.logged);
    platform().reset();
    m_entities.clear();
    EXPECT_EQ(read({{"5", "0", "before"}, broken.row, {"6", "0", "behind"}}), broken.status);
    EXPECT_THAT(shownAll(m_entities), ElementsAre("5 0 before"));
    EXPECT_EQ(platform().log.lines(), LogLines{error(broken.logged)});
  }
}

TEST_F(AllEntities, thrownTextIs1003) {
  platform().database.reply("ui_GetAllEntities.sql", Reply::failure("no table"));
  EXPECT_EQ(EntityUtils::getAllEntities(m_db, m_entities), 1003);
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error("EntityUtils::getAllEntities: Exception \"no table\" thrown for statement ui_GetAllEntities.sql")});
  platform().faults.throwOther(Point::Execute);
  EXPECT_THROW(EntityUtils::getAllEntities(m_db, m_entities), OtherFailure);
}

// --- Entities of one type ---

class EntitiesOfAType : public zarotest::EntityTest {
 protected:
  int read(const std::vector<Row>& rows) {
    platform().database.reply("ui_GetEntitiesByType.sql [6]", Reply({"EntityID", "EntityName"}, rows));
    return EntityUtils::_getAllEntitiesOfSameType(m_db, GroupEntity::Wildcard, m_entities);
  }

  EntitySet m_entities;
};

TEST_F(EntitiesOfAType, haveTheTypeAskedFor) {
  EXPECT_EQ(read({{"2", "*@b.test"}, {"1", "*@a.test"}, {"3", "*@b.test"}}), 0);
  EXPECT_THAT(shownAll(m_entities), ElementsAre("1 6 *@a.test", "2 6 *@b.test"));
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace("Retrieving entities of type 6"), trace("Entity *@b.test (id:2) retrieved"),
                      trace("Entity *@a.test (id:1) retrieved"), trace("Entity *@b.test (id:3) retrieved")}));
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
}

TEST_F(EntitiesOfAType, brokenRowsStopTheReading) {
  const BrokenRow rows[] = {
      {{kNull, "a"},
       1002,
       "EntityUtils::_getAllEntitiesOfSameType: retrieval of EntityID returned NULL for statement "
       "ui_GetEntitiesByType.sql [6]"},
      {{"x", kNull},
       1002,
       "EntityUtils::_getAllEntitiesOfSameType: retrieval of EntityID returned NULL for statement "
       "ui_GetEntitiesByType.sql [6]"},
      {{"1", kNull},
       1002,
       "EntityUtils::_getAllEntitiesOfSameType: retrieval of EntityName returned NULL for statement "
       "ui_GetEntitiesByType.sql [6]"},
  };
  for (const BrokenRow& broken : rows) {
    platform().reset();
    m_entities.clear();
    EXPECT_EQ(read({{"5", "before"}, broken.row}), broken.status);
    EXPECT_THAT(shownAll(m_entities), ElementsAre("5 6 before"));
    EXPECT_EQ(platform().log.texts(LogLevel::Error), std::vector<std::string>{broken.logged});
  }
}

TEST_F(EntitiesOfAType, thrownTextIs1003) {
  platform().faults.throwText(Point::Execute, "lost");
  EXPECT_EQ(read({}), 1003);
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace("Retrieving entities of type 6"),
                      error("EntityUtils::_getAllEntitiesOfSameType: Exception \"lost\" thrown for statement "
                            "ui_GetEntitiesByType.sql [6]")}));
  platform().faults.throwOther(Point::Execute);
  EXPECT_THROW(read({}), OtherFailure);
}

// --- The administration root ---

class AdminRoot : public zarotest::EntityTest {
 protected:
  bool read(const std::vector<Row>& rows) {
    platform().database.reply("ui_IsAdminRoot_Id.sql [7]", Reply({"IsAdminRoot"}, rows));
    return EntityUtils::isAdminRoot(m_db, 7);
  }
};

TEST_F(AdminRoot, isOneAndNothingElse) {
  for (const auto& [value, isRoot] : std::vector<std::pair<Value, bool>>{
           {"1", true}, {" 1x", true}, {"0", false}, {"2", false}, {"-1", false}, {"11", false}}) {
    platform().reset();
    EXPECT_EQ(read({{value}}), isRoot);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
    EXPECT_EQ(platform().statements.last().bufferSize, 512);
  }
}

TEST_F(AdminRoot, whatCannotBeReadIsNone) {
  EXPECT_FALSE(read({}));
  EXPECT_FALSE(read({{kNull}}));
  EXPECT_FALSE(read({{kNull}}));
  EXPECT_EQ(platform().log.lines()[0],
            error("EntityUtils::isAdminRoot: No data returned for query ui_IsAdminRoot_Id.sql [7]"));
  platform().reset();
  EXPECT_FALSE(read({{kNull}}));
  EXPECT_EQ(platform().log.lines(), LogLines{error("EntityUtils::isAdminRoot: could not retrieve IsAdminRoot from NULL "
                                                   "string for statement ui_IsAdminRoot_Id.sql [7]")});
  platform().reset();
  EXPECT_FALSE(read({{"yes"}}));
  EXPECT_EQ(platform().log.lines(), LogLines{error("EntityUtils::isAdminRoot: could not retrieve IsAdminRoot from yes "
                                                   "for statement ui_IsAdminRoot_Id.sql [7]")});
}

TEST_F(AdminRoot, thrownTextIsFalse) {
  platform().faults.throwText(Point::FetchRow, "lost");
  EXPECT_FALSE(read({{"1"}}));
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error("EntityUtils::isAdminRoot: Exception \"lost\" thrown for statement ui_IsAdminRoot_Id.sql [7]")});
  platform().faults.throwOther(Point::FetchRow);
  EXPECT_THROW(read({{"1"}}), OtherFailure);
}

}  // namespace
