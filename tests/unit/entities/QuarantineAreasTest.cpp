// Quarantine areas: which are shown, which may be edited, and the reserved one.
#include "EntityTest.h"
#include "ZaroNamedObj.h"
#include "scripted/Prelude.h"

namespace {

using zarotest::entity;

constexpr const char* kByType = "ui_GetNamedObjByType.sql [3]";

std::string shown(const QuarantineData& area) {
  return std::to_string(area.id) + " " + area.name + " " + area.content + (area.editable ? " e" : "");
}

class Quarantine : public zarotest::EntityTest {
 protected:
  static void setAreas(const std::vector<Row>& rows) {
    platform().database.reply(kByType, Reply({"Name", "ID", "Content"}, rows));
  }
  static void setContent(unsigned int id, const std::string& content) {
    platform().database.reply("ui_GetNamedObjBlob.sql [" + std::to_string(id) + "]",
                              Reply({"Content", "Name"}, {{content, "scratch"}}));
  }
  static void setListed(const std::vector<Row>& rows) {
    platform().database.reply("ui_GetEntityNamedObj.sql [3] [3]", Reply({"EntityID", "NamedObjID", "Name"}, rows));
  }

  int readReserved() { return ZaroNamedObj::getOPPQuarantineArea(m_db, m_area); }
  bool readAll() { return ZaroNamedObj::getEditableQuanantineData(m_db, 7, m_out); }
  std::vector<std::string> all() const {
    std::vector<std::string> texts;
    for (const QuarantineData& area : m_out) {
      texts.push_back(shown(area));
    }
    return texts;
  }

  QuarantineData m_area;
  std::vector<QuarantineData> m_out;
};

// --- The system's area ---

TEST_F(Quarantine, firstReservedAreaWithContentIsTheSystems) {
  m_area.editable = true;
  setAreas({{"a", "1", "x"}, {"opp:b", "2", "x"}, {"OPP:c", "3", kNull}, {"OPP:d", "4", "y"}, {"OPP:e", "5", "z"}});
  EXPECT_EQ(readReserved(), 0);
  EXPECT_EQ(shown(m_area), "4 OPP:d y e");
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("ZaroNamedObj::getOPPQuarantineArea: could not retrieve Content for statement "
                           "ui_GetNamedObjByType.sql [3]")});
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
}

TEST_F(Quarantine, systemsAreaIsReadOverAConnectionOfItsOwnThatIsClosed) {
  setAreas({{"OPP:d", "4", "y"}});
  platform().calls.clear();
  EXPECT_EQ(readReserved(), 0);
  EXPECT_EQ(platform().calls.all().front(), "KxSqlLoader(\"\")");
  EXPECT_EQ(platform().database.executions().back().connection, 2);
  EXPECT_EQ(platform().calls.all().back(), "~KxDbConnect#2()");
}

TEST_F(Quarantine, noReservedAreaIs1002) {
  setAreas({{"a", "1", "x"}});
  EXPECT_EQ(readReserved(), 1002);
  EXPECT_EQ(shown(m_area), "0  ");
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(Quarantine, reservedAreaWithoutContentLeavesNameAndIdentifier) {
  setAreas({{"OPP:c", "3", kNull}});
  EXPECT_EQ(readReserved(), 1002);
  EXPECT_EQ(shown(m_area), "3 OPP:c ");
}

TEST_F(Quarantine, nullNameIsPassedOver) {
  setAreas({{kNull, "1", "x"}, {"OPP:d", "4", "y"}});
  EXPECT_EQ(readReserved(), 0);
  EXPECT_EQ(platform().log.lines(), LogLines{error("ZaroNamedObj::getOPPQuarantineArea: could not retrieve Name for "
                                                   "statement ui_GetNamedObjByType.sql [3]")});
}

TEST_F(Quarantine, identifierThatIsNoNumberIs1002) {
  for (const auto& [id, text] : std::vector<std::pair<scripted::Value, std::string>>{{kNull, "NULL string"}, {"x", "x"}}) {
    platform().reset();
    setAreas({{"OPP:c", id, "x"}, {"OPP:d", "4", "y"}});
    EXPECT_EQ(readReserved(), 1002);
    EXPECT_EQ(m_area.name, "OPP:c");
    EXPECT_EQ(platform().log.lines(), LogLines{error("ZaroNamedObj::getOPPQuarantineArea: could not retrieve ID from " +
                                                     text + " for statement ui_GetNamedObjByType.sql [3]")});
  }
}

TEST_F(Quarantine, endlessFailuresComeToAnEnd) {
  platform().database.reply(kByType, Reply({"Name", "ID", "Content"}, {}).endingRowsWith(-1));
  EXPECT_EQ(readReserved(), 1003);
  // Each failed fetch but the thousandth, which is the last.
  EXPECT_EQ(platform().log.lines().size(), 999u);
}

TEST_F(Quarantine, thrownTextIs1003) {
  platform().faults.throwText(Point::Execute, "lost");
  EXPECT_EQ(readReserved(), 1003);
  platform().faults.throwText(Point::Load, "unreadable");
  EXPECT_EQ(readReserved(), 1003);
  EXPECT_EQ(platform().log.lines(),
            (LogLines{error("ZaroNamedObj::getOPPQuarantineArea: Exception \"lost\" thrown for statement "
                            "ui_GetNamedObjByType.sql [3]"),
                      error("ZaroNamedObj::getOPPQuarantineArea: Exception \"unreadable\" thrown for statement ")}));
  platform().faults.throwOther(Point::Execute);
  EXPECT_THROW(readReserved(), OtherFailure);
}

// --- An administrator's areas ---

class QuarantineList : public Quarantine {
 protected:
  void SetUp() override {
    setRoot(7, false);
    assign(7, {entity(1, 0, "a")});
    platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {}));
    setListed({{"1", "41", "beta"}, {"1", "42", "Alpha"}, {"2", "42", "Alpha"}, {"1", "43", "OPP:system"}});
    setContent(42, "a");
    setContent(43, "s");
  }
};

TEST_F(QuarantineList, systemsAreaComesLastAndReadOnly) {
  setAreas({{"OPP:system", "43", "s"}});
  setContent(41, "b");
  EXPECT_TRUE(readAll());
  EXPECT_THAT(all(), ElementsAre("42 Alpha a", "41 beta b e", "43 OPP:system s"));
}

TEST_F(QuarantineList, systemsAreaIsReadOnlyForTheRootToo) {
  setRoot(8, true);
  setAreas({{"OPP:system", "43", "s"}});
  setContent(41, "b");
  EXPECT_TRUE(ZaroNamedObj::getEditableQuanantineData(m_db, 8, m_out));
  EXPECT_THAT(all(), ElementsAre("41 beta b e", "42 Alpha a e", "43 OPP:system s"));
}

TEST_F(QuarantineList, systemsAreaMayBeMissing) {
  setAreas({});
  setContent(41, "b");
  EXPECT_TRUE(readAll());
  EXPECT_THAT(all(), ElementsAre("42 Alpha a", "41 beta b e"));
}

TEST_F(QuarantineList, systemsAreaMayBeOutOfReach) {
  platform().database.reply(kByType, Reply::failure("lost"));
  setContent(41, "b");
  EXPECT_TRUE(readAll());
  EXPECT_THAT(all(), ElementsAre("42 Alpha a", "41 beta b e"));
}

TEST_F(QuarantineList, mayBeEmpty) {
  platform().reset();
  setRoot(8, true);
  setListed({});
  setAreas({});
  EXPECT_TRUE(ZaroNamedObj::getEditableQuanantineData(m_db, 8, m_out));
  EXPECT_THAT(m_out, IsEmpty());
}

TEST_F(QuarantineList, failedListFails) {
  platform().faults.throwText(Point::Execute, "lost", 2);
  EXPECT_FALSE(readAll());
  EXPECT_THAT(m_out, IsEmpty());
}

TEST_F(QuarantineList, failedContentFailsAndKeepsTheOnesBefore) {
  setAreas({{"OPP:system", "43", "s"}});
  platform().database.reply("ui_GetNamedObjBlob.sql [41]", Reply({"Content", "Name"}, {}));
  EXPECT_FALSE(readAll());
  EXPECT_THAT(all(), ElementsAre("42 Alpha a", "41 beta  e", "43 OPP:system s"));
}

}  // namespace
