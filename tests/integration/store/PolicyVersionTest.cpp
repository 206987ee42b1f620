// The counter of what decides mail, the policy read with it, and the upgrade to both, on each database.
#include <gmock/gmock.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "installation/SchemaUpgrade.h"
#include "policy/MemberReading.h"
#include "policy/PolicyGeneration.h"
#include "policy/PolicyLoading.h"
#include "policy/PolicySource.h"
#include "store/ReadTransaction.h"
#include "store/Transaction.h"
#include "support/LibraryTest.h"

namespace {

using testing::ElementsAre;
using zarotest::Dialect;

class PolicyVersion : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  bool isSqlite() const { return GetParam() == Dialect::SQLite; }
  int version() const { return std::stoi(home().value("SELECT version FROM policy_version")); }

  // A table of the numbers from 0, in the column `i`.
  std::string numbersUpTo(int last) const {
    const std::string most = std::to_string(last);
    return isSqlite() ? "(WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < " + most +
                            ") SELECT i FROM n)"
                      : "generate_series(0, " + most + ") AS n (i)";
  }

  // How much some statements raise the version, each on its own.
  void expectRaises(const std::vector<std::string>& statements, bool areRaising) const {
    for (const std::string& statement : statements) {
      const int before = version();
      home().sql(statement);
      EXPECT_EQ(version() - before, areRaising ? 1 : 0) << statement;
    }
  }
  static std::string members(int count) {
    std::string rows;
    for (int place = 0; place != count; ++place) {
      rows += (place == 0 ? "(1, " : ", (1, ") + std::to_string(place) + ", 'a" + std::to_string(place) + "@b.test')";
    }
    return "INSERT INTO address_group_member (group_id, position, address) VALUES " + rows;
  }
  void fill() const {
    home().sql("INSERT INTO named_object (type, name) VALUES (5, 'group')");
    home().sql("INSERT INTO entity (name, type) VALUES ('*@*.b.test', 6)");
    home().sql("INSERT INTO policy_rule (name) VALUES ('rule')");
    home().sql("INSERT INTO policy_rule_object (rule_id, object_id) VALUES (1, 1)");
  }
};

TEST_P(PolicyVersion, everyChangeOfWhatDecidesRaisesIt) {
  expectRaises({"INSERT INTO named_object (type, name) VALUES (5, 'group')", "UPDATE named_object SET name = 'other'",
                "INSERT INTO address_group_member (group_id, position, address) VALUES (1, 0, 'a@b.test')",
                "UPDATE address_group_member SET address = 'c@d.test'", "DELETE FROM address_group_member",
                "INSERT INTO entity (name, type) VALUES ('*@b.test', 6)", "UPDATE entity SET name = '*@c.test'",
                "INSERT INTO policy_rule (name, scope_id) VALUES ('rule', 1)", "UPDATE policy_rule SET enabled = 1",
                "UPDATE policy_rule SET scope_id = NULL", "DELETE FROM entity",
                "INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (1, 1, 'virus')",
                "UPDATE manual_rule_order SET rule_order = 2", "DELETE FROM manual_rule_order",
                "INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', 'on')",
                "UPDATE global_setting SET value = 'off'", "UPDATE global_setting SET name = 'away'",
                "UPDATE global_setting SET name = 'manualRuleOrder'", "DELETE FROM global_setting"},
               true);
  home().sql("INSERT INTO policy_rule_object (rule_id, object_id) VALUES (1, 1)");
  expectRaises({"INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (1, 0, 1, 2)",
                "UPDATE policy_rule_list SET kind = 1", "DELETE FROM policy_rule_list", "DELETE FROM policy_rule"},
               true);
}

TEST_P(PolicyVersion, nothingElseRaisesIt) {
  fill();
  expectRaises({"INSERT INTO administrator (name) VALUES ('alice')",
                "INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (1, 1)",
                "INSERT INTO global_setting (section, name, value) VALUES ('policy_server', 'port', '1')",
                "DELETE FROM address_group_member WHERE group_id = 9", "UPDATE policy_rule SET enabled = 1 WHERE id = 9"},
               false);
}

TEST_P(PolicyVersion, updatesThatChangeNothingDoNotRaiseIt) {
  fill();
  home().sql(members(2));
  home().sql("INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (1, 0, 1, 2)");
  home().sql("INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (1, 1, 'virus')");
  home().sql("INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', 'on')");
  expectRaises({"UPDATE named_object SET name = name", "UPDATE entity SET name = '*@*.b.test'",
                "UPDATE policy_rule SET name = 'rule', scope_id = NULL", "UPDATE policy_rule_list SET kind = 2",
                "UPDATE address_group_member SET address = address", "UPDATE manual_rule_order SET filter_id = 1",
                "UPDATE global_setting SET value = 'on' WHERE section = 'email-scan'"},
               false);
  expectRaises({"UPDATE address_group_member SET address = 'new@b.test' WHERE position = 1"}, true);
}

TEST_P(PolicyVersion, ruleThatIsIgnoredLeavesItCounting) {
  fill();
  home().sql("INSERT INTO policy_rule (name, position) VALUES ('other', 1) ON CONFLICT DO NOTHING");
  expectRaises({"UPDATE policy_rule SET enabled = 1"}, true);
}

TEST_P(PolicyVersion, whatGoesWithARowIsOneChange) {
  fill();
  home().sql(members(100));
  home().sql("INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (1, 0, 1, 2)");
  expectRaises({"DELETE FROM policy_rule", "DELETE FROM named_object"}, true);
}

TEST_P(PolicyVersion, transactionRaisesItByOne) {
  fill();
  inOwnProcess([&] {
    const int before = version();
    inTransaction([](StoreConnection& db) {
      db.run(members(1000));
      db.run("UPDATE policy_rule SET enabled = 1");
      db.run("DELETE FROM address_group_member WHERE position < 500");
    });
    EXPECT_EQ(version(), before + 1);
    inTransaction([](StoreConnection& db) { db.run("INSERT INTO administrator (name) VALUES ('alice')"); });
    EXPECT_EQ(version(), before + 1);
    EXPECT_THROW(inTransaction([](StoreConnection& db) {
                   db.run("DELETE FROM address_group_member");
                   throw zaroruntime::RuntimeError("no");
                 }),
                 zaroruntime::RuntimeError);
    EXPECT_EQ(version(), before + 1);
    home().sql("UPDATE policy_rule SET enabled = 0");
    EXPECT_EQ(version(), before + 2);
  });
}

// A program that knows nothing of the counter.
TEST_P(PolicyVersion, plainTransactionRaisesIt) {
  fill();
  const int before = version();
  home().session()->runTogether({members(3), "UPDATE policy_rule SET enabled = 1"});
  EXPECT_EQ(version() - before, isSqlite() ? 4 : 1);
}

TEST_P(PolicyVersion, statementsOfGroupsRaiseItByOne) {
  home().sql("INSERT INTO administrator (name, is_root) VALUES ('root', 1)");
  home().sql("INSERT INTO entity (name, type) VALUES ('*@*', 6)");
  const std::string list = "<mas><ma>a@b.test</ma><ma>c@d.test</ma><ma>e@f.test</ma></mas>";
  expectRaises(isSqlite() ? std::vector<std::string>{"INSERT INTO new_group VALUES (1, 'g', 1, '" + list + "')",
                                                     "INSERT INTO group_change VALUES (1, 'h', '" + list + "')"}
                          : std::vector<std::string>{"SELECT add_group(1, 'g', 1, '" + list + "')",
                                                     "SELECT change_group(1, 'h', '" + list + "')"},
               true);
}

TEST_P(PolicyVersion, changesAtTheSameTimeAreAllCounted) {
  fill();
  inOwnProcess([&] {
    constexpr int kThreads = 4;
    constexpr int kChanges = 10;
    const int before = version();
    std::vector<std::thread> threads;
    for (int thread = 0; thread != kThreads; ++thread) {
      threads.emplace_back([thread] {
        for (int change = 0; change != kChanges; ++change) {
          inTransaction([&](StoreConnection& db) {
            db.run("INSERT INTO address_group_member (group_id, position, address) VALUES (1, " +
                   std::to_string(thread * kChanges + change) + ", 'a@b.test')");
          });
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(version(), before + kThreads * kChanges);
  });
}

// The counter is locked when a transaction commits, and not before.
TEST_P(PolicyVersion, transactionsDoNotWaitForEachOther) {
  if (isSqlite()) {
    GTEST_SKIP() << "SQLite has one writer";
  }
  fill();
  const int before = version();
  const auto open = home().session();
  open->run("BEGIN");
  open->run("UPDATE policy_rule SET enabled = 1");
  const auto other = home().session();
  other->run("SET lock_timeout = '5s'");
  other->run("UPDATE entity SET name = '*@c.test'");
  EXPECT_EQ(version(), before + 1);
  open->run("COMMIT");
  EXPECT_EQ(version(), before + 2);
}

TEST_P(PolicyVersion, isReadWithThePolicy) {
  fill();
  home().sql("INSERT INTO named_object (type, name, content) VALUES (3, 'Area', 'days=3')");
  home().sql("INSERT INTO address_group_member (group_id, position, address) VALUES (1, 4, 'b@b.test'), (1, 2, '<>')");
  home().sql("INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (1, 1, 1, 1), (1, 0, 1, 2)");
  home().sql(
      "INSERT INTO policy_rule (name, position, enabled, recipients_id, compares, actions, quarantine_id, reply, tag, "
      "header_value, address) VALUES ('it''s full', 7, 1, 1, 3, '11000000000000000', 2, 'r', 't', 'h', 'a')");
  home().sql("INSERT INTO policy_rule (name, position, scope_id) VALUES ('first', 5, 1)");
  home().sql("UPDATE policy_rule SET position = 9 WHERE id = 1");
  home().sql("INSERT INTO manual_rule_order (rule_order, filter_id, filter_type) VALUES (1, 2, 'spam')");
  home().sql("INSERT INTO global_setting (section, name, value) VALUES ('email-scan', 'manualRuleOrder', 'on')");
  inOwnProcess([&] {
    StoreConnection db;
    const MailPolicy policy = loadMailPolicy(db);
    EXPECT_EQ(policy.version, static_cast<std::uint64_t>(version()));
    EXPECT_EQ(storedPolicyVersion(db), policy.version);
    ASSERT_EQ(policy.rules.size(), 3u);
    EXPECT_EQ(policy.rules[0].name, "first");
    EXPECT_EQ(policy.rules[0].scope, 1u);
    const MailPolicy::Rule& full = policy.rules[1];
    EXPECT_EQ(full.name, "it's full");
    EXPECT_EQ(full.position, 7u);
    EXPECT_TRUE(full.enabled);
    EXPECT_FALSE(full.scope);
    EXPECT_EQ(full.recipients, 1u);
    EXPECT_EQ(full.compare, MailPolicy::Compare::Both);
    EXPECT_EQ(full.actions, "11000000000000000");
    EXPECT_EQ(full.quarantine, 2u);
    EXPECT_EQ(full.reply + full.tag + full.headerValue + full.address, "rtha");
    ASSERT_EQ(policy.rules[2].lists.size(), 2u);
    EXPECT_EQ(policy.rules[2].lists[0].kind, 2u);
    ASSERT_EQ(policy.entities.size(), 1u);
    EXPECT_EQ(policy.entities[0].pattern, "*@*.b.test");
    ASSERT_EQ(policy.groups.size(), 1u);
    EXPECT_THAT(policy.groups[0].members, ElementsAre("<>", "b@b.test"));
    ASSERT_EQ(policy.objects.size(), 1u);
    EXPECT_EQ(policy.objects[0].content, "days=3");
    EXPECT_TRUE(policy.filterOrder.manual);
    ASSERT_EQ(policy.filterOrder.groups.size(), 1u);
    EXPECT_EQ(policy.filterOrder.groups[0].filterType, "spam");
  });
}

// SQLite enforces references only for programs that ask for it.
TEST_P(PolicyVersion, rowsWithoutWhatTheyReferToAreNamed) {
  if (!isSqlite()) {
    GTEST_SKIP() << "PostgreSQL has no such rows";
  }
  fill();
  const auto session = home().session();
  session->run("PRAGMA foreign_keys = OFF");
  const auto expectUnreadable = [&](const std::string& text) {
    inOwnProcess([&] {
      StoreConnection db;
      try {
        loadMailPolicy(db);
        FAIL() << "no failure";
      } catch (const UnreadablePolicy& failure) {
        EXPECT_EQ(failure.what(), text);
        EXPECT_EQ(failure.version(), static_cast<std::uint64_t>(version()));
      }
    });
  };
  session->run("INSERT INTO policy_rule_list (rule_id, position, group_id, kind) VALUES (17, 0, 1, 2)");
  expectUnreadable("the stored policy has a list of the rule 17, which is not there");
  session->run("DELETE FROM policy_rule_list");
  session->run("INSERT INTO address_group_member (group_id, position, address) VALUES (18, 0, 'a@b.test')");
  expectUnreadable("the stored policy has members of the address group 18, which is not there");
  session->run("INSERT INTO address_group_member (group_id, position, address) VALUES (1, 0, 'a@b.test')");
  expectUnreadable("the stored policy has members of the address group 18, which is not there");
}

TEST_P(PolicyVersion, membersAreReadInPieces) {
  home().sql("INSERT INTO named_object (type, name) VALUES (5, 'one'), (5, 'two')");
  for (const std::string group : {"1", "2"}) {
    home().sql("INSERT INTO address_group_member (group_id, position, address) SELECT " + group +
               ", i, 'a' || i || '@b' || " + group + " || '.test' FROM " + numbersUpTo(9999));
  }
  inOwnProcess([&] {
    StoreConnection db;
    const MailPolicy policy = loadMailPolicy(db);
    ASSERT_EQ(policy.groups.size(), 2u);
    for (const MailPolicy::Group& group : policy.groups) {
      ASSERT_EQ(group.members.size(), 10000u);
      for (std::size_t place = 0; place != group.members.size(); ++place) {
        ASSERT_EQ(group.members[place], "a" + std::to_string(place) + "@b" + std::to_string(group.id) + ".test");
      }
    }
  });
}

TEST_P(PolicyVersion, allPiecesOfMembersAreOfOneMoment) {
  home().sql("INSERT INTO named_object (type, name) VALUES (5, 'one')");
  home().sql("INSERT INTO address_group_member (group_id, position, address) SELECT 1, i, 'a' || i FROM " +
             numbersUpTo(5000));
  inOwnProcess([&] {
    StoreConnection db;
    const ReadTransaction transaction(db);
    MemberReading reading(db);
    EXPECT_EQ(reading.next().value().front().members.size(), 5000u);
    home().sql("DELETE FROM address_group_member WHERE position = 5000");
    const std::optional<MemberPiece> last = reading.next();
    ASSERT_TRUE(last.has_value());
    EXPECT_THAT(last->front().members, ElementsAre("a5000"));
    EXPECT_FALSE(reading.next().has_value());
  });
}

TEST_P(PolicyVersion, sourceOfServicesHandsOutWhatIsNotKnown) {
  home().sql("INSERT INTO named_object (type, name) VALUES (5, 'one')");
  home().sql("INSERT INTO address_group_member (group_id, position, address) VALUES (1, 0, 'a'), (1, 1, 'b')");
  inOwnProcess([&] {
    const std::unique_ptr<PolicySource> source = makeDatabaseSource();
    std::optional<ArrivingPolicy> policy = source->loadUnless(std::nullopt);
    ASSERT_TRUE(policy.has_value());
    const std::uint64_t known = policy->soFar().version;
    EXPECT_EQ(known, static_cast<std::uint64_t>(version()));
    EXPECT_THAT(policy->whole().groups.at(0).members, ElementsAre("a", "b"));
    EXPECT_FALSE(source->loadUnless(known).has_value());
    home().sql("DELETE FROM address_group_member WHERE position = 0");
    EXPECT_THAT(source->loadUnless(known).value().whole().groups.at(0).members, ElementsAre("b"));
  });
}

TEST_P(PolicyVersion, membersThatAreReadAheadAreRefusedLikeOthers) {
  if (!isSqlite()) {
    GTEST_SKIP() << "PostgreSQL has no such rows";
  }
  const auto session = home().session();
  session->run("PRAGMA foreign_keys = OFF");
  session->run("PRAGMA ignore_check_constraints = ON");
  for (const char* member : {"(18, 0, 'of no group')", "(1, 4294967296, 'at no position')"}) {
    session->run("DELETE FROM address_group_member");
    session->run(std::string("INSERT INTO address_group_member (group_id, position, address) VALUES ") + member);
    inOwnProcess([&] {
      std::optional<ArrivingPolicy> policy = makeDatabaseSource()->loadUnless(std::nullopt);
      EXPECT_THROW(policy.value().whole(), UnreadablePolicy) << member;
    });
  }
}

// They come as JSON, whose escapes and separators may stand in members too.
TEST_P(PolicyVersion, membersComeAsTheyAreStored) {
  const std::vector<std::string> members = {"\"a b\"@c.test",
                                            "\\",
                                            "\"",
                                            "a\\\"b@c.test",
                                            "a,b",
                                            "[\"x\", \"y\"]",
                                            "a\nb",
                                            "\x01\t\x7f",
                                            "/",
                                            "\\u0041",
                                            "*@*.b\u00fccher.test",
                                            "\U0001f4e7",
                                            " "};
  home().sql("INSERT INTO named_object (type, name) VALUES (5, 'empty'), (5, 'one'), (5, 'two')");
  std::size_t position = 2147483647;
  for (const std::string& member : members) {
    for (const char* group : {"2", "3"}) {
      home().sql(std::string("INSERT INTO address_group_member (group_id, position, address) VALUES (") + group + ", " +
                 std::to_string(position) + ", " + zaroruntime::sqlLiteral(member) + ")");
    }
    position -= 7;
  }
  inOwnProcess([&] {
    StoreConnection db;
    const MailPolicy policy = loadMailPolicy(db);
    ASSERT_EQ(policy.groups.size(), 3u);
    EXPECT_TRUE(policy.groups[0].members.empty());
    const std::vector<std::string> reversed(members.rbegin(), members.rend());
    for (const std::size_t group : {1, 2}) {
      EXPECT_THAT(policy.groups[group].members, testing::ElementsAreArray(reversed));
    }
  });
}

// Behind a member at the highest position of the highest identifier, in a piece of its own.
TEST_P(PolicyVersion, everyMemberHasAKeyThatTheNextPieceBeginsBehind) {
  const std::string highest = "4294967294";
  home().sql("INSERT INTO named_object (id, type, name) VALUES (7, 5, 'one'), (" + highest + ", 5, 'two')");
  for (const std::string& group : {std::string("7"), highest}) {
    home().sql("INSERT INTO address_group_member (group_id, position, address) SELECT " + group +
               ", 2147483647 - 3 * i, 'a' || i FROM " + numbersUpTo(4999) + " WHERE i > 0");
    home().sql("INSERT INTO address_group_member (group_id, position, address) VALUES (" + group +
               ", 2147483647, 'last')");
  }
  inOwnProcess([&] {
    StoreConnection db;
    const MailPolicy policy = loadMailPolicy(db);
    ASSERT_EQ(policy.groups.size(), 2u);
    for (const MailPolicy::Group& group : policy.groups) {
      ASSERT_EQ(group.members.size(), 5000u);
      EXPECT_EQ(group.members[0], "a4999");
      EXPECT_EQ(group.members[4998], "a1");
      EXPECT_EQ(group.members[4999], "last");
    }
  });
}

TEST_P(PolicyVersion, manyGroupsShareAPiece) {
  home().sql("INSERT INTO named_object (type, name) VALUES (5, 'one'), (5, 'empty'), (5, 'three'), (5, 'four')");
  home().sql(
      "INSERT INTO address_group_member (group_id, position, address) VALUES (1, 5, 'a'), (1, 9, 'b'), (3, 2, 'c'), "
      "(4, 0, 'd'), (4, 1, 'e')");
  inOwnProcess([&] {
    StoreConnection db;
    const MailPolicy policy = loadMailPolicy(db);
    ASSERT_EQ(policy.groups.size(), 4u);
    EXPECT_THAT(policy.groups[0].members, ElementsAre("a", "b"));
    EXPECT_TRUE(policy.groups[1].members.empty());
    EXPECT_THAT(policy.groups[2].members, ElementsAre("c"));
    EXPECT_THAT(policy.groups[3].members, ElementsAre("d", "e"));
  });
}

// SQLite takes any bytes for a text, and no constraint holds for programs that leave them out.
TEST_P(PolicyVersion, membersThatNoProgramOfOursStores) {
  if (!isSqlite()) {
    GTEST_SKIP() << "PostgreSQL has no such rows";
  }
  home().sql("INSERT INTO named_object (type, name) VALUES (5, 'one'), (5, 'two')");
  home().sql(
      "INSERT INTO address_group_member (group_id, position, address) VALUES (1, 0, CAST(x'61ff22' AS TEXT)), "
      "(1, 1, CAST(x'61ff' AS TEXT)), (1, 2, CAST(x'610062' AS TEXT))");
  inOwnProcess([&] {
    StoreConnection db;
    EXPECT_THAT(loadMailPolicy(db).groups[0].members, ElementsAre("a\xff\"", "a\xff", std::string("a\0b", 3)));
  });
  for (const char* position : {"-1", "4294967296"}) {
    const auto session = home().session();
    session->run("PRAGMA ignore_check_constraints = ON");
    session->run("DELETE FROM address_group_member");
    session->run(std::string("INSERT INTO address_group_member (group_id, position, address) VALUES (1, ") + position +
                 ", 'a'), (2, " + position + ", 'b')");
    inOwnProcess([&] {
      StoreConnection db;
      EXPECT_THROW(loadMailPolicy(db), UnreadablePolicy) << position;
    });
  }
}

ZARO_ON_EVERY_DATABASE(PolicyVersion);

// --- Upgrade ---

class PolicyUpgrade : public testing::TestWithParam<Dialect> {
 protected:
  void SetUp() override {
    if (GetParam() == Dialect::PostgreSQL && !zarotest::postgresqlServer()) {
      GTEST_SKIP() << "no PostgreSQL server: run the tests through scripts/with-postgres";
    }
  }
  static std::string versionOne() {
    return std::string(ZARO_VERSION_ONE_DIR) + "/schema." + zaroruntime::dialectName(GetParam()) + ".sql";
  }
  static void upgrade(const zarotest::TestInstallation& home) {
    const auto session = home.session();
    SchemaUpgrade(*session, home.directory().path("sql/upgrade"), zaroruntime::kSchemaVersion).run();
  }
};

TEST_P(PolicyUpgrade, keepsTheRules) {
  const zarotest::TestInstallation home(GetParam(), versionOne());
  for (const char* statement :
       {"INSERT INTO named_object (type, name) VALUES (3, 'Area'), (5, 'Group')",
        "INSERT INTO policy_rule (name) VALUES ('gone')", "DELETE FROM policy_rule",
        "INSERT INTO policy_rule (name, quarantine_id) VALUES ('held', 1)",
        "INSERT INTO policy_rule (name) VALUES ('plain')", "INSERT INTO policy_rule (name) VALUES ('last')",
        "INSERT INTO policy_rule_object (rule_id, object_id) VALUES (3, 2)",
        "INSERT INTO address_group_member (group_id, position, address) VALUES (2, 0, 'a@b.test')",
        "DELETE FROM policy_rule WHERE name = 'last'"}) {
    home.sql(statement);
  }
  upgrade(home);
  const auto rules = home.session()->rows(
      "SELECT id, name, quarantine_id, position, enabled, scope_id, compares, actions, reply FROM policy_rule ORDER BY id");
  ASSERT_EQ(rules.size(), 2u);
  EXPECT_THAT(rules[0], ElementsAre("2", "held", "1", "1", "0", std::nullopt, "1", "01000000000000000", ""));
  EXPECT_THAT(rules[1], ElementsAre("3", "plain", std::nullopt, "2", "0", std::nullopt, "1", "00000000000000000", ""));
  EXPECT_EQ(home.value("SELECT object_id FROM policy_rule_object WHERE rule_id = 3"), "2");
  EXPECT_EQ(home.value("SELECT address FROM address_group_member"), "a@b.test");
  home.sql("INSERT INTO policy_rule (name) VALUES ('new')");
  EXPECT_EQ(home.value("SELECT id FROM policy_rule WHERE name = 'new'"), "5");
  EXPECT_EQ(home.value("SELECT position FROM policy_rule WHERE name = 'new'"), "3");
  EXPECT_THROW(home.sql("DELETE FROM named_object WHERE id = 2"), zaroruntime::RuntimeError);
  const std::string before = home.value("SELECT version FROM policy_version");
  home.sql("DELETE FROM address_group_member");
  EXPECT_NE(home.value("SELECT version FROM policy_version"), before);
}

INSTANTIATE_TEST_SUITE_P(, PolicyUpgrade, testing::Values(Dialect::SQLite, Dialect::PostgreSQL),
                         zarotest::dialectTestName);

}  // namespace
