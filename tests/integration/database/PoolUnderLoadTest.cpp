// Two processes with sixteen threads and a pool each, on one database.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "RdbmsInterface.h"
#include "miscUtils.h"
#include "support/LibraryTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using ZARO::RdbmsInterface;

constexpr int kProcesses = 2;
constexpr int kThreads = 16;
constexpr int kUnits = 200;
constexpr int kPoolSize = 8;

class PoolUnderLoad : public zarotest::OnEveryDatabaseWithLibrary {};

// Units of work of one thread: reads, and every fourth time a transaction. Returns the number that failed.
int work(const std::string& name) {
  int failures = 0;
  for (int unit = 0; unit < kUnits; ++unit) {
    RdbmsInterface db;
    unsigned int id = 0;
    failures += miscUtils::getAdminId(db, "alice", id) != 0 || id == 0;
    if (unit % 4 == 0) {
      const std::string insert = "INSERT INTO administrator (name) VALUES ('" + name + "-" + std::to_string(unit) + "')";
      try {
        const bool begun = db.startTransaction();
        db.executeSQL(insert.c_str());
        failures += !begun || !db.commitTransaction();
      } catch (const char* thrown) {
        ADD_FAILURE() << thrown;
        ++failures;
      }
    }
  }
  return failures;
}

void workInThreads(const zarotest::TestInstallation& home, int process) {
  ASSERT_TRUE(RdbmsInterface::Init(kPoolSize, nullptr, nullptr, nullptr, nullptr, nullptr));
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] { failures += work("p" + std::to_string(process) + "t" + std::to_string(thread)); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, 0);
  if (home.dialect() == zarotest::Dialect::PostgreSQL) {
    // At most what two pools may keep, and the session that asks.
    const std::string sessions = home.value("SELECT count(*) FROM pg_stat_activity WHERE datname=current_database()");
    EXPECT_LE(std::stoi(sessions), kProcesses * kPoolSize + 1);
  }
  EXPECT_EQ(RdbmsInterface::ReInit(), 0);
}

TEST_P(PoolUnderLoad, noUnitOfWorkFailsAndNothingIsLost) {
  home().sql("INSERT INTO administrator (name) VALUES ('alice')");
  inOwnProcess([this] {
    // Forked while there is one thread only.
    const pid_t second = fork();
    workInThreads(home(), second == 0 ? 1 : 2);
    if (second == 0) {
      std::exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(second, &status, 0), second);
    EXPECT_EQ(status, 0) << "the second process failed";
  });
  EXPECT_EQ(home().value("SELECT count(*) FROM administrator"), std::to_string(1 + kProcesses * kThreads * kUnits / 4));
  EXPECT_THAT(log(), Not(HasSubstr(" error: ")));
}

ZARO_ON_EVERY_DATABASE(PoolUnderLoad);

}  // namespace
