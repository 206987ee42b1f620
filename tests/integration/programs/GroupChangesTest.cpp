// Address groups that several programs change: what is acknowledged is there, what is not is not, and a change writes
// what it changes and no more.
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <thread>

#include "programs/ProgramTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zarotest::Dialect;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

std::string numbered(const std::string& name, int number) {
  return name + std::to_string(number) + "@b.test";
}

std::string lines(const std::string& name, int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    text += numbered(name, i) + "\n";
  }
  return text;
}

class GroupChanges : public zarotest::SampleInstallation {
 protected:
  Words members(const std::string& group) const {
    const ProgramResult result = run({"group", "show", group});
    EXPECT_EQ(result.status, 0) << result.err;
    return linesOf(result.out);
  }
  void mustRun(const Words& words, const std::string& input = {}) const {
    const ProgramResult result = run(words, input);
    EXPECT_EQ(result.status, 0) << result.err;
  }
  static void atTheSameTime(const std::vector<std::function<void()>>& works) {
    std::vector<std::thread> threads;
    threads.reserve(works.size());
    for (const auto& work : works) {
      threads.emplace_back(work);
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
  std::string write(const std::string& name, const std::string& text) const {
    writeFile(name, text);
    return homeFile(name);
  }
  // Has the database do something for every member that is added, or taken away.
  void onEveryMember(const std::string& when, const std::string& sqlite, const std::string& postgresql) const {
    if (GetParam() == Dialect::SQLite) {
      session()->run("CREATE TRIGGER observed_" + when.substr(when.find(' ') + 1) + " " + when +
                     " ON address_group_member BEGIN " + sqlite + "; END");
      return;
    }
    const std::string name = "observe_" + when.substr(when.find(' ') + 1);
    session()->run("CREATE FUNCTION " + name + " () RETURNS TRIGGER LANGUAGE plpgsql AS $$ BEGIN " + postgresql +
                   "; END $$");
    session()->run("CREATE TRIGGER observed_" + name + " " + when +
                   " ON address_group_member FOR EACH ROW EXECUTE FUNCTION " + name + " ()");
  }
};

TEST_P(GroupChanges, appendsAtTheSameTimeKeepEveryMember) {
  constexpr int kCount = 5000;
  const auto append = [&](const std::string& name) {
    const std::string file = write(name, lines(name, kCount));
    return [=] { mustRun({"group", "import", "--append", "Board", file}); };
  };
  mustRun({"group", "import", "Board", "-"});
  atTheSameTime({append("a"), append("b")});
  const Words found = members("Board");
  EXPECT_EQ(found.size(), 2u * kCount);
  for (const std::string name : {"a", "b"}) {
    std::string own;
    for (const std::string& address : found) {
      own += address.compare(0, 1, name) == 0 ? address + "\n" : "";
    }
    EXPECT_TRUE(own == lines(name, kCount)) << "members of " << name << " are missing or out of order";
  }
}

TEST_P(GroupChanges, editsOfMembersAtTheSameTimeAreAllThere) {
  constexpr int kRounds = 15;
  mustRun({"group", "import", "Board", "-"}, lines("gone", kRounds));
  const auto loop = [&](const std::string& option, const std::string& name) {
    return [=] {
      for (int i = 0; i < kRounds; ++i) {
        mustRun({"group", "modify", "--id", "5", option, numbered(name, i)});
      }
    };
  };
  const auto renaming = [&] {
    for (int i = 0; i < kRounds; ++i) {
      mustRun({"group", "modify", "--id", "5", "--name", "Board " + std::to_string(i)});
    }
  };
  atTheSameTime({loop("--add", "a"), loop("--remove", "gone"), loop("--add", "b"), renaming});
  Words found = members("Board " + std::to_string(kRounds - 1));
  std::stable_sort(found.begin(), found.end(), [](const auto& one, const auto& other) { return one[0] < other[0]; });
  std::string text;
  for (const std::string& address : found) {
    text += address + "\n";
  }
  EXPECT_EQ(text, lines("a", kRounds) + lines("b", kRounds));
}

TEST_P(GroupChanges, groupGoesOnceAndChangesAfterwardsAreNone) {
  for (int round = 0; round < 5; ++round) {
    mustRun({"group", "add", "--as", "sales-admin", "Shared", "first@b.test"});
    std::vector<int> removals(2);
    std::vector<int> edits(2);
    const auto removing = [&](std::size_t at) {
      return [&, at] { removals[at] = run({"group", "remove", "Shared"}).status; };
    };
    const auto editing = [&](std::size_t at) {
      return [&, at] { edits[at] = run({"group", "modify", "Shared", "--add", "next@b.test"}).status; };
    };
    atTheSameTime({editing(0), removing(0), editing(1), removing(1)});
    std::sort(removals.begin(), removals.end());
    EXPECT_THAT(removals, ElementsAre(0, 1));
    for (const int status : edits) {
      EXPECT_TRUE(status == 0 || status == 1) << status;
    }
    EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE name = 'Shared'"), "0");
    EXPECT_EQ(value("SELECT count(*) FROM address_group_member WHERE address = 'next@b.test'"), "0");
  }
}

TEST_P(GroupChanges, groupsOfOneNameAreAllAdded) {
  std::vector<std::string> printed(3);
  std::vector<std::function<void()>> works;
  for (std::size_t i = 0; i < printed.size(); ++i) {
    works.emplace_back([this, i, &printed] {
      printed[i] = run({"group", "add", "--as", "sales-admin", "Same", numbered("own", static_cast<int>(i))}).out;
    });
  }
  atTheSameTime(works);
  for (std::size_t i = 0; i < printed.size(); ++i) {
    const Words told = linesOf(printed[i]);
    ASSERT_EQ(told.size(), 3u);
    EXPECT_THAT(linesOf(run({"group", "show", "--id", told[0].substr(3)}).out),
                ElementsAre(numbered("own", static_cast<int>(i))));
  }
  EXPECT_EQ(value("SELECT count(*) FROM named_object_owner WHERE object_id IN (SELECT id FROM named_object WHERE name = "
                  "'Same')"),
            "9");
}

TEST_P(GroupChanges, groupThatIsRenamedWhileMembersAreReadIsNotChanged) {
  const std::string pipe = homeFile("members");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ProgramResult imported;
  std::thread importing([&] { imported = run({"group", "import", "Board", pipe}); });
  {
    std::ofstream members(pipe);  // as soon as the program reads
    mustRun({"group", "modify", "Board", "--name", "Directors"});
    members << "new@b.test\n";
  }
  importing.join();
  EXPECT_EQ(imported.status, 1) << imported.err;
  EXPECT_THAT(members("Directors"), testing::SizeIs(3));
}

TEST_P(GroupChanges, groupThatIsRenamedBeforeTheLockIsNotChanged) {
  if (GetParam() == Dialect::SQLite) {
    GTEST_SKIP() << "nobody sees who waits there";
  }
  for (const Words& change :
       {Words{"group", "modify", "Board", "--add", "new@b.test"}, Words{"group", "remove", "Board"}}) {
    const auto other = session();
    other->run("BEGIN");
    other->run("UPDATE named_object SET name = 'Directors' WHERE id = 5");
    ProgramResult changed;
    std::thread changing([&] { changed = run(change); });
    while (value("SELECT count(*) FROM pg_locks WHERE NOT granted") == "0") {
      std::this_thread::yield();
    }
    other->run("COMMIT");
    changing.join();
    EXPECT_EQ(changed.status, 1) << changed.err;
    EXPECT_THAT(changed.err, HasSubstr("the address group \"Board\" has another name by now"));
    EXPECT_THAT(members("Directors"), testing::SizeIs(3));
    mustRun({"group", "modify", "Directors", "--name", "Board"});
  }
}

TEST_P(GroupChanges, oneMemberIsOneRow) {
  mustRun({"group", "import", "Board", "-"}, lines("a", 1000));
  session()->run("CREATE TABLE observed (what TEXT)");
  onEveryMember("AFTER INSERT", "INSERT INTO observed VALUES ('added')",
                "INSERT INTO observed VALUES ('added'); RETURN NEW");
  onEveryMember("AFTER DELETE", "INSERT INTO observed VALUES ('gone')",
                "INSERT INTO observed VALUES ('gone'); RETURN OLD");
  mustRun({"group", "modify", "Board", "--add", "new@b.test"});
  EXPECT_EQ(value("SELECT count(*) FROM observed"), "1");
  mustRun({"group", "import", "--append", "Board", "-"}, "newer@b.test\n");
  EXPECT_EQ(value("SELECT count(*) FROM observed"), "2");
  mustRun({"group", "modify", "Board", "--remove", "a500@b.test"});
  EXPECT_EQ(value("SELECT count(*) FROM observed"), "3");
  mustRun({"group", "modify", "Board", "--name", "Directors"});
  EXPECT_EQ(value("SELECT count(*) FROM observed"), "3");
}

TEST_P(GroupChanges, whatIsNotStoredAsWrittenIsNoSuccess) {
  onEveryMember("BEFORE INSERT", "SELECT RAISE(IGNORE)", "RETURN NULL");
  const Words commands[] = {{"group", "modify", "Board", "--add", "a@b.test", "--name", "Directors"},
                            {"group", "import", "Board", "-"},
                            {"group", "add", "--as", "sales-admin", "Friends", "a@b.test"}};
  for (const Words& command : commands) {
    const ProgramResult result = run(command, "a@b.test\n");
    EXPECT_EQ(result.status, 65);
    EXPECT_THAT(result.err, HasSubstr("does not come back as it was written; nothing is changed"));
  }
  EXPECT_THAT(members("Board"), testing::SizeIs(3));
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE name = 'Friends'"), "0");
}

TEST_P(GroupChanges, failureInTheMiddleLeavesEverythingAsItWas) {
  onEveryMember("BEFORE INSERT", "SELECT RAISE(ABORT, 'no room') WHERE NEW.address = 'a4321@b.test'",
                "IF NEW.address = 'a4321@b.test' THEN RAISE EXCEPTION 'no room'; END IF; RETURN NEW");
  const std::string file = write("list", lines("a", 5000));
  const Words commands[] = {{"group", "import", "Board", file},
                            {"group", "import", "--append", "Board", file},
                            {"group", "modify", "Board", "--name", "x", "--remove", "chair@example.test", "--add",
                             "new@b.test", "--add", "a4321@b.test"},
                            {"group", "modify", "Board", "--name", "x", "--add", "new@b.test", "--remove", "no@b.test"}};
  for (const Words& command : commands) {
    EXPECT_THAT(run(command).status, testing::AnyOf(65, 69, 77)) << command[1];
    EXPECT_THAT(members("Board"), ElementsAre("chair@example.test", "treasurer@example.test", "secretary@example.test"));
  }
}

TEST_P(GroupChanges, lastPositionIsTold) {
  session()->run("UPDATE address_group_member SET position = 2147483647 WHERE group_id = 5 AND position = 3");
  const ProgramResult refused = run({"group", "modify", "Board", "--add", "a@b.test"});
  EXPECT_EQ(refused.status, 77);
  EXPECT_THAT(refused.err, HasSubstr("no member can stand behind the last of \"Board\"; export and import the group"));
  const std::string file = write("list", run({"group", "export", "Board"}).out);
  mustRun({"group", "import", "Board", file});
  mustRun({"group", "modify", "Board", "--add", "a@b.test"});
  EXPECT_THAT(members("Board"), testing::SizeIs(4));
}

ZARO_ON_EVERY_DATABASE(GroupChanges);

}  // namespace
