// zaroctl admin: administrators are listed, added, assigned to groups and removed.
#include <nlohmann/json.hpp>

#include <thread>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

class Admin : public zarotest::SampleInstallation {};
class FirstAdmin : public zarotest::ProgramTest {};

TEST_P(Admin, areListedByNameWithTheirEntities) {
  EXPECT_THAT(linesOf(run({"admin", "list"}).out),
              ElementsAre("1\tadmin\tyes\t1", "6\tauditor\tno\t0", "5\tcustomer-admin\tno\t1",
                          "4\tengineering-admin\tno\t2", "2\tpostmaster\tno\t4", "3\tsales-admin\tno\t3"));
  const auto document = nlohmann::json::parse(run({"admin", "list", "--json"}).out);
  EXPECT_EQ(document[0], (nlohmann::json{{"id", 1}, {"name", "admin"}, {"root", true}, {"entities", 1}}));
}

TEST_P(FirstAdmin, emptyInstallationIsMadeUsable) {
  mustInit();
  EXPECT_EQ(run({"admin", "list"}).out, "");
  EXPECT_THAT(linesOf(run({"admin", "add", "--root", "chief"}).out),
              ElementsAre("id\t1", "name\tchief", "root\tyes", "entities\t0"));
  EXPECT_EQ(run({"admin", "add", "o'neil 100% \xC3\xA4"}).status, 0);
  EXPECT_EQ(run({"entity", "add", "*@example.test"}).status, 0);
  EXPECT_EQ(run({"entity", "add", "--type", "ldap", "cn=it's"}).status, 0);
  const Words both = {"admin", "assign", "o'neil 100% \xC3\xA4", "*@example.test", "cn=it's"};
  EXPECT_THAT(linesOf(run(both).out), testing::Contains("entities\t2"));
  EXPECT_THAT(linesOf(run(both).out), testing::Contains("entities\t2"));
  EXPECT_EQ(run({"group", "add", "--as", "o'neil 100% \xC3\xA4", "Friends", "a@b.test"}).status, 0);
  EXPECT_THAT(linesOf(run({"admin", "unassign", "--id", "o'neil 100% \xC3\xA4", "1"}).out),
              testing::Contains("entities\t1"));
  EXPECT_EQ(run({"admin", "remove", "o'neil 100% \xC3\xA4"}).status, 0);
  EXPECT_EQ(value("SELECT count(*) FROM administrator_entity"), "0");
}

TEST_P(Admin, wrongNamesAreRefused) {
  expectRefused({"admin", "add", ""}, 64, "NAME: \"\" is empty");
  expectRefused({"admin", "add", "a\nb"}, 64, "holds control characters");
  expectRefused({"admin", "add", "\xFF"}, 64, "is not UTF-8");
  expectRefused({"admin", "add", std::string(513, 'x')}, 64, "is longer than 512 characters");
  expectRefused({"admin", "add", "auditor"}, 77, "there is an administrator named \"auditor\" already");
  EXPECT_EQ(run({"admin", "add", "x'); DELETE FROM entity; --"}).status, 0);
  EXPECT_EQ(value("SELECT count(*) FROM entity"), "10");
}

TEST_P(Admin, whoeverIsNotThereIsNotFound) {
  expectRefused({"admin", "remove", "nobody"}, 1, "no administrator named \"nobody\"");
  expectRefused({"admin", "assign", "nobody", "Headquarters"}, 1, "no administrator named \"nobody\"");
  expectRefused({"admin", "assign", "auditor", "Headquarters", "Nowhere"}, 1, "no managing group named \"Nowhere\"");
  expectRefused({"admin", "assign", "auditor", "--id", "99"}, 1, "no managing group 99");
  expectRefused({"admin", "assign", "auditor", "--id", "x"}, 64, "ENTITY: \"x\" is not an identifier");
  EXPECT_EQ(value("SELECT count(*) FROM administrator_entity WHERE administrator_id = 6"), "0");
}

TEST_P(Admin, lastRootIsNotRemoved) {
  expectRefused({"admin", "remove", "admin"}, 77, "\"admin\" is the last administration root");
  EXPECT_EQ(run({"admin", "id", "admin"}).status, 0);
  ASSERT_EQ(run({"admin", "add", "--root", "chief"}).status, 0);
  EXPECT_EQ(run({"admin", "remove", "admin"}).status, 0);
  expectRefused({"admin", "remove", "chief"}, 77, "\"chief\" is the last administration root");
}

TEST_P(Admin, ofTwoWhoRemoveTheLastTwoRootsOneIsRefused) {
  ASSERT_EQ(run({"admin", "add", "--root", "chief"}).status, 0);
  ProgramResult one;
  std::thread other([&] { one = run({"admin", "remove", "chief"}); });
  const ProgramResult two = run({"admin", "remove", "admin"});
  other.join();
  EXPECT_EQ(one.status + two.status, 77) << one.err << two.err;
  EXPECT_EQ(value("SELECT count(*) FROM administrator WHERE is_root = 1"), "1");
}

TEST_P(Admin, unassignTakesOutAllOrNothing) {
  expectRefused({"admin", "unassign", "sales-admin", "*@sales.example.test", "Headquarters"}, 77,
                "\"sales-admin\" is not assigned to \"Headquarters\"; nothing is changed");
  EXPECT_EQ(value("SELECT count(*) FROM administrator_entity WHERE administrator_id = 3"), "3");
}

TEST_P(Admin, ofSeveralWhoAddOrChangeTheSameAtATimeEachIsTold) {
  const std::vector<std::vector<std::string>> commands = {
      {"admin", "add", "twin"},
      {"entity", "add", "*@twin.test"},
      {"servers", "add", "77", "192.0.2.77", "15505"},
  };
  for (const auto& command : commands) {
    zarotest::ProgramResult results[3];
    std::vector<std::thread> threads;
    for (auto& result : results) {
      threads.emplace_back([&] { result = run(command); });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    int done = 0;
    for (const auto& result : results) {
      done += result.status == 0 ? 1 : 0;
      EXPECT_THAT(result.err, testing::AnyOf("", testing::HasSubstr(" already"))) << command.front();
      EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("SQL"))) << command.front();
    }
    EXPECT_EQ(done, 1) << command.front();
  }
}

TEST_P(Admin, severalMayAssignTheSameAtATimeAndOneTakesItAway) {
  for (const bool assigns : {true, false}) {
    zarotest::ProgramResult results[3];
    std::vector<std::thread> threads;
    for (auto& result : results) {
      threads.emplace_back([&] {
        result = run({"admin", assigns ? "assign" : "unassign", "auditor", "Headquarters"});
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    int done = 0;
    for (const auto& result : results) {
      done += result.status == 0 ? 1 : 0;
      EXPECT_THAT(result.err, testing::AnyOf("", testing::HasSubstr("is not assigned to")));
    }
    EXPECT_EQ(done, assigns ? 3 : 1);
    EXPECT_EQ(value("SELECT count(*) FROM administrator_entity WHERE administrator_id = 6"), assigns ? "1" : "0");
  }
}

// As a transaction does that adds an object of the group.
TEST_P(Admin, areAssignedWhileOthersReferToTheSame) {
  if (GetParam() == zarotest::Dialect::SQLite) {
    GTEST_SKIP() << "SQLite has one writer at a time";
  }
  const auto other = session();
  other->run("BEGIN");
  other->run("SELECT id FROM administrator WHERE name = 'auditor' FOR KEY SHARE");
  other->run("SELECT id FROM entity WHERE name = 'Headquarters' FOR KEY SHARE");
  const ProgramResult assigned = run({"admin", "assign", "auditor", "Headquarters"});
  EXPECT_EQ(assigned.status, 0) << assigned.err;
  other->run("ROLLBACK");
}

TEST_P(Admin, orderOfRulesIsOneOfThoseThatWereAcknowledged) {
  std::vector<std::thread> threads;
  zarotest::ProgramResult results[4];
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      results[i] =
          i % 2 == 0 ? run({"rules", "set-order", "spam", "virus", "size"}) : run({"rules", "set-order", "size"});
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const auto& result : results) {
    EXPECT_EQ(result.status, 0) << result.err;
  }
  EXPECT_THAT(value("SELECT count(*) FROM manual_rule_order"), testing::AnyOf("1", "3"));
}

ZARO_ON_EVERY_DATABASE(Admin);
ZARO_ON_EVERY_DATABASE(FirstAdmin);

}  // namespace
