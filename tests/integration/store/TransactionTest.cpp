// Changes as the programs make them, on each database.
#include "store/Transaction.h"

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/LibraryTest.h"

namespace {

using testing::HasSubstr;
using zarotest::Dialect;

class Transaction : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  bool isSqlite() const { return GetParam() == Dialect::SQLite; }

  static std::string addition(const std::string& name) {
    return "INSERT INTO administrator (name) VALUES ('" + name + "')";
  }
  std::string administrators() const { return home().value("SELECT count(*) FROM administrator"); }

  // What a change that fails says.
  static std::string failureOf(const std::function<void(StoreConnection&)>& change) {
    try {
      inTransaction(change);
    } catch (const DatabaseError& failure) {
      return failure.what();
    }
    return "no failure";
  }
};

TEST_P(Transaction, resultOfAChangeThatIsStoredComesBack) {
  inOwnProcess([&] {
    EXPECT_EQ(inTransaction([](StoreConnection& db) {
                db.run(addition("alice"));
                return db.value("SELECT count(*) AS n FROM administrator", "n");
              }),
              "1");
    EXPECT_EQ(administrators(), "1");
  });
}

TEST_P(Transaction, changeThatThrowsStoresNothing) {
  inOwnProcess([&] {
    EXPECT_THROW(inTransaction([](StoreConnection& db) {
                   db.run(addition("alice"));
                   throw std::logic_error("changed my mind");
                 }),
                 std::logic_error);
    EXPECT_EQ(administrators(), "0");
  });
}

TEST_P(Transaction, failureThatTheChangeDidNotNoticeCounts) {
  inOwnProcess([&] {
    const auto overlook = [](StoreConnection& db) {
      db.run(addition("alice"));
      try {
        db.run("SELEKT 1");
      } catch (const DatabaseError&) {
      }
    };
    EXPECT_THAT(failureOf(overlook), HasSubstr("SELEKT"));
    EXPECT_THAT(failureOf([&](StoreConnection& db) {
                  overlook(db);
                  throw zaroruntime::RuntimeError("a reason that is not true");
                }),
                HasSubstr("SELEKT"));
    EXPECT_EQ(administrators(), "0");
  });
}

TEST_P(Transaction, runsOnceMoreWhenTheDataIsRefused) {
  inOwnProcess([&] {
    int runs = 0;
    const auto add = [&](StoreConnection& db) {
      ++runs;
      db.run(addition("alice"));
    };
    inTransaction(add);
    EXPECT_EQ(runs, 1);
    EXPECT_NE(failureOf(add), "no failure");
    EXPECT_EQ(runs, 3);
    EXPECT_EQ(administrators(), "1");
  });
}

TEST_P(Transaction, waitsForWhoeverHoldsALock) {
  inOwnProcess([&] {
    inTransaction([](StoreConnection& db) { db.run(addition("alice")); });
    const auto other = home().session();
    other->run(isSqlite() ? "BEGIN IMMEDIATE" : "BEGIN");
    other->run("UPDATE administrator SET is_root = 1");
    std::atomic<int> runs{0};
    std::thread holder([&] {
      while (runs == 0 && !isSqlite()) {
        std::this_thread::yield();
      }
      other->run("COMMIT");
    });
    inTransaction([&](StoreConnection& db) {
      ++runs;
      db.run("UPDATE administrator SET is_root = 0");
    });
    holder.join();
    EXPECT_EQ(home().value("SELECT is_root FROM administrator"), "0");
  });
}

TEST_P(Transaction, contentionIsGivenUpWithoutAChange) {
  inOwnProcess([&] {
    const auto other = home().session();
    other->run(isSqlite() ? "BEGIN IMMEDIATE" : "BEGIN");
    other->run(isSqlite() ? addition("bob") : "LOCK TABLE administrator");
    EXPECT_THAT(failureOf([](StoreConnection& db) { db.run(addition("alice")); }),
                HasSubstr("other programs kept the database busy, and nothing is changed: "));
    other->run("ROLLBACK");
    EXPECT_EQ(administrators(), "0");
  });
}

TEST_P(Transaction, everyOneOfManyAtATimeIsStored) {
  inOwnProcess([&] {
    inTransaction([](StoreConnection& db) {
      for (const char* name : {"a", "b"}) {
        db.run("INSERT INTO global_setting VALUES ('s', '" + std::string(name) + "', '0')");
      }
    });
    // The two keys are taken in opposite orders, so that changes on PostgreSQL block each other.
    const auto countBoth = [](const std::vector<std::string>& keys) {
      for (int i = 0; i < 20; ++i) {
        inTransaction([&](StoreConnection& db) {
          for (const std::string& key : keys) {
            const std::string where = " WHERE section = 's' AND name = '" + key + "'";
            const auto old = db.value("SELECT value FROM global_setting" + where + db.forUpdate(), "value");
            db.run("UPDATE global_setting SET value = '" + std::to_string(std::stoi(*old) + 1) + "'" + where);
          }
        });
      }
    };
    std::thread one([&] { countBoth({"a", "b"}); });
    std::thread other([&] { countBoth({"b", "a"}); });
    one.join();
    other.join();
    EXPECT_EQ(home().value("SELECT min(value) FROM global_setting"), "40");
    EXPECT_EQ(home().value("SELECT max(value) FROM global_setting"), "40");
  });
}

TEST_P(Transaction, commitWhoseAnswerIsLostIsToldAsNotKnown) {
  if (isSqlite()) {
    GTEST_SKIP() << "SQLite has no server to lose";
  }
  inOwnProcess([&] {
    const auto loseServer = [&](StoreConnection& db) {
      db.run(addition("alice"));
      const auto pid = db.value("SELECT pg_backend_pid() AS pid", "pid");
      home().sql("SELECT pg_terminate_backend(" + *pid + ", 5000)");
    };
    EXPECT_THAT(failureOf(loseServer), HasSubstr("whether it is stored is not known; look before you repeat it"));
    EXPECT_EQ(failureOf([&](StoreConnection& db) {
                loseServer(db);
                db.run(addition("bob"));
              }).find("not known"),
              std::string::npos)
        << "the commit was never sent";
    inTransaction([](StoreConnection& db) { db.run(addition("carol")); });
  });
}

ZARO_ON_EVERY_DATABASE(Transaction);

}  // namespace
