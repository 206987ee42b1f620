// Upgrades of the schema by scripts of the tests' own, on each database.
#include "installation/SchemaUpgrade.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "support/TestInstallation.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zaroruntime::kSchemaVersion;
using zarotest::Dialect;

constexpr int kNext = kSchemaVersion + 1;

std::string rowOf(int version) {
  return "INSERT INTO schema_version (version) VALUES (" + std::to_string(version) + ");\n";
}

class SchemaUpgradeTest : public zarotest::OnEveryDatabase {
 protected:
  void SetUp() override {
    OnEveryDatabase::SetUp();
    if (!IsSkipped()) {
      std::filesystem::create_directory(directory());
      home().sql("INSERT INTO administrator (name) VALUES ('alice'), ('bob')");
    }
  }

  std::string directory() const { return home().directory().path("upgrade"); }

  // A script's name; with its row unless the text is to make another version.
  std::string script(int version, const std::string& name, const std::string& text) const {
    char number[16];
    std::snprintf(number, sizeof number, "%04d", version);
    const std::string file = number + ("-" + name + ".sql");
    std::ofstream(directory() + "/" + file) << text;
    return file;
  }
  // Two scripts: a table, and a row in it for each administrator.
  void writeTwo() const {
    script(kNext, "table", "CREATE TABLE note (name TEXT NOT NULL);\n" + rowOf(kNext));
    script(kNext + 1, "rows", "INSERT INTO note SELECT name FROM administrator;\n" + rowOf(kNext + 1));
  }

  static std::vector<int> versionsOf(const SchemaUpgrade::Scripts& scripts) {
    std::vector<int> versions;
    for (const UpgradeScript& script : scripts) {
      versions.push_back(script.version);
    }
    return versions;
  }
  std::vector<int> upgradeTo(int target) const {
    const auto session = home().session();
    return versionsOf(SchemaUpgrade(*session, directory(), target).run());
  }
  std::string failureOfUpgradeTo(int target) const {
    try {
      upgradeTo(target);
    } catch (const zaroruntime::RuntimeError& failure) {
      return failure.what();
    }
    return "no failure";
  }

  std::string version() const { return home().value("SELECT max(version) FROM schema_version"); }
  bool has(const std::string& table) const {
    const char* query = GetParam() == Dialect::SQLite ? "SELECT count(*) FROM sqlite_master WHERE name = '"
                                                      : "SELECT count(*) FROM pg_class WHERE relname = '";
    return home().value(query + table + "'") != "0";
  }
};

TEST_P(SchemaUpgradeTest, scriptsRunInOrderAndOnce) {
  writeTwo();
  EXPECT_THAT(upgradeTo(kNext + 1), ElementsAre(kNext, kNext + 1));
  EXPECT_EQ(version(), std::to_string(kNext + 1));
  EXPECT_EQ(home().value("SELECT count(*) FROM note"), "2");
  EXPECT_THAT(upgradeTo(kNext + 1), IsEmpty());
}

TEST_P(SchemaUpgradeTest, scriptsBeyondTheProgramAreLeftAlone) {
  writeTwo();
  EXPECT_THAT(upgradeTo(kNext), ElementsAre(kNext));
  EXPECT_EQ(version(), std::to_string(kNext));
}

TEST_P(SchemaUpgradeTest, scriptThatFailsLeavesTheVersionBefore) {
  script(kNext, "table", "CREATE TABLE note (name TEXT NOT NULL);\n" + rowOf(kNext));
  const std::string file = script(
      kNext + 1, "wrong", "CREATE TABLE other (name TEXT);\n" + rowOf(kNext + 1) + "INSERT INTO nowhere VALUES (1);\n");
  EXPECT_THAT(failureOfUpgradeTo(kNext + 1), AllOf(HasSubstr(file + ": line 3: "), HasSubstr("nowhere")));
  EXPECT_EQ(version(), std::to_string(kNext));
  EXPECT_TRUE(has("note"));
  EXPECT_FALSE(has("other"));
}

TEST_P(SchemaUpgradeTest, scriptWithoutItsRowIsTakenBack) {
  const std::string text = "CREATE TABLE note (name TEXT);\n";
  for (const std::string& row : {std::string(), rowOf(kNext + 1)}) {
    const std::string file = script(kNext, "table", text + row);
    EXPECT_THAT(failureOfUpgradeTo(kNext), HasSubstr(file + ": does not make version " + std::to_string(kNext)));
    EXPECT_FALSE(has("note"));
    EXPECT_EQ(version(), std::to_string(kSchemaVersion));
  }
}

TEST_P(SchemaUpgradeTest, eachVersionNeedsOneScript) {
  EXPECT_THAT(failureOfUpgradeTo(kNext), HasSubstr("not exactly one script for version " + std::to_string(kNext)));
  script(kNext, "one", rowOf(kNext));
  script(kNext, "two", rowOf(kNext));
  EXPECT_THAT(failureOfUpgradeTo(kNext), HasSubstr("not exactly one script for version " + std::to_string(kNext)));
  EXPECT_EQ(version(), std::to_string(kSchemaVersion));
}

TEST_P(SchemaUpgradeTest, newerDatabaseIsRefused) {
  home().sql(rowOf(kNext));
  EXPECT_THAT(failureOfUpgradeTo(kSchemaVersion),
              HasSubstr("schema version " + std::to_string(kNext) + ", but this program works on version " +
                        std::to_string(kSchemaVersion)));
}

TEST_P(SchemaUpgradeTest, trialLeavesNothing) {
  writeTwo();
  {
    const auto session = home().session();
    EXPECT_THAT(versionsOf(SchemaUpgrade(*session, directory(), kNext + 1).tryOut()), ElementsAre(kNext, kNext + 1));
  }
  EXPECT_FALSE(has("note"));
  EXPECT_EQ(version(), std::to_string(kSchemaVersion));
}

TEST_P(SchemaUpgradeTest, trialTellsOfAScriptThatFails) {
  writeTwo();
  home().sql("CREATE TABLE note (name TEXT)");
  const auto session = home().session();
  EXPECT_THROW(SchemaUpgrade(*session, directory(), kNext + 1).tryOut(), zaroruntime::RuntimeError);
}

TEST_P(SchemaUpgradeTest, upgradesAtTheSameTimeRunEachScriptOnce) {
  writeTwo();
  std::atomic<std::size_t> done{0};
  std::vector<std::thread> upgrades;
  for (int i = 0; i < 4; ++i) {
    upgrades.emplace_back([&] { done += upgradeTo(kNext + 1).size(); });
  }
  for (std::thread& upgrade : upgrades) {
    upgrade.join();
  }
  EXPECT_EQ(done, 2u);
  EXPECT_EQ(home().value("SELECT count(*) FROM note"), "2");
}

TEST_P(SchemaUpgradeTest, readersGoOn) {
  writeTwo();
  const auto before = home().session();
  before->run("BEGIN");
  EXPECT_EQ(before->value("SELECT count(*) FROM administrator"), "2");
  std::atomic<bool> over{false};
  std::atomic<int> reads{0};
  std::thread reader([&] {
    const auto session = home().session();
    while (!over || reads == 0) {
      EXPECT_EQ(session->value("SELECT count(*) FROM administrator"), "2");
      ++reads;
    }
  });
  EXPECT_THAT(upgradeTo(kNext + 1), ElementsAre(kNext, kNext + 1));
  over = true;
  reader.join();
  EXPECT_EQ(before->value("SELECT count(*) FROM administrator"), "2");
  before->run("COMMIT");
}

// A change looks at the version in its transaction, and then relies on it.
TEST_P(SchemaUpgradeTest, changeThatHasLookedAtTheVersionComesFirst) {
  script(kNext, "count", "CREATE TABLE note AS SELECT name FROM administrator;\n" + rowOf(kNext));
  const auto change = home().session();
  std::vector<int> ran;
  std::thread upgrade;
  change->runAsTransaction([&] {
    zaroruntime::requireSchemaVersion(*change);
    upgrade = std::thread([&] { ran = upgradeTo(kNext); });
    change->run("INSERT INTO administrator (name) VALUES ('carol')");
    change->run(GetParam() == Dialect::SQLite ? "SELECT 1" : "SELECT pg_sleep(0.2)");
  });
  upgrade.join();
  EXPECT_THAT(ran, ElementsAre(kNext));
  EXPECT_EQ(home().value("SELECT count(*) FROM note"), "3");
}

TEST_P(SchemaUpgradeTest, tableThatOthersReferToCanBeRebuilt) {
  if (GetParam() != Dialect::SQLite) {
    GTEST_SKIP() << "other databases alter tables in place";
  }
  home().sql("INSERT INTO entity (name, type) VALUES ('a', 0)");
  home().sql("INSERT INTO administrator_entity SELECT administrator.id, entity.id FROM administrator, entity");
  const std::string rebuild =
      "PRAGMA legacy_alter_table = ON;\n"
      "CREATE TABLE rebuilt (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, is_root INTEGER NOT NULL DEFAULT 0) "
      "STRICT;\nINSERT INTO rebuilt SELECT * FROM administrator;\n";
  script(kNext, "rebuild",
         rebuild + "DROP TABLE administrator; ALTER TABLE rebuilt RENAME TO administrator;\n" + rowOf(kNext));
  EXPECT_THAT(upgradeTo(kNext), ElementsAre(kNext));
  EXPECT_EQ(home().value("SELECT count(*) FROM administrator_entity"), "2");

  const std::string file =
      script(kNext + 1, "lose", "DELETE FROM administrator WHERE name = 'bob';\n" + rowOf(kNext + 1));
  EXPECT_THAT(failureOfUpgradeTo(kNext + 1), HasSubstr(file + ": leaves rows that refer to nothing"));
  EXPECT_EQ(home().value("SELECT count(*) FROM administrator"), "2");
}

ZARO_ON_EVERY_DATABASE(SchemaUpgradeTest);

}  // namespace
