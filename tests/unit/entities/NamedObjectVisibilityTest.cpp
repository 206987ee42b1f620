// Which objects an administrator sees, edits and deletes.
#include "EntityTest.h"
#include "ZaroNamedObj.h"
#include "scripted/Prelude.h"

namespace {

using zarotest::entity;
using zarotest::EntitySet;
using Summaries = std::vector<SummaryNamedObject>;

constexpr auto kKind = static_cast<ZaroNamedObj::NaObjType>(9);

SummaryNamedObject summary(unsigned int id, const std::string& name, bool editable = false, bool deletable = false) {
  SummaryNamedObject made;
  made.id = id;
  made.name = name;
  made.editable = editable;
  made.deletable = deletable;
  return made;
}

// "41 name", and e and d for what it may be.
std::vector<std::string> shown(const Summaries& summaries) {
  std::vector<std::string> texts;
  for (const SummaryNamedObject& one : summaries) {
    texts.push_back(std::to_string(one.id) + " " + one.name + (one.editable ? " e" : "") + (one.deletable ? "d" : ""));
  }
  return texts;
}

// --- The list as a whole ---

class Visibility : public zarotest::EntityTest {
 protected:
  // (owner, object, name) rows.
  static void setObjects(const std::vector<Row>& rows) {
    platform().database.reply("ui_GetEntityNamedObj.sql [9] [9]", Reply({"EntityID", "NamedObjID", "Name"}, rows));
  }
  static void setWildcards(const std::vector<GroupEntity>& entities) { setOfType(6, entities); }
  static void setOfType(int type, const std::vector<GroupEntity>& entities) {
    std::vector<Row> rows;
    for (const GroupEntity& entity : entities) {
      rows.push_back({std::to_string(entity.id), entity.name});
    }
    platform().database.reply("ui_GetEntitiesByType.sql [" + std::to_string(type) + "]",
                              Reply({"EntityID", "EntityName"}, rows));
  }

  void SetUp() override {
    setRoot(7, false);
    platform().database.replyToFile("ui_GetNamedObjRule.sql", Reply({"ID"}, {}));
  }

  bool list() { return ZaroNamedObj::getIds(m_db, 7, kKind, m_out); }

  Summaries m_out;
};

TEST_F(Visibility, rootSeesEverythingInTheOrderOfTheRows) {
  setRoot(8, true);
  setObjects({{"1", "42", "b"}, {"2", "41", "a"}, {"2", "42", "other"}, {"1", "43", "OPP:system"}, {"1", "44", "opp:x"}});
  EXPECT_TRUE(ZaroNamedObj::getIds(m_db, 8, kKind, m_out));
  EXPECT_THAT(shown(m_out), ElementsAre("42 b e", "41 a e", "44 opp:x e"));
  EXPECT_THAT(platform().database.statements(),
              ElementsAre("ui_IsAdminRoot_Id.sql [8]", "ui_GetEntityNamedObj.sql [9] [9]"));
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
}

TEST_F(Visibility, directOwnersDecide) {
  assign(7, {entity(1, 0, "a"), entity(2, 0, "b")});
  setObjects({{"1", "41", "own"},
              {"1", "42", "shared"},
              {"3", "42", "shared"},
              {"3", "43", "foreign"},
              {"1", "44", "both"},
              {"2", "44", "both"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("44 both ed", "41 own ed", "42 shared"));
}

TEST_F(Visibility, stepsComeInTheirOrder) {
  assign(7, {entity(1, 2, "cn=a"), entity(2, 6, "*@b.test")});
  setObjects({{"1", "41", "own"}});
  setWildcards({});
  setOfType(2, {});
  EXPECT_TRUE(list());
  EXPECT_THAT(
      platform().database.statements(),
      ElementsAre("ui_IsAdminRoot_Id.sql [7]", "ui_GetEntityNamedObj.sql [9] [9]", "ui_GetAdminEntityById.sql [7]",
                  "ui_GetEntitiesByType.sql [6]", "ui_GetEntitiesByType.sql [2]", "ui_GetNamedObjRule.sql [41] [41]"));
}

TEST_F(Visibility, childrensObjectsAreEditable) {
  assign(7, {entity(1, 6, "*@*.example.test")});
  setWildcards({entity(1, 6, "*@*.example.test"), entity(2, 6, "*@a.example.test"), entity(3, 6, "*@other.test")});
  setObjects({{"2", "41", "child's"},
              {"1", "42", "shared with child"},
              {"2", "42", "shared with child"},
              {"2", "43", "child's and other's"},
              {"3", "43", "child's and other's"},
              {"3", "44", "other's"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("41 child's ed", "43 child's and other's", "42 shared with child ed"));
}

TEST_F(Visibility, parentsObjectsAreReadOnly) {
  assign(7, {entity(1, 6, "*@a.example.test")});
  setWildcards({entity(1, 6, "*@a.example.test"), entity(2, 6, "*@*.example.test"), entity(3, 6, "*@*")});
  setObjects(
      {{"2", "41", "parent's"}, {"1", "42", "own and parent's"}, {"3", "42", "own and parent's"}, {"1", "43", "own"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("43 own ed", "42 own and parent's", "41 parent's"));
}

TEST_F(Visibility, parentsOfAnyEntityComeAfterTheChildrenOfAll) {
  // The object's last owner but one is a child of the second entity; the other is a parent of the first.
  assign(7, {entity(1, 6, "*@a.example.test"), entity(2, 6, "*@b.test")});
  setWildcards({entity(3, 6, "*@*.example.test"), entity(4, 6, "user@b.test")});
  setObjects({{"3", "41", "object"}, {"4", "41", "object"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("41 object"));
}

TEST_F(Visibility, relativesOfEachEntityAreLookedForAmongAllEntities) {
  assign(7, {entity(1, 6, "*@*"), entity(2, 6, "*@*.test")});
  setWildcards({entity(1, 6, "*@*"), entity(2, 6, "*@*.test"), entity(3, 6, "x@a.test")});
  setObjects({{"9", "41", "other's"}});
  EXPECT_TRUE(list());
  const std::vector<std::string> traces = platform().log.texts(LogLevel::Trace);
  EXPECT_THAT(traces, testing::Contains("Checking if entity x@a.test is a child of *@* returned 1 matches"));
  EXPECT_THAT(traces, testing::Contains("Checking if entity x@a.test is a child of *@*.test returned 1 matches"));
}

TEST_F(Visibility, ldapGroupsAddNothing) {
  assign(7, {entity(1, 2, "cn=a")});
  setOfType(2, {entity(2, 2, "cn=b")});
  setObjects({{"2", "41", "b's"}, {"1", "42", "a's"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("42 a's ed"));
}

TEST_F(Visibility, onlyEntitiesOfTheirTypeAreAskedForRelatives) {
  assign(7, {entity(1, 0, "*@*")});
  setObjects({{"2", "41", "x"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(m_out, IsEmpty());
}

TEST_F(Visibility, rulesKeepFromDeletingAndAreAskedForTheEditableOnly) {
  assign(7, {entity(1, 0, "a")});
  setObjects({{"1", "41", "used"}, {"1", "42", "unused"}, {"1", "43", "shared"}, {"2", "43", "shared"}});
  platform().database.reply("ui_GetNamedObjRule.sql [41] [41]", Reply({"ID"}, {{"1"}}));
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("43 shared", "42 unused ed", "41 used e"));
  EXPECT_THAT(platform().statements.loaded().size(), 5u);
}

TEST_F(Visibility, failedDeletabilityIsNoFailure) {
  assign(7, {entity(1, 0, "a")});
  setObjects({{"1", "41", "x"}});
  platform().database.reply("ui_GetNamedObjRule.sql [41] [41]", Reply::failure("lost"));
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out), ElementsAre("41 x e"));
}

TEST_F(Visibility, namesAreOrderedWithoutLetterCase) {
  assign(7, {entity(1, 0, "a")});
  setObjects({{"1", "41", "beta"},
              {"1", "42", "Alpha"},
              {"1", "43", "BETA"},
              {"1", "44", "Beta"},
              {"1", "45", "gamma"},
              {"1", "46", "alph"}});
  EXPECT_TRUE(list());
  EXPECT_THAT(shown(m_out),
              ElementsAre("46 alph ed", "42 Alpha ed", "41 beta ed", "43 BETA ed", "44 Beta ed", "45 gamma ed"));
}

TEST_F(Visibility, administratorWithoutEntitiesFails) {
  assign(7, {});
  setObjects({{"1", "41", "x"}});
  EXPECT_FALSE(list());
  EXPECT_EQ(platform().log.lines()[1],
            error("ZaroNamedObj::getIds: EntityUtils::getEntity failed (ZaroErrC:1002) for admin 7"));
}

TEST_F(Visibility, failedRelativesFailAndKeepWhatWasFound) {
  for (const int type : {6, 2}) {
    platform().reset();
    m_out.clear();
    SetUp();
    assign(7, {entity(1, type, "*@b.test")});
    setObjects({{"1", "41", "x"}});
    platform().database.replyToFile("ui_GetEntitiesByType.sql", Reply::failure("lost"));
    EXPECT_FALSE(list());
    EXPECT_THAT(shown(m_out), ElementsAre("41 x e"));
  }
}

struct BrokenRow {
  Row row;
  const char* logged;
};

TEST_F(Visibility, brokenRowsFail) {
  const BrokenRow rows[] = {
      {{kNull, "41", "x"},
       "ZaroNamedObj::_getNamedObjIds: could not retrieve EntityID from NULL string for statement ui_GetEntityNamedObj.sql [9] [9]"},
      {{"x", "41", "x"},
       "ZaroNamedObj::_getNamedObjIds: could not retrieve EntityID from x for statement ui_GetEntityNamedObj.sql [9] [9]"},
      {{"1", kNull, kNull},
       "ZaroNamedObj::_getNamedObjIds: could not retrieve NamedObjID from NULL string for statement ui_GetEntityNamedObj.sql [9] [9]"},
      {{"1", "?", "x"},
       "ZaroNamedObj::_getNamedObjIds: could not retrieve NamedObjID from ? for statement ui_GetEntityNamedObj.sql [9] [9]"},
      {{"1", "41", kNull},
       "ZaroNamedObj::_getNamedObjIds: could not retrieve tb_NamedObjID.Name for statement ui_GetEntityNamedObj.sql [9] [9]"},
  };
  for (const BrokenRow& broken : rows) {
    platform().reset();
    SetUp();
    setObjects({{"1", "40", "before"}, broken.row});
    EXPECT_FALSE(list());
    EXPECT_EQ(platform().log.lines(),
              (LogLines{error(broken.logged), error("ZaroNamedObj::getIds: _getNamedObjIds failed for admin 7")}));
  }
}

TEST_F(Visibility, thrownTextFails) {
  setObjects({{"1", "41", "x"}});
  platform().faults.throwText(Point::FetchRow, "lost", 2);
  EXPECT_FALSE(list());
  EXPECT_EQ(platform().log.lines()[0], error("ZaroNamedObj::_getNamedObjIds: Exception \"lost\" thrown for statement "
                                             "ui_GetEntityNamedObj.sql [9] [9]"));
  platform().faults.clear();
  platform().faults.throwOther(Point::Load, 2);
  EXPECT_THROW(list(), OtherFailure);
}

// --- The steps ---

class VisibilityStep : public PlatformTest {
 protected:
  static EntitySet set(const std::vector<GroupEntity>& entities) { return {entities.begin(), entities.end()}; }

  void candidate(unsigned int id, const std::string& name, const std::set<unsigned int>& owners) {
    m_candidates[id].name = name;
    m_candidates[id].entities = owners;
  }
  // "41: 1 2", the owners that are left.
  std::vector<std::string> left() const {
    std::vector<std::string> texts;
    for (const auto& [id, candidate] : m_candidates) {
      texts.push_back(std::to_string(id) + ":");
      for (const unsigned int owner : candidate.entities) {
        texts.back() += " " + std::to_string(owner);
      }
    }
    return texts;
  }

  ZaroNamedObj::_candidates m_candidates;
  Summaries m_out;
};

TEST_F(VisibilityStep, directStepTakesOwnersAndObjectsAway) {
  std::vector<GroupEntity> entities = {entity(1, 0, "a"), entity(2, 0, "b"), entity(1, 0, "a")};
  candidate(41, "x", {1, 2});
  candidate(42, "w", {2, 3});
  candidate(43, "v", {3});
  ZaroNamedObj::_addDirRefNamedObjIds(entities, m_candidates, m_out);
  EXPECT_THAT(left(), ElementsAre("42: 3", "43: 3"));
  EXPECT_THAT(shown(m_out), ElementsAre("42 w", "41 x e"));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(VisibilityStep, directStepOfNobodyDoesNothing) {
  std::vector<GroupEntity> nobody;
  candidate(41, "x", {1});
  ZaroNamedObj::_addDirRefNamedObjIds(nobody, m_candidates, m_out);
  EXPECT_THAT(left(), ElementsAre("41: 1"));
  EXPECT_THAT(m_out, IsEmpty());
}

TEST_F(VisibilityStep, directStepInsertsBeforeTheFirstGreaterNameEvenInADisorderedList) {
  std::vector<GroupEntity> entities = {entity(1, 0, "a")};
  candidate(41, "m", {1});
  candidate(42, "m", {1});
  m_out = {summary(1, "z"), summary(2, "a"), summary(3, "M")};
  ZaroNamedObj::_addDirRefNamedObjIds(entities, m_candidates, m_out);
  EXPECT_THAT(shown(m_out), ElementsAre("41 m e", "42 m e", "1 z", "2 a", "3 M"));
}

TEST_F(VisibilityStep, directStepPutsEqualNamesBehindWhatIsThereAndLooksForNoDuplicates) {
  std::vector<GroupEntity> entities = {entity(1, 0, "a")};
  candidate(41, "m", {1});
  candidate(42, "B", {1});
  m_out = {summary(1, "b"), summary(41, "M"), summary(3, "n")};
  ZaroNamedObj::_addDirRefNamedObjIds(entities, m_candidates, m_out);
  EXPECT_THAT(shown(m_out), ElementsAre("1 b", "42 B e", "41 M", "41 m e", "3 n"));
}

TEST_F(VisibilityStep, childrenStepIsTracedFromTheStartAfterEachObjectThatGoes) {
  candidate(41, "x", {1, 9});
  candidate(42, "y", {1});
  EntitySet children = set({entity(1, 6, "c1"), entity(2, 6, "c2")});
  ZaroNamedObj::_addChildrenNamedObjs(children, m_candidates, m_out);
  const LogLines look = {trace("_addChildrenNamedObjs: Checking child c1 (id:1)"),
                         trace("_addChildrenNamedObjs: Checking child c2 (id:2)")};
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace("_addChildrenNamedObjs: Checking x (id:41): set size:2"), look[0],
                      trace("Found match for c1 (id:1)"), look[1],
                      trace("_addChildrenNamedObjs: Checking y (id:42): set size:1"), look[0],
                      trace("Found match for c1 (id:1)"), look[1],
                      trace("_addChildrenNamedObjs: Checking x (id:41): set size:1"), look[0], look[1]}));
  EXPECT_THAT(left(), ElementsAre("41: 9"));
  EXPECT_THAT(shown(m_out), ElementsAre("41 x", "42 y e"));
}

TEST_F(VisibilityStep, childrenStepMakesAListedObjectEditable) {
  candidate(41, "x", {2});
  m_out = {summary(41, "X", false, true)};
  EntitySet children = set({entity(2, 6, "c")});
  ZaroNamedObj::_addChildrenNamedObjs(children, m_candidates, m_out);
  EXPECT_THAT(shown(m_out), ElementsAre("41 X ed")) << "name and deletability stay";
}

TEST_F(VisibilityStep, parentStepChangesNoOwners) {
  candidate(41, "x", {1, 2});
  candidate(42, "y", {});
  candidate(43, "z", {3});
  m_out = {summary(41, "x", true)};
  EntitySet parents = set({entity(1, 6, "p1"), entity(2, 6, "p2")});
  ZaroNamedObj::_addParentNamedObjs(parents, m_candidates, m_out);
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace("_addParentNamedObjs: Checking x (id:41): set size:2"),
                      trace("_addParentNamedObjs: Checking parent p1 (id:1)"), trace("Found match for p1 (id:1)"),
                      trace("_addParentNamedObjs: Checking parent p2 (id:2)"), trace("Found match for p2 (id:2)"),
                      trace("_addParentNamedObjs: Checking y (id:42): set size:0"),
                      trace("_addParentNamedObjs: Checking z (id:43): set size:1"),
                      trace("_addParentNamedObjs: Checking parent p1 (id:1)"),
                      trace("_addParentNamedObjs: Checking parent p2 (id:2)")}));
  EXPECT_THAT(left(), ElementsAre("41: 1 2", "42:", "43: 3"));
  EXPECT_THAT(shown(m_out), ElementsAre("41 x"));
}

TEST_F(VisibilityStep, nobodysStepsAreSilent) {
  EntitySet nobody;
  candidate(41, "x", {1});
  ZaroNamedObj::_addChildrenNamedObjs(nobody, m_candidates, m_out);
  ZaroNamedObj::_addParentNamedObjs(nobody, m_candidates, m_out);
  m_candidates.clear();
  EntitySet somebody = set({entity(1, 6, "p")});
  ZaroNamedObj::_addChildrenNamedObjs(somebody, m_candidates, m_out);
  ZaroNamedObj::_addParentNamedObjs(somebody, m_candidates, m_out);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
  EXPECT_THAT(m_out, IsEmpty());
}

TEST_F(VisibilityStep, updateInsertsByNameOrSetsEditability) {
  m_out = {summary(1, "b", false, true), summary(2, "B"), summary(3, "d")};
  ZaroNamedObj::_updateEditableIds(summary(2, "b", true), m_out);
  EXPECT_THAT(shown(m_out), ElementsAre("1 bd", "2 B e", "3 d"));
  ZaroNamedObj::_updateEditableIds(summary(4, "B", true), m_out);
  ZaroNamedObj::_updateEditableIds(summary(5, "a"), m_out);
  ZaroNamedObj::_updateEditableIds(summary(6, "e"), m_out);
  ZaroNamedObj::_updateEditableIds(summary(3, "c"), m_out);
  EXPECT_THAT(shown(m_out), ElementsAre("5 a", "1 bd", "2 B e", "4 B e", "3 c", "3 d", "6 e"));
}

TEST_F(VisibilityStep, relativesAreLookedForOnlyWhereThereAreSuchEntities) {
  ZARO::RdbmsInterface db;
  std::vector<GroupEntity> nobody;
  EXPECT_TRUE(ZaroNamedObj::_addIndirRefNamedObjIds(db, nobody, m_candidates, m_out));
  std::vector<GroupEntity> others = {entity(1, 0, "a"), entity(2, 7, "b")};
  EXPECT_TRUE(ZaroNamedObj::_addIndirRefNamedObjIds(db, others, m_candidates, m_out));
  EXPECT_THAT(platform().database.statements(), IsEmpty());
}

}  // namespace
