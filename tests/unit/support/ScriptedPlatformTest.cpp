// That the scripted platform keeps what its headers say where the library's tests lean on it without showing it.
#include <gtest/gtest-spi.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>

#include "GlobalSetting.h"
#include "KxDbConnect.h"
#include "KxResbundle.h"
#include "KxSqlLoader.h"
#include "NothrowAllocationFailure.h"
#include "SettingsText.h"
#include "scripted/Prelude.h"

namespace {

class ScriptedPlatform : public PlatformTest {
 protected:
  void connect() { m_connection.connect("", "", "", ""); }

  KxDbConnect m_connection;
};

TEST_F(ScriptedPlatform, unknownStatementFailsTheTest) {
  connect();
  EXPECT_NONFATAL_FAILURE(
      {
        KxDbConnect connection;
        connection.connect("", "", "", "");
        connection.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_DEFAULT);
      },
      "no reply was scripted for the statement: SELECT 1");
}

TEST_F(ScriptedPlatform, repliesComeInTurnAndTheLastOneStays) {
  platform().database.reply("S", Reply({"C"}, {{"first"}}));
  platform().database.reply("S", Reply({"C"}, {{"last"}}));
  connect();
  for (const char* want : {"first", "last", "last"}) {
    m_connection.executeSQL("S", KxDbConnect::SQL_TYPE_DEFAULT);
    ASSERT_EQ(m_connection.fetchNextRow(), 0);
    EXPECT_STREQ(m_connection.getColVal("C"), want);
  }
}

TEST_F(ScriptedPlatform, textComesBeforeFileComesBeforeHandler) {
  platform().database.reply("ui_GetAdminId.sql [a]", Reply({"C"}, {{"text"}}));
  platform().database.replyToFile("ui_GetAdminId.sql", Reply({"C"}, {{"file"}}));
  platform().database.answerWith([](const std::string& statement) -> std::optional<Reply> {
    return Reply({"C"}, {{"handler for " + statement}});
  });
  connect();
  const std::map<std::string, std::string> wanted = {
      {"ui_GetAdminId.sql [a]", "text"}, {"ui_GetAdminId.sql [b]", "file"}, {"ui_X.sql", "handler for ui_X.sql"}};
  for (const auto& [statement, want] : wanted) {
    m_connection.executeSQL(statement.c_str(), KxDbConnect::SQL_TYPE_DEFAULT);
    ASSERT_EQ(m_connection.fetchNextRow(), 0);
    EXPECT_EQ(m_connection.getColVal("C"), want);
  }
}

TEST_F(ScriptedPlatform, fetchFailsWherePlanned) {
  platform().database.reply("S", Reply({"C"}, {{"1"}, {"2"}}).failingAtFetch(2, "cut"));
  connect();
  m_connection.executeSQL("S", KxDbConnect::SQL_TYPE_DEFAULT);
  EXPECT_EQ(m_connection.fetchNextRow(), 0);
  EXPECT_THROW(m_connection.fetchNextRow(), const char*);
  EXPECT_EQ(m_connection.getColVal("C"), nullptr);
}

TEST_F(ScriptedPlatform, faultsCountPassages) {
  platform().faults.throwText(Point::FetchRow, "second", 2);
  platform().faults.throwOther(Point::FetchRow, 3);
  EXPECT_EQ(m_connection.fetchNextRow(), -1);
  EXPECT_THROW(m_connection.fetchNextRow(), const char*);
  EXPECT_THROW(m_connection.fetchNextRow(), OtherFailure);
  EXPECT_EQ(m_connection.fetchNextRow(), -1);
  platform().faults.throwText(Point::FetchRow, "always", 0);
  EXPECT_THROW(m_connection.fetchNextRow(), const char*);
  EXPECT_THROW(m_connection.fetchNextRow(), const char*);
}

TEST_F(ScriptedPlatform, leftConnectionIsSeen) {
  EXPECT_EQ(platform().database.openConnections(), 1);
}

TEST_F(ScriptedPlatform, loaderFillsInKnownConversions) {
  platform().statements.setText("ui_X.sql", "100%% %d %u '%s'");
  char buffer[64];
  KxSqlLoader("/sql").loadSQL(buffer, sizeof buffer, "ui_X.sql", -1, 4294967295u, "it");
  EXPECT_STREQ(buffer, "100% -1 4294967295 'it'");
  EXPECT_THAT(platform().statements.last().arguments, ElementsAre("-1", "4294967295", "it"));
  EXPECT_EQ(platform().statements.last().directory, "/sql");
}

TEST_F(ScriptedPlatform, loaderFailsHalfWayWithHalfTheText) {
  platform().faults.throwText(Point::LoadAfterWrite, "disk");
  char buffer[64] = "";
  EXPECT_THROW(KxSqlLoader("").loadSQL(buffer, sizeof buffer, "ui_GetAllEntities.sql"), const char*);
  EXPECT_STREQ(buffer, "ui_GetAllE");
}

TEST_F(ScriptedPlatform, loaderTruncatesOnRequest) {
  char buffer[8] = "";
  EXPECT_THROW(KxSqlLoader("").loadSQL(buffer, sizeof buffer, "ui_GetAllEntities.sql"), const char*);
  platform().statements.truncateWhatDoesNotFit();
  KxSqlLoader("").loadSQL(buffer, sizeof buffer, "ui_GetAllEntities.sql");
  EXPECT_STREQ(buffer, "ui_GetA");
}

TEST_F(ScriptedPlatform, environmentComesBack) {
  platform().environment.set("ZARO_TEST_VARIABLE", "1");
  platform().environment.set("ZARO_TEST_VARIABLE", "2");
  EXPECT_STREQ(std::getenv("ZARO_TEST_VARIABLE"), "2");
  platform().environment.restore();
  EXPECT_EQ(std::getenv("ZARO_TEST_VARIABLE"), nullptr);
}

TEST_F(ScriptedPlatform, settingsAnswerAsSet) {
  platform().settings.inMemory.set("S", "K", "V");
  platform().settings.inMemory.failSection("BAD", 5);
  platform().settings.stored.set("S", "K", "stored");
  platform().settings.failingWrites["K2"] = 9;

  ZARO::GlobalSettingOnMem* memory =
      ZARO::GlobalSettingOnMem::Instance(nullptr, true, nullptr, nullptr, nullptr, nullptr, true);
  ASSERT_NE(memory, nullptr);
  EXPECT_TRUE(memory->isLoaded());
  std::map<std::string, std::string> items;
  EXPECT_EQ(memory->getItemsInSection(items, "S"), 0);
  EXPECT_EQ(items, (std::map<std::string, std::string>{{"K", "V"}}));
  EXPECT_EQ(memory->getItemsInSection(items, "BAD"), 5);
  std::string value;
  EXPECT_EQ(memory->getItem("K", value, "S", "zaro.ini"), 0);
  EXPECT_EQ(value, "V");
  EXPECT_EQ(memory->getItem("none", value, "S", "zaro.ini"), 1);
  platform().settings.inMemory.failItem("S", "K", 3);
  EXPECT_EQ(memory->getItem("K", value, "S", "zaro.ini"), 3);
  platform().settings.inMemory.erase("S", "K");
  platform().settings.inMemoryIsLoaded = false;
  EXPECT_FALSE(memory->isLoaded());

  ZARO::GlobalSettingIF store;
  EXPECT_EQ(store.getItemsInSection(items, "S", "zaro.ini"), 0);
  EXPECT_EQ(items["K"], "stored");
  EXPECT_EQ(store.setItem("K1", "1", "S", "zaro.ini"), 0);
  EXPECT_EQ(store.setItem("K2", "2", "S", "zaro.ini"), 9);
  EXPECT_THAT(platform().settings.writes, ElementsAre(scripted::SettingWrite{"K1", "1", "S", "zaro.ini"},
                                                      scripted::SettingWrite{"K2", "2", "S", "zaro.ini"}));
  platform().settings.inMemoryExists = false;
  EXPECT_EQ(ZARO::GlobalSettingOnMem::Instance(nullptr, true, nullptr, nullptr, nullptr, nullptr, true), nullptr);
}

TEST_F(ScriptedPlatform, resourcesAnswerAsSet) {
  platform().resources.texts["Delete"] = "removed";
  ZARO::KxResbundle bundle;
  bundle._init(ZARO::KxResbundle::GetResourceFileName(), "UiDisplay", nullptr);
  std::string value = "before";
  EXPECT_TRUE(bundle.getString("Delete", value));
  EXPECT_EQ(value, "removed");
  EXPECT_FALSE(bundle.getString("Notify", value));
  platform().faults.throwText(Point::ResourceOpen, "no file");
  EXPECT_THROW(bundle._init("", "", nullptr), const char*);
  EXPECT_THAT(
      platform().calls.beginningWith("KxResbundle._init"),
      ElementsAre("KxResbundle._init(\"display.res\", \"UiDisplay\", null)", "KxResbundle._init(\"\", \"\", null)"));
}

TEST_F(ScriptedPlatform, settingsTextsAreJudged) {
  EXPECT_TRUE(isNum("0123"));
  EXPECT_FALSE(isNum(""));
  EXPECT_FALSE(isNum("-1"));
  EXPECT_FALSE(isNum("1 "));
  EXPECT_TRUE(isValidPort("1"));
  EXPECT_TRUE(isValidPort("65535"));
  EXPECT_FALSE(isValidPort("0"));
  EXPECT_FALSE(isValidPort("65536"));
  EXPECT_FALSE(isValidPort("80x"));
  EXPECT_FALSE(isValidPort("99999999999999999999"));
}

TEST(NothrowAllocationFailureTest, failsOneAllocation) {
  const NothrowAllocationFailure failure(2);
  char* first = new (std::nothrow) char;
  char* second = new (std::nothrow) char[10];
  char* third = new (std::nothrow) char[10];
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_NE(third, nullptr);
  EXPECT_TRUE(failure.happened());
  delete first;
  delete[] second;
  delete[] third;
}

}  // namespace
