// zaroctl backup: a copy of the embedded database.
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "programs/ProgramTest.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::SizeIs;
using zarotest::Dialect;
using zarotest::linesOf;
using zarotest::ProgramResult;

class Backup : public zarotest::SampleInstallation {
 protected:
  void SetUp() override {
    SampleInstallation::SetUp();
    fs::create_directory(directory().path("copies"));
  }
  std::string copy() const { return directory().path("copies/copy.db"); }
  std::size_t copies() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory().path("copies")), {}));
  }
  // The installation with the copy for its database.
  void putBack() const {
    for (const char* beside : {"-wal", "-shm"}) {
      fs::remove(homeFile("data/zaro.db") + beside);
    }
    fs::copy_file(copy(), homeFile("data/zaro.db"), fs::copy_options::overwrite_existing);
  }
};

TEST_P(Backup, copyHoldsEverythingAndIsItsOwnersAlone) {
  const std::string before = run({"export"}).out;
  const ProgramResult made = run({"backup", copy()});
  EXPECT_EQ(made.status, 0) << made.err;
  EXPECT_THAT(linesOf(made.out), SizeIs(2));
  EXPECT_EQ(linesOf(made.out).front(), "file\t" + copy());
  struct stat status = {};
  ASSERT_EQ(stat(copy().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
  EXPECT_EQ(copies(), 1u);

  EXPECT_EQ(run({"admin", "remove", "auditor"}).status, 0);
  putBack();
  EXPECT_EQ(run({"export"}).out, before);
  EXPECT_EQ(run({"check"}).status, 0);
  EXPECT_EQ(run({"admin", "add", "next"}).status, 0);
}

// Whatever is written meanwhile, a change is in the copy as a whole or not at all.
TEST_P(Backup, isTakenWhileOthersWrite) {
  std::atomic<bool> over{false};
  std::thread writer([&] {
    for (int round = 0; !over || round == 0; ++round) {
      const std::string name = "group " + std::to_string(round);
      EXPECT_EQ(run({"group", "add", "--as", "sales-admin", name, "a@b.test", "b@b.test"}).status, 0);
    }
  });
  for (int round = 0; round < 5; ++round) {
    fs::remove(copy());
    EXPECT_EQ(run({"backup", copy()}).status, 0);
  }
  over = true;
  writer.join();
  putBack();
  EXPECT_EQ(value("SELECT count(*) FROM named_object WHERE name LIKE 'group %' AND 2 <> (SELECT count(*) FROM "
                  "address_group_member WHERE group_id = id)"),
            "0");
}

TEST_P(Backup, replacesNothing) {
  std::ofstream(copy()) << "mine";
  expectRefused({"backup", copy()}, 73, "copy.db: exists; a backup replaces nothing");
  EXPECT_EQ(zarotest::readFile(copy()), "mine");
  fs::remove(copy());
  fs::create_symlink("nowhere", copy());
  expectRefused({"backup", copy()}, 73, "exists");
  EXPECT_EQ(copies(), 1u);
}

TEST_P(Backup, placeWhereNoFileCanBeMadeIsTold) {
  expectRefused({"backup", directory().path("none") + "/copy.db"}, 73, "none: cannot make a file there: No such file");
}

TEST_P(Backup, copyThatIsNotSoundIsNotKept) {
  session()->run("DROP TABLE schema_version");
  const ProgramResult result = run({"backup", copy()});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("schema_version"));
  EXPECT_EQ(copies(), 0u);
}

TEST_P(Backup, fileThatMayNotGrowLeavesNothing) {
  zarotest::ProgramRun limited;
  limited.environment["ZARO_HOME"] = home();
  limited.largestFile = 40960;
  const ProgramResult result = zarotest::zaroctl({"backup", copy()}, limited);
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(linesOf(result.err), SizeIs(1));
  EXPECT_EQ(copies(), 0u);
}

INSTANTIATE_TEST_SUITE_P(, Backup, testing::Values(Dialect::SQLite), zarotest::dialectTestName);

class BackupOfAServer : public zarotest::SampleInstallation {};

TEST_P(BackupOfAServer, isLeftToItsOwnPrograms) {
  expectRefused({"backup", directory().path("copy.db")}, 77, "the database is on a server");
  EXPECT_FALSE(fs::exists(directory().path("copy.db")));
}

INSTANTIATE_TEST_SUITE_P(, BackupOfAServer, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

}  // namespace
