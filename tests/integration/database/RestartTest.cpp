// What a restart of the database server does to warm connections.
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "GlobalSetting.h"
#include "RdbmsInterface.h"
#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/IniFile.h"
#include "miscUtils.h"
#include "support/LibraryTest.h"

namespace {

using testing::HasSubstr;
using ZARO::RdbmsInterface;
using zarotest::Dialect;

class Restart : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  void SetUp() override {
    OnEveryDatabaseWithLibrary::SetUp();
    if (!IsSkipped() && zarotest::postgresqlServer()->control.empty()) {
      GTEST_SKIP() << "the PostgreSQL server is not ours to restart: run the tests through scripts/with-postgres";
    }
  }

  static void control(const std::string& action) { run(zarotest::postgresqlServer()->control + " " + action); }
  static void replica(const std::string& action) { run(zarotest::postgresqlServer()->replica + " " + action); }

  static void run(const std::string& command) {
    ASSERT_EQ(std::system(("(" + command + ") >/dev/null 2>&1").c_str()), 0) << command;
  }

  static void warmUp(int connections) {
    std::vector<std::unique_ptr<RdbmsInterface>> units;
    for (int count = 0; count < connections; ++count) {
      units.push_back(std::make_unique<RdbmsInterface>());
      EXPECT_EQ(lookUp(*units.back()), 0);
    }
  }

  static int lookUp(RdbmsInterface& db) {
    unsigned int id = 0;
    return miscUtils::getAdminId(db, "alice", id);
  }
};

TEST_P(Restart, nextUnitsOfWorkSucceedOnAWarmPool) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(4, nullptr, nullptr, nullptr, nullptr, nullptr));
    warmUp(4);
    control("restart");
    for (int unit = 0; unit < 8; ++unit) {
      RdbmsInterface db;
      EXPECT_EQ(lookUp(db), 0) << "unit " << unit;
    }
  });
}

TEST_P(Restart, unitOfWorkWaitsForAServerThatComesBackWithinTheTrials) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr));
    warmUp(2);
    control("stop");
    std::thread later([] {
      std::this_thread::sleep_for(std::chrono::seconds(1));
      control("start");
    });
    {
      RdbmsInterface db;
      EXPECT_EQ(lookUp(db), 0);
    }
    later.join();
  });
}

TEST_P(Restart, unitOfWorkInProgressGoesOnAfterOneFailure) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr));
    RdbmsInterface db;
    EXPECT_EQ(lookUp(db), 0);
    control("restart");
    EXPECT_EQ(lookUp(db), ZaroErrC::DatabaseFailure) << "it may have been executed, so it is not sent again";
    EXPECT_EQ(lookUp(db), 0);
  });
}

TEST_P(Restart, transactionFailsWithItsCodeAndIsRolledBack) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr));
    {
      RdbmsInterface db;
      ASSERT_TRUE(db.startTransaction());
      db.executeSQL("INSERT INTO administrator (name) VALUES ('lost')");
      control("restart");
      EXPECT_EQ(lookUp(db), ZaroErrC::DatabaseFailure);
      EXPECT_EQ(lookUp(db), ZaroErrC::DatabaseFailure) << "and is not taken up again half way";
      EXPECT_FALSE(db.commitTransaction());
    }
    RdbmsInterface db;
    EXPECT_EQ(lookUp(db), 0);
    EXPECT_EQ(home().value("SELECT count(*) FROM administrator"), "1");
  });
  EXPECT_THAT(log(),
              HasSubstr("RdbmsInterface::commitTransaction: Exception \"the connection was lost in a transaction"));
}

TEST_P(Restart, stoppedServerIsADatabaseFailureAndNotTheEnd) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr));
    control("stop");
    {
      RdbmsInterface db;
      EXPECT_EQ(lookUp(db), ZaroErrC::DatabaseFailure);
    }
    control("start");
    RdbmsInterface db;
    EXPECT_EQ(lookUp(db), 0);
  });
}

TEST_P(Restart, fileAnswersForTheSettingsOfAStoppedServer) {
  const std::string file = home().installation().settingsIni();
  zaroruntime::IniFile settings(file);
  settings.set("policy_server", "threads", "16");
  settings.write(file, 0600);
  home().sql("INSERT INTO global_setting (section, name, value) VALUES ('s', 'shared', '1')");
  inOwnProcess([&] {
    const auto memory = [] {
      return ZARO::GlobalSettingOnMem::Instance(nullptr, true, nullptr, nullptr, nullptr, nullptr, true);
    };
    control("stop");
    std::string value;
    EXPECT_TRUE(memory()->isLoaded());
    EXPECT_EQ(memory()->getItem("threads", value, "policy_server", "zaro.ini"), 0);
    EXPECT_EQ(value, "16");
    EXPECT_NE(memory()->getItem("shared", value, "s", "zaro.ini"), 0);
    ZARO::GlobalSettingIF store;
    EXPECT_NE(store.setItem("threads", "17", "policy_server", "zaro.ini"), 0);
    control("start");
    EXPECT_EQ(store.setItem("threads", "18", "policy_server", "zaro.ini"), 0);
    EXPECT_EQ(memory()->getItem("threads", value, "policy_server", "zaro.ini"), 0);
    EXPECT_EQ(value, "18");
    EXPECT_EQ(memory()->getItem("shared", value, "s", "zaro.ini"), 0);
  });
  EXPECT_THAT(log(), HasSubstr("GlobalSettingOnMem: zaro.ini answers alone: data source zaro"));
  EXPECT_THAT(log(), HasSubstr("GlobalSettingIF: setting [policy_server] threads is not written: data source zaro"));
}

TEST_P(Restart, serverListAndRuleOrderFailWithTheirCodesMeanwhile) {
  home().sql("INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (1, 'P', '192.0.2.1', 1)");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr));
    std::vector<PolicyServerInfo> servers;
    std::vector<ZaroFilter::FilterType> order;
    bool manual = true;
    control("stop");
    EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), ZaroErrC::ServerListFailure);
    {
      RdbmsInterface db;
      EXPECT_EQ(miscUtils::getUserDefinedRuleOrder(db, manual, order, true), ZaroErrC::DatabaseFailure);
    }
    control("start");
    EXPECT_EQ(ZaroPolicyServerInterface::getPolicyServerInfo(servers), 0);
    EXPECT_EQ(servers.size(), 1u);
  });
}

TEST_P(Restart, promotedReplicaIsFollowed) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  const std::string file = home().installation().odbcIni();
  zaroruntime::IniFile odbc(file);
  odbc.set("zaro", "Servername", "127.0.0.2,127.0.0.1");
  odbc.write(file, 0600);
  replica("make");
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init(2, nullptr, nullptr, nullptr, nullptr, nullptr));
    warmUp(2);
    {
      RdbmsInterface db;
      ASSERT_TRUE(db.startTransaction()) << "by the primary, although the replica is named first";
      db.executeSQL("INSERT INTO administrator (name) VALUES ('before')");
      ASSERT_TRUE(db.commitTransaction());
    }
    control("stop");
    replica("promote");
    for (int unit = 0; unit < 4; ++unit) {
      RdbmsInterface db;
      EXPECT_EQ(lookUp(db), 0) << "unit " << unit;
      ASSERT_TRUE(db.startTransaction());
      db.executeSQL(("INSERT INTO administrator (name) VALUES ('after " + std::to_string(unit) + "')").c_str());
      EXPECT_TRUE(db.commitTransaction());
    }
    const auto followed = zaroruntime::readDataSource(home().installation(), "zaro");
    zaroruntime::SqlSession session(followed, home().settings(), home().installation(), 30);
    EXPECT_EQ(session.value("SELECT count(*) FROM administrator"), "6");
  });
  replica("remove");
  control("start");
}

INSTANTIATE_TEST_SUITE_P(, Restart, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

}  // namespace
