// What changes of objects leave behind: several at a time, refused, failed half way, on the system's area.
#include <nlohmann/json.hpp>
#include <thread>

#include "programs/RightsGoing.h"

namespace {

using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

class ObjectChanges : public RightsGoing {
 protected:
  void expectDone(const Words& words) const {
    const ProgramResult result = run(words);
    EXPECT_EQ(result.status, 0) << result.err;
  }
  // The line that says so holds none of what is hidden.
  void expectRefusedHiding(const Words& hidden, const Words& words, int status, const std::string& told) const {
    const std::string line = expectRefused(words, status, told);
    for (const std::string& text : hidden) {
      EXPECT_THAT(line, Not(HasSubstr(text)));
    }
  }
  std::string object(unsigned int id) const {
    return value("SELECT type || ' ' || name || ' ' || content FROM named_object WHERE id = " + std::to_string(id));
  }

  // So many objects of each type that has lists of its own, and as many of another.
  void addObjects(int count) const {
    std::string rows;
    for (int i = 0; i < count; ++i) {
      rows += (i == 0 ? "" : ", ") + std::string("(1, 'n', 'c'), (3, 'n', 'c'), (5, 'n', '')");
    }
    session()->run("INSERT INTO named_object (type, name, content) VALUES " + rows);
  }

  // How many transactions of PostgreSQL a command makes, as told in another database. A session's are counted by the
  // time it is gone.
  int transactionsOf(const Words& command, zaroruntime::SqlSession& observer) const {
    const std::string database = value("SELECT current_database()");
    const auto count = [&] {
      while (observer.value("SELECT count(*) FROM pg_stat_activity WHERE datname = '" + database + "'") != "0") {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      return std::stoi(
          observer.value("SELECT xact_commit + xact_rollback FROM pg_stat_database WHERE datname = '" + database + "'")
              .value_or("0"));
    };
    const int before = count();
    expectDone(command);
    return count() - before;
  }

  // Runs commands side by side, `rounds` of each, and answers the last words of each that was acknowledged.
  std::vector<Words> runSideBySide(std::size_t count, int rounds,
                                   const std::function<Words(std::size_t which, int round)>& command) const {
    std::vector<Words> acknowledged(count);
    std::vector<std::thread> threads;
    for (std::size_t which = 0; which < count; ++which) {
      threads.emplace_back([&, which] {
        for (int round = 0; round < rounds; ++round) {
          const Words words = command(which, round);
          if (run(words).status == 0) {
            acknowledged[which].push_back(words.back());
          }
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    return acknowledged;
  }
};

TEST_P(ObjectChanges, changesOfDifferentPartsAtATimeAreAllKept) {
  const char* const options[] = {"--name", "--content"};
  const auto last = runSideBySide(2, 15, [&](std::size_t which, int round) {
    return Words{"object", "modify", "--as", "sales-admin", "3", options[which], "x" + std::to_string(round)};
  });
  ASSERT_EQ(last[0].size(), 15u);
  ASSERT_EQ(last[1].size(), 15u);
  EXPECT_EQ(object(3), "3 x14 x14");
}

TEST_P(ObjectChanges, addingAtATimeGivesEveryObjectItsOwners) {
  runSideBySide(3, 5, [&](std::size_t which, int round) {
    return Words{"object",      "add",    "--as",
                 "sales-admin", "--type", "1",
                 "--content",   "",       "n" + std::to_string(which) + "." + std::to_string(round)};
  });
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE name LIKE 'n%.%'"), "15");
  EXPECT_EQ(value("SELECT count(*) FROM named_object_owner WHERE object_id > 11"), "45");
}

TEST_P(ObjectChanges, objectWhoseOwnersFailIsNotStored) {
  writeFile("sql/ui_AddEntityNamedObj.sql", "INSERT INTO nowhere VALUES(%u,%u,%d)");
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", "n"}, 69, "the object \"n\" was not added: ");
  EXPECT_EQ(value("SELECT count(*) FROM named_object"), "11");
}

TEST_P(ObjectChanges, failedReadBackStoresNothing) {
  writeFile("sql/ui_GetNamedObjBlob.sql", "SELECT 'x' AS \"Content\", 'y' AS \"Name\" FROM named_object WHERE id=%u");
  const std::string before = object(3);
  expectRefused({"object", "modify", "--as", "sales-admin", "3", "--content", "z"}, 65,
                "does not come back so; nothing is changed");
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "1", "--content", "z", "n"}, 65,
                "does not come back so; nothing is changed");
  EXPECT_EQ(object(3), before);
  EXPECT_EQ(value("SELECT count(*) FROM named_object"), "11");
}

TEST_P(ObjectChanges, nobodyEntersTheNamesOfTheSystem) {
  const std::string told = "begins with \"OPP:\", as only the system's quarantine area does";
  for (const char* admin : {"admin", "postmaster", "sales-admin"}) {
    for (const char* type : {"quarantine", "group", "1"}) {
      expectRefused({"object", "add", "--as", admin, "--type", type, "OPP:A"}, 64, told);
    }
    expectRefused({"object", "modify", "--as", admin, "3", "--name", "OPP:A"}, 64, told);
    expectRefused({"object", "modify", "--as", admin, "1", "--name", "OPP:B"}, 64, told);
  }
  expectDone({"object", "add", "--as", "sales-admin", "--type", "quarantine", "opp:a"});
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE substr(name, 1, 4) = 'OPP:'"), "1");
}

TEST_P(ObjectChanges, systemAreaIsTheRootsAndOnlyItsContentChanges) {
  const Words changes[] = {
      {"modify", "--content", "days=1"}, {"modify", "--name", "Area"}, {"modify", "--type", "4"}, {"remove"}};
  for (const char* admin : {"postmaster", "sales-admin"}) {  // the first belongs to the group that owns the area
    for (const Words& change : changes) {
      Words words = {"object", change.front(), "--as", admin, "1"};
      words.insert(words.end(), change.begin() + 1, change.end());
      expectRefusedHiding({"OPP:", "System"}, words, 1, std::string("\"") + admin + "\" sees no object 1");
    }
  }
  EXPECT_EQ(object(1), "3 OPP:System quarantine days=30;notify=no");
  expectRefused({"object", "modify", "--as", "admin", "1", "--name", "Area"}, 77, "keeps its name and type");
  expectRefused({"object", "modify", "--as", "admin", "1", "--type", "4"}, 77, "keeps its name and type");
  expectRefused({"object", "remove", "--as", "admin", "1"}, 77, "is the system's, and is not removed");
  expectDone({"object", "modify", "--as", "admin", "1", "--content", "days=1"});
  EXPECT_EQ(object(1), "3 OPP:System quarantine days=1");
}

TEST_P(ObjectChanges, oldestOfSeveralSystemAreasCountsAndTheRootRemovesTheOthers) {
  session()->run("INSERT INTO named_object (type, name, content) VALUES (3, 'OPP:A false one', 'days=0')");
  EXPECT_EQ(linesOf(run({"quarantine", "list", "--as", "postmaster"}).out).back(),
            "1\tOPP:System quarantine\tno\tno\tdays=30;notify=no");
  EXPECT_EQ(linesOf(run({"quarantine", "list", "--as", "admin"}).out).back(),
            "1\tOPP:System quarantine\tno\tyes\tdays=30;notify=no");
  const ProgramResult checked = run({"check"});
  EXPECT_EQ(checked.status, 78);
  EXPECT_THAT(checked.out, HasSubstr("more than one with the system's name (\"OPP:\"), of which the oldest counts "
                                     "(zaroctl object remove --as ROOT ID removes another): 1 (\"OPP:System quarantine\"), "
                                     "12 (\"OPP:A false one\")"));
  expectRefused({"object", "remove", "--as", "postmaster", "12"}, 1, "sees no object 12");
  expectDone({"object", "remove", "--as", "admin", "12"});
  EXPECT_EQ(run({"check"}).status, 0);
  session()->run("DELETE FROM named_object WHERE id = 1");
  EXPECT_THAT(run({"check"}).out, HasSubstr("no quarantine area has the system's name (\"OPP:\"): "));
}

TEST_P(ObjectChanges, noOtherObjectBecomesASystemArea) {
  session()->run("INSERT INTO named_object (type, name, content) VALUES (5, 'OPP:x', '')");
  for (const char* type : {"quarantine", "1"}) {
    expectRefused({"object", "modify", "--as", "admin", "12", "--type", type}, 77, "was not changed: rename it first");
  }
  EXPECT_EQ(object(12), "5 OPP:x ");
  expectDone({"object", "modify", "--as", "admin", "12", "--type", "quarantine", "--name", "x"});
  EXPECT_EQ(object(12), "3 x ");
}

TEST_P(ObjectChanges, objectInUseKeepsItsType) {
  expectRefused({"object", "modify", "--as", "postmaster", "2", "--type", "1"}, 77,
                "was not changed: it keeps its type while in use by a rule", {"Hold confidential"});
  EXPECT_THAT(object(2), testing::StartsWith("3 "));
}

TEST_P(ObjectChanges, nameOfAGroupHasRoomInTheStatements) {
  const std::string quotes(41, '\'');
  expectRefused({"object", "add", "--as", "sales-admin", "--type", "group", quotes}, 64, "has more than 40 quotes");
  expectRefused({"object", "modify", "--as", "sales-admin", "6", "--name", quotes}, 64, "has more than 40 quotes");
  EXPECT_EQ(value("SELECT count(*) FROM named_object"), "11");
  expectDone({"object", "add", "--as", "sales-admin", "--type", "1", quotes});
}

TEST_P(ObjectChanges, refusalsShowNothingOfWhatIsNotSeen) {
  const Words hidden = {"Company", "Hold confidential", "example.test", "does not", "code"};
  for (const Words& words : {Words{"object", "show", "--as", "customer-admin", "2"},
                             Words{"object", "modify", "--as", "customer-admin", "2", "--content", "x"},
                             Words{"object", "remove", "--as", "customer-admin", "2"}}) {
    expectRefusedHiding(hidden, words, 1, "\"customer-admin\" sees no object 2; see zaroctl object why");
  }
  expectRefused({"object", "remove", "--as", "customer-admin", "99"}, 1,
                "\"customer-admin\" sees no object 99; see zaroctl object why");
  session()->run("DELETE FROM named_object_owner WHERE object_id = 11");
  expectRefusedHiding({"Office"}, {"object", "remove", "--as", "sales-admin", "11"}, 1, "sees no object 11");
}

TEST_P(ObjectChanges, useByARuleIsToldBeforeTheRightsThatLack) {
  session()->run("INSERT INTO policy_rule_object (rule_id, object_id) VALUES (2, 10)");
  expectRefused({"object", "modify", "--as", "sales-admin", "10", "--name", "x"}, 77, "(code 6024)");
  expectRefused({"object", "remove", "--as", "sales-admin", "10"}, 77, "was not removed: in use (code 6025) by a rule");
}

TEST_P(ObjectChanges, areMadeByRightsThatLastToTheEndOfTheChange) {
  const std::string allGo = removalOfGroups("sales-admin");
  const std::string ownersGo = allGo + " AND entity_id IN (SELECT id FROM entity WHERE type = 6)";
  const std::string rootGoes = "UPDATE administrator SET is_root = 0 WHERE name = 'admin'";
  const Words add = {"object", "add", "--as", "sales-admin", "--type", "1", "n"};
  const Words addGroup = {"group", "add", "--as", "sales-admin", "n"};
  const struct {
    const char* label;
    std::string removal;
    Words words;
    int status;
    const char* told;
  } kRows[] = {
      {"every managing group", allGo, add, 1, "is assigned to no managing group"},
      {"every managing group, for a group", allGo, addGroup, 1, "is assigned to no managing group"},
      {"the administrator", "DELETE FROM administrator WHERE name = 'sales-admin'", add, 1, "no administrator named"},
      {"owners of what is modified",
       ownersGo,
       {"object", "modify", "--as", "sales-admin", "3", "--content", "x"},
       1,
       "sees no object 3"},
      {"owners of what is removed", ownersGo, {"object", "remove", "--as", "sales-admin", "3"}, 1, "sees no object 3"},
      {"owners of a group",
       ownersGo,
       {"group", "modify", "--as", "sales-admin", "Sales team", "--add", "new@example.test"},
       77,
       "may not edit the address group"},
      {"the root's rights", rootGoes, {"object", "modify", "--as", "admin", "1", "--content", "x"}, 1, "sees no object 1"},
  };
  const auto everything = [&] {
    std::string text =
        value("SELECT count(*) FROM named_object_owner") + value("SELECT count(*) FROM address_group_member");
    for (const auto& row : session()->rows("SELECT name, content FROM named_object ORDER BY id")) {
      text += row[0].value_or("") + " " + row[1].value_or("") + "; ";
    }
    return text;
  };
  const std::string before = everything();
  saveDatabase();
  for (const auto& row : kRows) {
    const ProgramResult result = runWhileRightsGo(row.removal, "named_object", row.words);
    EXPECT_EQ(result.status, row.status) << row.label << ": " << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.told)) << row.label;
    EXPECT_EQ(everything(), before) << row.label;
    restoreDatabase();
  }
}

TEST_P(ObjectChanges, refusalsNameWhatIsStored) {
  expectRefusedHiding({"Another"}, {"object", "modify", "--as", "sales-admin", "10", "--name", "Another"}, 77,
                      "may not edit object 10 (\"Company disclaimer\") (code 6024)");
  expectRefusedHiding({"SQL"}, {"object", "modify", "--as", "sales-admin", "6", "--name", "Another", "--type", "1"}, 77,
                      "object 6 (\"Sales team\") was not changed: an address group with members stays one");
  expectRefusedHiding({"SQL"}, {"object", "modify", "--as", "sales-admin", "3", "--name", std::string(513, 'x')}, 64,
                      "is longer than 512 characters");
}

TEST_P(ObjectChanges, listTellsWhatTheOperationsWouldDo) {
  const ProgramResult listed = run({"object", "list", "--as", "postmaster", "--json"});
  ASSERT_EQ(listed.status, 0) << listed.err;
  int differing = 0;
  for (const auto& row : nlohmann::json::parse(listed.out)) {
    const std::string id = row["id"].dump();
    const ProgramResult modified = run({"object", "modify", "--as", "postmaster", id, "--content", "x"});
    EXPECT_EQ(modified.status == 0, row["modifiable"].get<bool>()) << row << modified.err;
    differing += row["editable"] != row["modifiable"] ? 1 : 0;
  }
  EXPECT_GT(differing, 0);
}

TEST_P(ObjectChanges, policyTextHoldsManyObjects) {
  addObjects(100);
  EXPECT_THAT(run({"object", "policy-text"}).out, testing::StartsWith("311;0;1;3;21;OPP:System quarantine;"));
}

struct TransactionsCase {
  std::vector<std::string> command;
  int perObject;  // statements of the library's, each a transaction of its own; a connection out of the pool is another
};

const TransactionsCase kTransactionsCases[] = {
    {{"object", "policy-text"}, 0},
    {{"object", "list", "--type", "1", "--as", "admin"}, 1},
    {{"quarantine", "list", "--as", "admin"}, 2},
    {{"group", "list", "--as", "admin"}, 1},
};

TEST_P(ObjectChanges, listsTakeNoConnectionForEachObject) {
  if (GetParam() == zarotest::Dialect::SQLite) {
    GTEST_SKIP() << "SQLite counts no transactions";
  }
  constexpr int kMore = 300;
  const zarotest::ServerDatabase elsewhere;
  const auto observer = elsewhere.session();
  std::vector<int> few;
  for (const auto& test : kTransactionsCases) {
    few.push_back(transactionsOf(test.command, *observer));
  }
  addObjects(kMore);
  for (std::size_t i = 0; i < few.size(); ++i) {
    const auto& test = kTransactionsCases[i];
    const int more = transactionsOf(test.command, *observer) - few[i];
    // To the nearest: the server has some of its own, when it tidies up.
    EXPECT_EQ((more + kMore / 2) / kMore, test.perObject) << test.command[1] << ": " << more;
  }
}

ZARO_ON_EVERY_DATABASE(ObjectChanges);

}  // namespace
