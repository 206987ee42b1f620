// What a restart of the database server does to warm connections.
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "RdbmsInterface.h"
#include "ZaroErrC.h"
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

  static void control(const std::string& action) {
    const std::string command = "(" + zarotest::postgresqlServer()->control + " " + action + ") >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << action;
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

INSTANTIATE_TEST_SUITE_P(, Restart, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

}  // namespace
