// The two layers of the settings, as the platform's classes answer from them.
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "GlobalSetting.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SettingsStore.h"
#include "support/LibraryTest.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::Pair;
using testing::SizeIs;
using ZARO::GlobalSettingIF;
using ZARO::GlobalSettingOnMem;
using zaroruntime::RuntimeError;
using zaroruntime::SettingLayer;
using zarotest::Dialect;

constexpr const char* kFile = "zaro.ini";

GlobalSettingOnMem& memory() {
  return *GlobalSettingOnMem::Instance(nullptr, true, nullptr, nullptr, nullptr, nullptr, true);
}

// "missing" when it cannot be read.
std::string inMemory(const char* section, const char* key) {
  std::string value = "missing";
  return memory().getItem(key, value, section, kFile) == 0 ? value : "missing";
}

std::map<std::string, std::string> stored(const char* section) {
  std::map<std::string, std::string> items;
  EXPECT_EQ(GlobalSettingIF().getItemsInSection(items, section, kFile), 0);
  return items;
}

// While it lives, this process may do what the gateway's user may: root may do everything.
class OrdinaryUser {
 public:
  OrdinaryUser() { EXPECT_TRUE(geteuid() != 0 || seteuid(65534) == 0); }
  ~OrdinaryUser() {
    EXPECT_EQ(seteuid(getuid()), 0);
    prctl(PR_SET_DUMPABLE, 1);  // or the search for leaks could not look at the process
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;
};

class SettingsStore : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  std::string path() const { return home().installation().settingsIni(); }
  std::string text() const { return zarotest::readFile(path()); }
  void writeText(const std::string& text, mode_t mode = 0644) const {
    home().directory().write("config/zaro.ini", text, mode);
  }

  void addRow(const std::string& section, const std::string& name, const std::string& value) const {
    home().sql("INSERT INTO global_setting (section, name, value) VALUES ('" + section + "', '" + name + "', '" +
               value + "')");
  }
  std::string row(const std::string& section, const std::string& name) const {
    return home().value("SELECT value FROM global_setting WHERE section='" + section + "' AND name='" + name + "'");
  }

  // Nothing listens, or nothing lies, where the database was.
  void takeDatabaseAway() const { setDataSource("nowhere"); }
  void giveDatabaseBack() const { setDataSource("zaro"); }

  // Lines logged so far at "error" or "warning".
  std::vector<std::string> logged(const std::string& level) const {
    std::vector<std::string> found;
    const std::string text = log();
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = text.find('\n', begin);
      const std::string line = text.substr(begin, end - begin);
      const std::size_t word = line.find("] " + level + ": ");
      if (word != std::string::npos) {
        found.push_back(line.substr(word + level.size() + 4));
      }
      begin = end == std::string::npos ? text.size() : end + 1;
    }
    return found;
  }
  void forgetLog() const { fs::remove(home().directory().path("log")); }
  // Another user can make the log anew.
  void openLogToEverybody() const {
    forgetLog();
    chmod(home().directory().path().c_str(), 0777);
  }

 private:
  void setDataSource(const std::string& name) const {
    std::string ini = zarotest::readFile(home().installation().databaseIni());
    const std::size_t begin = ini.find("DataSourceName=") + 15;
    ini.replace(begin, ini.find('\n', begin) - begin, name);
    home().directory().write("config/database.ini", ini, 0600);
  }
};

// --- Reading ---

TEST_P(SettingsStore, fileGoesBeforeTheTable) {
  writeText("[s]\nboth=file\nfile=1\nempty=\n");
  addRow("s", "both", "table");
  addRow("s", "table", "2");
  addRow("s", "empty", "table");
  addRow("t", "table", "3");
  inOwnProcess([&] {
    const std::map<std::string, std::string> wanted = {{"both", "file"}, {"file", "1"}, {"empty", ""}, {"table", "2"}};
    EXPECT_EQ(stored("s"), wanted);
    EXPECT_THAT(stored("t"), ElementsAre(Pair("table", "3")));
    std::map<std::string, std::string> items;
    EXPECT_EQ(memory().getItemsInSection(items, "s"), 0);
    EXPECT_EQ(items, wanted);
    EXPECT_EQ(inMemory("t", "table"), "3");
  });
  EXPECT_EQ(log(), "");
  const zaroruntime::Settings settings = zaroruntime::readSettings(home().installation());
  EXPECT_EQ(settings.databaseFailure, "");
  EXPECT_EQ(settings.find("s", "both")->layer, SettingLayer::File);
  EXPECT_EQ(settings.find("s", "table")->layer, SettingLayer::Database);
  EXPECT_EQ(settings.find("s", "none"), nullptr);
  EXPECT_EQ(settings.find("none", "both"), nullptr);
}

TEST_P(SettingsStore, namesAreComparedByteByByte) {
  writeText("[s]\nk=1\n");
  addRow("S", "k", "2");
  addRow("s", "K", "3");
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("s", "k"), "1");
    EXPECT_EQ(inMemory("S", "k"), "2");
    EXPECT_EQ(inMemory("s", "K"), "3");
    EXPECT_EQ(inMemory("S", "K"), "missing");
  });
}

TEST_P(SettingsStore, itemsTakeThePlaceOfThoseThatAreThere) {
  writeText("[s]\nk=new\n");
  inOwnProcess([&] {
    std::map<std::string, std::string> items = {{"k", "old"}, {"other", "stays"}};
    EXPECT_EQ(memory().getItemsInSection(items, "s"), 0);
    EXPECT_THAT(items, ElementsAre(Pair("k", "new"), Pair("other", "stays")));
    items["k"] = "old";
    EXPECT_EQ(GlobalSettingIF().getItemsInSection(items, "s", kFile), 0);
    EXPECT_THAT(items, ElementsAre(Pair("k", "new"), Pair("other", "stays")));
  });
}

TEST_P(SettingsStore, sectionThatIsNowhereIsEmpty) {
  inOwnProcess([&] {
    EXPECT_THAT(stored("nowhere"), IsEmpty());
    std::map<std::string, std::string> items;
    EXPECT_EQ(memory().getItemsInSection(items, "nowhere"), 0);
    EXPECT_THAT(items, IsEmpty());
    std::string value = "before";
    EXPECT_NE(memory().getItem("k", value, "nowhere", kFile), 0);
    EXPECT_EQ(value, "before");
  });
}

TEST_P(SettingsStore, nullInTheTableIsNoValue) {
  home().sql("DROP TABLE global_setting");
  home().sql("CREATE TABLE global_setting (section TEXT, name TEXT, value TEXT)");
  home().sql("INSERT INTO global_setting VALUES ('s', 'null', NULL), ('s', NULL, 'x'), (NULL, 'k', 'x'), ('s', 'k', '1')");
  inOwnProcess([&] { EXPECT_THAT(stored("s"), ElementsAre(Pair("k", "1"))); });
  EXPECT_EQ(log(), "");
}

TEST_P(SettingsStore, oddTextsComeThroughBothLayers) {
  const std::vector<std::string> values = {"o'brien",    "''",     "100%", "%s%n%d", "a;b#c",
                                           "[x]",        "a=b",    "\\",   "\"q\"",  "?",
                                           "{fn now()}", "äé漢字", "$1",   "--",     std::string(5000, 'v')};
  inOwnProcess([&] {
    GlobalSettingIF store;
    for (const std::string& value : values) {
      EXPECT_EQ(store.setItem("k", value.c_str(), "s", kFile), 0) << value;
      EXPECT_EQ(inMemory("s", "k"), value);
    }
    for (const std::string& name : {std::string("o'brien"), std::string("a b"), std::string("%s"), std::string("ä")}) {
      EXPECT_EQ(store.setItem(name.c_str(), "1", name.c_str(), kFile), 0);
      EXPECT_EQ(inMemory(name.c_str(), name.c_str()), "1");
    }
  });
  EXPECT_EQ(row("s", "k"), values.back());
  EXPECT_EQ(row("o''brien", "o''brien"), "1");
  EXPECT_EQ(log(), "");
}

// --- Writing ---

TEST_P(SettingsStore, writingGoesToBothLayersAndChangesOneLine) {
  const std::string before = text();
  inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0); });
  std::string wanted = before;
  wanted.replace(wanted.find("threads=16"), 10, "threads=17");
  EXPECT_EQ(text(), wanted);
  EXPECT_EQ(row("policy_server", "threads"), "17");
  EXPECT_EQ(log(), "");
}

TEST_P(SettingsStore, writingAgainReplacesInBothLayers) {
  inOwnProcess([&] {
    GlobalSettingIF store;
    EXPECT_EQ(store.setItem("new", "1", "s", kFile), 0);
    EXPECT_EQ(store.setItem("new", "2", "s", kFile), 0);
  });
  EXPECT_THAT(text(), HasSubstr("[s]\nnew=2\n"));
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "1");
  EXPECT_EQ(row("s", "new"), "2");
}

TEST_P(SettingsStore, permissionsOfTheFileStay) {
  chmod(path().c_str(), 0640);
  inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("k", "v", "s", kFile), 0); });
  struct stat status = {};
  ASSERT_EQ(stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_P(SettingsStore, newLockIsForThoseWhoMayWriteTheFile) {
  const std::pair<mode_t, mode_t> modes[] = {{0644, 0600}, {0664, 0660}, {0640, 0600}, {0666, 0666}};
  for (const auto& [mode, want] : modes) {
    fs::remove(path() + ".lock");
    chmod(path().c_str(), mode);
    inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("k", "v", "s", kFile), 0); });
    struct stat status = {};
    ASSERT_EQ(stat((path() + ".lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, want);
  }
}

TEST_P(SettingsStore, ownerOfTheFileStaysWhenRootWrites) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  ASSERT_EQ(chown(path().c_str(), 65534, 65534), 0);
  inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("k", "v", "s", kFile), 0); });
  for (const std::string& file : {path(), path() + ".lock"}) {
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 65534u) << file;
  }
}

TEST_P(SettingsStore, whatAKilledWriterLeftIsTakenOver) {
  home().directory().write("config/zaro.ini.new", "half a fi", 0400);
  inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("k", "v", "s", kFile), 0); });
  EXPECT_FALSE(fs::exists(path() + ".new"));
  EXPECT_THAT(text(), HasSubstr("[s]\nk=v\n"));
}

TEST_P(SettingsStore, namesDoNotPileUp) {
  inOwnProcess([&] {
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(GlobalSettingIF().setItem("k", std::to_string(i).c_str(), "s", kFile), 0);
    }
  });
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(home().directory().path("config"))) {
    names.push_back(entry.path().filename().string());
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre("database.ini", "odbc.ini", "zaro.ini", "zaro.ini.lock"));
}

struct Refused {
  const char* label;
  const char* section;
  const char* key;
  const char* value;
  const char* file;
  const char* why;
};

const Refused kRefused[] = {
    {"line end", "s", "k", "a\nb", kFile, "line ends and NUL cannot be stored"},
    {"blank at the end", "s", "k", "a ", kFile, "blanks at the beginning or the end cannot be stored"},
    {"sign in the key", "s", "a=b", "v", kFile, "not a name that an ini file can hold"},
    {"sign in the section", "a]b", "k", "v", kFile, "not a name that an ini file can hold"},
    {"no section", nullptr, "k", "v", kFile, "no section is named"},
    {"no key", "s", nullptr, "v", kFile, "no key is named"},
    {"no value", "s", "k", nullptr, kFile, "no value is named"},
    {"other file", "s", "k", "v", "database.ini", "database.ini: settings are kept in zaro.ini alone"},
};

TEST_P(SettingsStore, whatCannotBeStoredIsRefusedInOneLine) {
  const std::string before = text();
  for (const Refused& c : kRefused) {
    SCOPED_TRACE(c.label);
    forgetLog();
    inOwnProcess([&] {
      EXPECT_NE(GlobalSettingIF().setItem(c.key, c.value, c.section, c.file), 0);
      EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr(c.why));
    });
    EXPECT_THAT(logged("error"), ElementsAre(AllOf(testing::StartsWith("GlobalSettingIF: "), HasSubstr(c.why))));
    EXPECT_EQ(text(), before);
    EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "0");
  }
}

TEST_P(SettingsStore, readingTakesNoOtherFileAndNoNull) {
  inOwnProcess([&] {
    GlobalSettingIF store;
    std::map<std::string, std::string> items;
    std::string value = "before";
    EXPECT_NE(store.getItemsInSection(items, "s", "other.ini"), 0);
    EXPECT_NE(store.getItemsInSection(items, nullptr, kFile), 0);
    EXPECT_EQ(store.getItemsInSection(items, "s", nullptr), 0);
    EXPECT_NE(memory().getItemsInSection(items, nullptr), 0);
    EXPECT_NE(memory().getItem(nullptr, value, "s", kFile), 0);
    EXPECT_NE(memory().getItem("k", value, nullptr, kFile), 0);
    EXPECT_NE(memory().getItem("k", value, "s", "other.ini"), 0);
    EXPECT_EQ(memory().getItem("threads", value, "policy_server", nullptr), 0);
    EXPECT_EQ(value, "16");
    EXPECT_THAT(items, IsEmpty());
  });
}

// --- Without the database ---

TEST_P(SettingsStore, fileAnswersAloneWhileTheDatabaseIsDown) {
  addRow("s", "k", "table");
  takeDatabaseAway();
  inOwnProcess([&] {
    EXPECT_EQ(stored("policy_server").at("threads"), "16");
    EXPECT_THAT(stored("s"), IsEmpty());
  });
  ASSERT_THAT(logged("warning"), SizeIs(2));
  EXPECT_THAT(logged("warning")[0],
              AllOf(HasSubstr("GlobalSettingIF: zaro.ini answers alone: "), HasSubstr("no section [nowhere]")));
  EXPECT_THAT(logged("error"), IsEmpty());
}

TEST_P(SettingsStore, copyInMemoryWarnsOnceOfADatabaseThatIsDown) {
  takeDatabaseAway();
  inOwnProcess([&] {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(inMemory("policy_server", "threads"), "16");
      EXPECT_TRUE(memory().isLoaded());
    }
  });
  EXPECT_THAT(logged("warning"), ElementsAre(HasSubstr("GlobalSettingOnMem: zaro.ini answers alone: ")));
  EXPECT_THAT(logged("error"), IsEmpty());
}

TEST_P(SettingsStore, copyInMemoryFindsTheDatabaseAgainWithTheNextChangeOfTheFile) {
  addRow("s", "k", "table");
  takeDatabaseAway();
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("s", "k"), "missing");
    giveDatabaseBack();
    fs::last_write_time(path(), fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(inMemory("s", "k"), "table");
  });
}

TEST_P(SettingsStore, copyInMemoryKeepsSharedSettingsWhileTheDatabaseIsDown) {
  addRow("s", "k", "table");
  addRow("policy_server", "threads", "99");
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("s", "k"), "table");
    takeDatabaseAway();
    std::string changed = text();
    changed.replace(changed.find("threads=16\n"), 11, "");
    writeText(changed + "[new]\nk=file\n");
    EXPECT_EQ(inMemory("new", "k"), "file");
    EXPECT_EQ(inMemory("s", "k"), "table");
    EXPECT_EQ(inMemory("policy_server", "threads"), "99") << "which the file had hidden";
  });
  EXPECT_THAT(logged("warning"), ElementsAre(AllOf(HasSubstr("GlobalSettingOnMem: shared settings stay as they were"),
                                                   HasSubstr("no section [nowhere]"))));
}

TEST_P(SettingsStore, nothingIsWrittenWhileTheDatabaseIsDown) {
  const std::string before = text();
  takeDatabaseAway();
  inOwnProcess([&] { EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0); });
  EXPECT_EQ(text(), before);
  EXPECT_THAT(logged("error"), ElementsAre(AllOf(HasSubstr("setting [policy_server] threads is not written: "),
                                                 HasSubstr("no section [nowhere]"))));
}

TEST_P(SettingsStore, rowThatSomebodyHoldsIsAFailureInTime) {
  addRow("policy_server", "threads", "99");
  const std::string before = text();
  const auto begin = std::chrono::steady_clock::now();
  const auto other = home().session();
  other->run(GetParam() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN");
  other->run("UPDATE global_setting SET value='98'");
  inOwnProcess([&] { EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0); });
  other->run("ROLLBACK");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  EXPECT_EQ(text(), before);
  EXPECT_EQ(row("policy_server", "threads"), "99");
  EXPECT_THAT(logged("error"),
              ElementsAre(AllOf(HasSubstr("setting [policy_server] threads is not written: "),
                                HasSubstr(GetParam() == Dialect::SQLite ? "database is locked" : "timeout"))));
}

TEST_P(SettingsStore, missingTableIsAFailureOfTheDatabase) {
  home().sql("DROP TABLE global_setting");
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
    EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0);
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
  });
  EXPECT_THAT(logged("warning"), ElementsAre(HasSubstr("global_setting")));
  EXPECT_THAT(logged("error"), ElementsAre(HasSubstr("global_setting")));
}

TEST_P(SettingsStore, whatTheTableRefusesIsNotInTheFileEither) {
  const std::string before = text();
  inOwnProcess([&] { EXPECT_NE(GlobalSettingIF().setItem(std::string(256, 'k').c_str(), "v", "s", kFile), 0); });
  EXPECT_EQ(text(), before);
  EXPECT_THAT(logged("error"), SizeIs(1));
}

// --- Without the file ---

struct BrokenFile {
  const char* label;
  void (*breakIt)(const std::string& path);
  const char* why;
};

void replaceBy(const std::string& path, const std::string& text) {
  fs::remove(path);
  zarotest::TemporaryDirectory elsewhere;
  fs::copy(elsewhere.write("zaro.ini", text), path);
}

const BrokenFile kBrokenFiles[] = {
    {"vanished", [](const std::string& path) { fs::remove(path); }, "zaro.ini: cannot open: No such file or directory"},
    {"directory",
     [](const std::string& path) {
       fs::remove(path);
       fs::create_directory(path);
     },
     "zaro.ini: not a regular file"},
    {"line without a meaning",
     [](const std::string& path) { replaceBy(path, "[policy_server]\nthreads=16\nthreads 17\n"); },
     "zaro.ini: line 3 is neither a section, a key with a value nor a comment"},
    {"section that is not closed", [](const std::string& path) { replaceBy(path, "[policy_server\nthreads=16\n"); },
     "zaro.ini: line 1 is neither a section, a key with a value nor a comment"},
    {"no text", [](const std::string& path) { replaceBy(path, std::string("[policy_server]\0\x01", 17)); },
     "zaro.ini: not an ini file (it holds NUL bytes)"},
    {"unreadable", [](const std::string& path) { chmod(path.c_str(), 0); }, "zaro.ini: cannot open: Permission denied"},
};

TEST_P(SettingsStore, brokenFileFailsEveryOperationInOneLine) {
  const std::string before = text();
  addRow("policy_server", "threads", "99");
  chmod(home().directory().path("config").c_str(), 0777);
  openLogToEverybody();
  for (const BrokenFile& c : kBrokenFiles) {
    SCOPED_TRACE(c.label);
    fs::remove_all(path());
    writeText(before);
    c.breakIt(path());
    for (const int operation : {0, 1, 2}) {
      forgetLog();
      inOwnProcess([&] {
        const OrdinaryUser user;
        std::map<std::string, std::string> items;
        if (operation == 0) {
          EXPECT_FALSE(memory().isLoaded());
        } else if (operation == 1) {
          EXPECT_NE(GlobalSettingIF().getItemsInSection(items, "policy_server", kFile), 0);
        } else {
          EXPECT_NE(GlobalSettingIF().setItem("k", "v", "s", kFile), 0);
        }
        EXPECT_THAT(items, IsEmpty());
        EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr(c.why));
      });
      EXPECT_THAT(logged("error"), ElementsAre(HasSubstr(c.why))) << operation;
    }
    EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "1");
  }
}

TEST_P(SettingsStore, copyInMemoryGoesAndComesWithItsFile) {
  const std::string before = text();
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
    fs::rename(path(), path() + ".away");
    EXPECT_FALSE(memory().isLoaded());
    EXPECT_EQ(inMemory("policy_server", "threads"), "missing");
    fs::rename(path() + ".away", path());
    EXPECT_TRUE(memory().isLoaded());
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
    writeText("junk");
    EXPECT_FALSE(memory().isLoaded());
    writeText(before);
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
  });
}

TEST_P(SettingsStore, installationThatIsNotNamedIsAFailure) {
  inOwnProcess([&] {
    unsetenv("ZARO_HOME");
    EXPECT_FALSE(memory().isLoaded());
    EXPECT_NE(GlobalSettingIF().setItem("k", "v", "s", kFile), 0);
  });
  EXPECT_THAT(logged("error"), testing::Each(HasSubstr("ZARO_HOME is not set")));
  EXPECT_THAT(logged("error"), SizeIs(2));
}

TEST_P(SettingsStore, readOnlyFileIsReadAndNotWritten) {
  chmod(path().c_str(), 0444);  // which root could write all the same
  const std::string before = text();
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
    EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0);
  });
  EXPECT_EQ(text(), before);
  EXPECT_THAT(logged("error"), ElementsAre(HasSubstr("zaro.ini: cannot write: the file is read-only")));
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "0") << "the database is left alone too";
}

TEST_P(SettingsStore, fileOfAnotherUserIsReadAndNotWritten) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can be two users";
  }
  openLogToEverybody();
  inOwnProcess([&] {
    const OrdinaryUser user;
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
    EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0);
  });
  EXPECT_THAT(logged("error"), ElementsAre(HasSubstr("Permission denied")));
}

TEST_P(SettingsStore, newFileThatCannotBeMadeLeavesTheDatabaseAlone) {
  fs::create_directory(path() + ".new");
  const std::string before = text();
  inOwnProcess([&] { EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0); });
  EXPECT_EQ(text(), before);
  EXPECT_THAT(logged("error"), ElementsAre(HasSubstr("zaro.ini.new: cannot create: ")));
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "0");
}

TEST_P(SettingsStore, writerWhoCannotKeepTheOwnerIsRefused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can be two users";
  }
  chmod(path().c_str(), 0666);
  chmod(home().directory().path("config").c_str(), 0777);
  const std::string before = text();
  openLogToEverybody();
  inOwnProcess([&] {
    const OrdinaryUser user;
    EXPECT_NE(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0);
  });
  EXPECT_THAT(logged("error"), ElementsAre(HasSubstr("zaro.ini: cannot keep its owner and group")));
  EXPECT_EQ(text(), before);
  EXPECT_EQ(home().value("SELECT count(*) FROM global_setting"), "0");
  EXPECT_FALSE(fs::exists(path() + ".lock")) << "which would keep the owner out";
  EXPECT_FALSE(fs::exists(path() + ".new"));
}

TEST_P(SettingsStore, directoryThatCannotBeSyncedIsAWarning) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  for (const auto& entry : fs::recursive_directory_iterator(home().directory().path())) {
    ASSERT_EQ(chown(entry.path().c_str(), 65534, static_cast<gid_t>(-1)), 0);
  }
  chmod(home().directory().path("config").c_str(), 0300);  // names can be made in it, but it cannot be opened
  openLogToEverybody();
  inOwnProcess([&] {
    const OrdinaryUser user;
    EXPECT_EQ(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0);
  });
  EXPECT_THAT(text(), HasSubstr("\nthreads=17\n"));
  EXPECT_THAT(logged("warning"), ElementsAre(HasSubstr("the new settings are in place, but may be lost")));
  EXPECT_THAT(logged("error"), IsEmpty());
}

TEST_P(SettingsStore, symbolicLinkStaysAndItsFileIsReplaced) {
  const std::string real = home().directory().path("shared/zaro.ini");
  fs::create_directory(home().directory().path("shared"));
  fs::rename(path(), real);
  fs::create_symlink(real, path());
  inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("threads", "17", "policy_server", kFile), 0); });
  EXPECT_TRUE(fs::is_symlink(path()));
  EXPECT_FALSE(fs::is_symlink(real));
  EXPECT_THAT(zarotest::readFile(real), HasSubstr("\nthreads=17\n"));
  EXPECT_TRUE(fs::exists(real + ".lock"));
  EXPECT_FALSE(fs::exists(path() + ".lock"));
}

TEST_P(SettingsStore, lockThatIsThereStaysAsItIs) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  home().directory().write("config/zaro.ini.lock", "", 0640);
  ASSERT_EQ(chown((path() + ".lock").c_str(), 65534, 65534), 0);
  inOwnProcess([&] { EXPECT_EQ(GlobalSettingIF().setItem("k", "v", "s", kFile), 0); });
  struct stat status = {};
  ASSERT_EQ(stat((path() + ".lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534u);
  EXPECT_EQ(status.st_gid, 65534u);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

// --- The copy in memory ---

TEST_P(SettingsStore, copyFollowsEveryWayToChangeTheFile) {
  const std::string before = text();
  const auto withThreads = [&](const std::string& number) {
    std::string changed = before;
    return changed.replace(changed.find("threads=16"), 10, "threads=" + number);
  };
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("policy_server", "threads"), "16");
    writeText(withThreads("27"));  // in place, of the same length
    EXPECT_EQ(inMemory("policy_server", "threads"), "27");
    const fs::file_time_type time = fs::last_write_time(path());
    home().directory().write("config/other", withThreads("28"));
    fs::last_write_time(home().directory().path("config/other"), time);
    fs::rename(home().directory().path("config/other"), path());  // of the same length and time
    EXPECT_EQ(inMemory("policy_server", "threads"), "28");
    EXPECT_EQ(GlobalSettingIF().setItem("threads", "29", "policy_server", kFile), 0);
    EXPECT_EQ(inMemory("policy_server", "threads"), "29");
  });
}

TEST_P(SettingsStore, copyIsNotReadAgainWithoutAChange) {
  addRow("s", "k", "1");
  inOwnProcess([&] {
    EXPECT_EQ(inMemory("s", "k"), "1");
    home().sql("UPDATE global_setting SET value='2'");
    EXPECT_EQ(inMemory("s", "k"), "1");
    EXPECT_THAT(stored("s"), ElementsAre(Pair("k", "2"))) << "the store itself is";
    EXPECT_EQ(GlobalSettingIF().setItem("other", "x", "s", kFile), 0);
    EXPECT_EQ(inMemory("s", "k"), "2");
  });
}

TEST_P(SettingsStore, isOneObjectAndSafeFromAnyThread) {
  inOwnProcess([&] {
    constexpr int kThreads = 4;
    constexpr int kWrites = 10;
    EXPECT_EQ(&memory(), &memory());
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
      threads.emplace_back([&, number] {
        GlobalSettingIF store;
        const std::string key = "k" + std::to_string(number);
        for (int i = 1; i <= kWrites; ++i) {
          failures += store.setItem(key.c_str(), std::to_string(i).c_str(), "s", kFile) != 0 ? 1 : 0;
          failures += inMemory("s", key.c_str()) != std::to_string(i) ? 1 : 0;
          failures += inMemory("policy_server", "threads") != "16" ? 1 : 0;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_THAT(stored("s"), SizeIs(kThreads));
  });
  EXPECT_EQ(log(), "");
}

ZARO_ON_EVERY_DATABASE(SettingsStore);

}  // namespace
