// zaroctl check: each thing that can be wrong in an installation is found and told.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "ZaroRuntime/SchemaVersion.h"
#include "programs/ProgramTest.h"
#include "support/LoopbackServer.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;
using zarotest::Dialect;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::readFile;

constexpr const char* kDatabaseIni = "config/database.ini";
constexpr const char* kOdbcIni = "config/odbc.ini";
constexpr const char* kAdminId = "sql/ui_GetAdminId.sql";

class Check : public zarotest::SampleInstallation {
 protected:
  // Checks the installation, which must have findings; the wrong ones.
  std::vector<std::string> wrongs() {
    const ProgramResult result = run({"check"});
    EXPECT_THAT(result.status, testing::AnyOf(65, 75, 77, 78));  // that of the first finding
    EXPECT_EQ(result.err, "");
    const auto lines = linesOf(result.out);
    EXPECT_THAT(lines, Each(MatchesRegex("(ok|wrong)\t[a-z ]+\t.+")));
    std::vector<std::string> wrong;
    for (const std::string& line : lines) {
      if (line.compare(0, 6, "wrong\t") == 0) {
        wrong.push_back(line.substr(6));
      }
    }
    return wrong;
  }

  std::vector<std::string> only(const std::string& finding) { return {finding}; }

  // There is one finding, which begins so, and the command in its brackets mends it.
  void expectMendedByItsCommand(const std::string& begin) {
    const auto found = wrongs();
    ASSERT_EQ(found.size(), 1u) << testing::PrintToString(found);
    EXPECT_THAT(found[0], AllOf(StartsWith(begin), testing::EndsWith(")")));
    const std::size_t command = found[0].rfind('(') + 1;
    EXPECT_EQ(std::system(found[0].substr(command, found[0].size() - command - 1).c_str()), 0) << found[0];
    EXPECT_EQ(run({"check"}).status, 0);
  }
};

TEST_P(Check, freshInstallationHasNothingWrong) {
  const ProgramResult result = run({"check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  const auto lines = linesOf(result.out);
  EXPECT_THAT(lines, Each(StartsWith("ok\t")));
  for (const char* subject : {"installation", "files", "database settings", "key", "password", "policy settings",
                              "display language", "display strings", "data source", "connection", "schema", "entities",
                              "objects", "quarantine", "groups", "rules", "statement"}) {
    EXPECT_THAT(lines, Contains(StartsWith(std::string("ok\t") + subject + "\t")));
  }
  EXPECT_THAT(lines, Contains("ok\tschema\tversion " + std::to_string(zaroruntime::kSchemaVersion)));
  EXPECT_THAT(lines, Contains("ok\tstatement\t" + homeFile(kAdminId) + ": understood by the database"));
}

TEST_P(Check, rulesThatNoMailFilterCanApplyAreTold) {
  session()->run(
      "INSERT INTO policy_rule (name, enabled, actions) VALUES ('To nowhere', 1, '00000100000000000'), "
      "('Stamp', 1, '00000010000000000'), ('Disabled', 0, '00000010000000000')");
  const auto id = [&](const std::string& name) {
    return value("SELECT id FROM policy_rule WHERE name = '" + name + "'");
  };
  const auto wrong = wrongs();
  ASSERT_EQ(wrong.size(), 1u);
  EXPECT_THAT(wrong[0], StartsWith("rules\t"));
  EXPECT_THAT(wrong[0],
              testing::EndsWith("rule " + id("To nowhere") + " (\"To nowhere\"): Readdress needs an address; rule " +
                                id("Stamp") + " (\"Stamp\") wants Stamped, which a mail filter cannot do"));
}

TEST_P(Check, everyStatementFileOfTheInstallationIsLookedAt) {
  const std::string out = run({"check"}).out;
  for (const auto& entry : fs::directory_iterator(homeFile("sql"))) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, 3, "ui_") == 0) {
      EXPECT_THAT(out, HasSubstr("/sql/" + name + ": "));
    }
  }
}

TEST_P(Check, jsonHasOneObjectForEachFinding) {
  fs::remove(homeFile(kAdminId));
  const ProgramResult result = run({"check", "--json"});
  EXPECT_EQ(result.status, 78);
  const auto findings = nlohmann::json::parse(result.out);
  ASSERT_TRUE(findings.is_array());
  EXPECT_EQ(findings.at(0), (nlohmann::json{{"state", "ok"}, {"subject", "installation"}, {"finding", home() + "/"}}));
  const auto wrong = std::find_if(findings.begin(), findings.end(),
                                  [](const nlohmann::json& finding) { return finding.at("state") == "wrong"; });
  ASSERT_NE(wrong, findings.end());
  EXPECT_THAT(wrong->at("finding").get<std::string>(),
              StartsWith(homeFile(kAdminId) + ": cannot open: No such file or directory"));
}

TEST_P(Check, terminalGetsAnAlignedTable) {
  const ProgramResult result = zarotest::zaroctlOnTerminal({"check", "--home", home()}, "");
  EXPECT_EQ(result.status, 0);
  const auto lines = linesOf(result.out);
  ASSERT_GT(lines.size(), 2u);
  EXPECT_THAT(lines[0], MatchesRegex("STATE  SUBJECT +FINDING"));
  for (const std::string& line : lines) {
    EXPECT_EQ(line.substr(lines[0].find("FINDING") - 2, 2), "  ") << line;
  }
}

TEST_P(Check, changesNothing) {
  const auto rows = rowCounts();
  EXPECT_GT(rows.size(), 8u);
  EXPECT_EQ(rows.at("administrator"), "6");
  const auto files = zarotest::everythingIn(home());
  EXPECT_EQ(run({"check"}).status, 0);
  EXPECT_EQ(zarotest::everythingIn(home()), files);
  EXPECT_EQ(rowCounts(), rows);
}

TEST_P(Check, filesThatEverybodyMayWriteAreTold) {
  for (const char* name : {"config/zaro.ini", kAdminId, "resources/display.en.ini", "sql"}) {
    const std::string path = homeFile(name);
    fs::permissions(path, fs::perms::others_write, fs::perm_options::add);
    expectMendedByItsCommand("files\t" + path + ": every user may write it (chmod o-w " + path + ")");
  }
}

TEST_P(Check, directoryThatCannotBeListedIsTold) {
  const std::string path = homeFile("resources");
  fs::permissions(path, fs::perms::owner_exec | fs::perms::others_exec);
  zarotest::ProgramRun run;
  run.environment["ZARO_HOME"] = home();
  run.obeysPermissions = true;
  const ProgramResult result = zarotest::zaroctl({"check"}, run);
  fs::permissions(path, fs::perms::owner_all);
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(linesOf(result.out), Contains("wrong\tfiles\t" + path + ": cannot be listed: Permission denied"));
}

TEST_P(Check, missingDatabaseIniIsNamedAndTheRestStillChecked) {
  fs::remove(homeFile(kDatabaseIni));
  EXPECT_EQ(wrongs(), only("database settings\t" + homeFile(kDatabaseIni) + ": cannot open: No such file or directory"));
  EXPECT_THAT(run({"check"}).out, HasSubstr("ok\tstatement\t" + homeFile(kAdminId) + ": accepted"));
}

TEST_P(Check, unreadableDatabaseIniIsNamed) {
  if (geteuid() == 0) {
    fs::remove(homeFile(kDatabaseIni));
    fs::create_directory(homeFile(kDatabaseIni));  // root reads every file
    EXPECT_EQ(wrongs(), only("database settings\t" + homeFile(kDatabaseIni) + ": not a regular file"));
    return;
  }
  chmod(homeFile(kDatabaseIni).c_str(), 0);
  EXPECT_EQ(wrongs(), only("database settings\t" + homeFile(kDatabaseIni) + ": cannot open: Permission denied"));
}

TEST_P(Check, databaseIniWithoutItsSectionIsNamed) {
  for (const char* text : {"", "[database_settings]\nUserId=\n"}) {
    writeFile(kDatabaseIni, text);
    EXPECT_EQ(wrongs(),
              only("database settings\t" + homeFile(kDatabaseIni) + ": section [Database_Settings] is missing"));
  }
}

TEST_P(Check, lineOfDatabaseIniWithoutMeaningIsNamed) {
  for (const char* text : {"no section\n", "[Database_Settings\nUserId=\n"}) {
    writeFile(kDatabaseIni, text);
    EXPECT_EQ(wrongs(), only("database settings\t" + homeFile(kDatabaseIni) +
                             ": line 1 is neither a section, a key with a value nor a comment"));
  }
}

TEST_P(Check, databaseIniThatIsNoTextIsNamed) {
  writeFile(kDatabaseIni, std::string("[Database_Settings]\0\1\2", 22));
  EXPECT_EQ(wrongs(), only("database settings\t" + homeFile(kDatabaseIni) + ": not an ini file (it holds NUL bytes)"));
}

TEST_P(Check, everyMissingKeyIsNamed) {
  replaceLine(kDatabaseIni, "DataSourceName", "");
  replaceLine(kDatabaseIni, "UserId", "");
  replaceLine(kDatabaseIni, "Database=", "");
  const std::string section = "database settings\t" + homeFile(kDatabaseIni) + ": section [Database_Settings]: key ";
  EXPECT_EQ(wrongs(), (std::vector<std::string>{section + "DataSourceName is missing", section + "UserId is missing",
                                                section + "Database is missing"}));
}

TEST_P(Check, unknownDataSourceIsNamed) {
  replaceLine(kDatabaseIni, "DataSourceName", "DataSourceName=elsewhere");
  EXPECT_EQ(wrongs(),
            only("data source\t" + homeFile(kOdbcIni) + ": there is no section [elsewhere] for the data source"));
}

TEST_P(Check, missingOdbcIniIsNamed) {
  fs::remove(homeFile(kOdbcIni));
  EXPECT_EQ(wrongs(), only("data source\t" + homeFile(kOdbcIni) + ": cannot open: No such file or directory"));
}

TEST_P(Check, dataSourceWithoutDriverIsNamed) {
  replaceLine(kOdbcIni, "Driver", "");
  EXPECT_EQ(wrongs(), only("data source\t" + homeFile(kOdbcIni) + ": section [zaro]: key Driver is missing"));
}

TEST_P(Check, driverThatIsNotInstalledIsNamed) {
  replaceLine(kOdbcIni, "Driver", "Driver=libnosuchdriver.so");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], StartsWith("connection\tdata source zaro (driver libnosuchdriver.so): "));
  EXPECT_THAT(found[0], HasSubstr("libnosuchdriver.so' : file not found"));
}

TEST_P(Check, keyOpenToOthersIsNamed) {
  chmod(homeFile("config/secret.key").c_str(), 0640);
  EXPECT_EQ(wrongs(),
            only("key\t" + homeFile("config/secret.key") + ": the key file is open to group or others (chmod 600 " +
                 homeFile("config/secret.key") + ")"));
}

TEST_P(Check, missingZaroIniIsNamed) {
  fs::remove(homeFile("config/zaro.ini"));
  EXPECT_EQ(wrongs(),
            only("policy settings\t" + homeFile("config/zaro.ini") + ": cannot open: No such file or directory"));
}

TEST_P(Check, missingDisplayStringsAreNamed) {
  const std::string file = "resources/display.fr.ini";
  replaceLine(file, "Bcc=", "");
  replaceLine(file, "Veridock=", "Veridock=");
  EXPECT_EQ(wrongs(), only("display strings\t" + homeFile(file) +
                           ": section [UiDisplay]: key Bcc is missing; key Veridock is missing"));
}

TEST_P(Check, displayStringThatIsNotUtf8IsNamed) {
  const std::string file = "resources/display.de.ini";
  replaceLine(file, "Delete=", "Delete=L\xf6schen");
  EXPECT_EQ(wrongs(), only("display strings\t" + homeFile(file) +
                           ": section [UiDisplay]: key Delete is not UTF-8, or holds control characters"));
}

TEST_P(Check, missingEnglishDisplayStringsAreNamed) {
  fs::remove(homeFile("resources/display.en.ini"));
  expectMendedByItsCommand("display strings\t" + homeFile("resources/display.en.ini") +
                           ": cannot open: No such file or directory");
  fs::remove_all(homeFile("resources"));
  EXPECT_EQ(wrongs().size(), 1u);
}

TEST_P(Check, displayLanguageMustHaveItsFile) {
  replaceLine("config/zaro.ini", "language=", "language=de_AT");
  EXPECT_THAT(run({"check"}).out, HasSubstr("ok\tdisplay language\t\"de\"\n"));
  replaceLine("config/zaro.ini", "language=", "language=sv");
  EXPECT_EQ(wrongs(), only("display language\t" + homeFile("config/zaro.ini") +
                           ": section [display]: there are no display strings in \"sv\""));
}

TEST_P(Check, zaroIniWithALineWithoutMeaningIsNamed) {
  replaceLine("config/zaro.ini", "language=", "language de");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], MatchesRegex("policy settings\t.+/config/zaro.ini: line [0-9]+ is neither a section, .+"));
}

TEST_P(Check, damagedStoredPasswordIsNamedAndNotShown) {
  replaceLine(kDatabaseIni, "Password", "Password=zaro-secretbox-1:AAAA");
  EXPECT_EQ(wrongs(), only("password\t" + homeFile(kDatabaseIni) +
                           ": key Password: the stored password is damaged (set it again with zaroctl password)"));
  EXPECT_THAT(run({"check"}).out, Not(HasSubstr("AAAA")));
}

TEST_P(Check, storedPasswordOfAnotherKeyIsNamedWithFileAndKey) {
  ASSERT_EQ(run({"password"}, "secret\n").status, 0);
  writeFile("config/secret.key", std::string(32, 'k'));
  EXPECT_EQ(wrongs(), only("password\t" + homeFile(kDatabaseIni) +
                           ": key Password: the stored password does not open under the key " +
                           homeFile("config/secret.key") + " (set it again with zaroctl password)"));
  EXPECT_EQ(run({"admin", "id", "admin"}).err,
            "zaroctl: " + homeFile(kDatabaseIni) + ": the stored password does not open under the key " +
                homeFile("config/secret.key") + " (set it again with zaroctl password)\n");
}

TEST_P(Check, passwordInClearThatEverybodyCanReadIsNamed) {
  replaceLine(kDatabaseIni, "Password", "Password=open secret");
  ASSERT_EQ(chmod(homeFile(kDatabaseIni).c_str(), 0644), 0);
  EXPECT_THAT(wrongs(), Contains("password\t" + homeFile(kDatabaseIni) +
                                 ": the password is stored in clear, and every user can read the file (chmod o-r " +
                                 homeFile(kDatabaseIni) + ", or store it encrypted with zaroctl password)"));
  EXPECT_THAT(run({"check"}).out, Not(HasSubstr("open secret")));
  ASSERT_EQ(run({"password"}, "open secret\n").status, 0);
  EXPECT_THAT(run({"check"}).out, HasSubstr("ok\tpassword\tstored encrypted; the key opens it\n"));
}

TEST_P(Check, passwordOfADataSourceThatEverybodyCanReadIsNamed) {
  const std::string path = homeFile(kOdbcIni);
  const std::string before = readFile(path);  // it ends with the section
  const std::string finding = "data source\t" + path +
                              ": section [zaro]: it holds a password, and every user can read the file (chmod o-r " +
                              path + ", or store the password with zaroctl password)";
  for (const char* line : {"Password=sesame\n", "pwd=sesame\n", "pqopt=password=sesame\n"}) {
    writeFile(kOdbcIni, before + line);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_THAT(wrongs(), Contains(finding)) << line;
    EXPECT_THAT(run({"check"}).out, Not(HasSubstr("sesame"))) << line;
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    EXPECT_THAT(run({"check"}).out, Not(HasSubstr(finding))) << line;
  }
}

// Each setting may be as long as this, but the library puts them into one text.
TEST_P(Check, settingsThatAreTooLongTogetherAreNamed) {
  replaceLine(kDatabaseIni, "UserId", "UserId=" + std::string(250, 'u'));
  replaceLine(kDatabaseIni, "Password", "Password=" + std::string(250, 'p'));
  const std::string begin = "database settings\t" + homeFile(kDatabaseIni) + ": ";
  EXPECT_THAT(wrongs(), Contains(MatchesRegex(begin + "DataSourceName, UserId, Password and Database are too long "
                                                      "together, by [0-9]+ bytes")));
  replaceLine(kDatabaseIni, "UserId", "UserId=" + std::string(256, 'u'));
  EXPECT_THAT(wrongs(), Contains(begin + "UserId is longer than 255 bytes"));
}

TEST_P(Check, schemaOfAnotherVersionIsNamed) {
  const std::string newer = std::to_string(zaroruntime::kSchemaVersion + 1);
  session()->run("INSERT INTO schema_version (version) VALUES (" + newer + ")");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0],
              MatchesRegex("schema\tdatabase .+: schema version " + newer + ", but this program works on version " +
                           std::to_string(zaroruntime::kSchemaVersion)));
}

TEST_P(Check, patternsWithCapitalsAreNamed) {
  const auto db = session();
  db->run(GetParam() == Dialect::SQLite ? "PRAGMA ignore_check_constraints = 1"
                                        : "ALTER TABLE entity DROP CONSTRAINT entity_check");
  db->run("INSERT INTO entity (name, type) VALUES ('*@B.test', 6), ('Capitals are fine here', 0)");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], MatchesRegex("entities\tdatabase .+: patterns with capitals, for which the look-up of parents "
                                     "fails \\(zaroctl entity add .+\\): [0-9]+ \\(\"\\*@B.test\"\\)"));
}

TEST_P(Check, objectsWithoutAnOwnerAreNamedUpToFive) {
  for (const char* name : {"g", "f", "e", "d", "c", "b", "a"}) {
    session()->run("INSERT INTO named_object (name, type) VALUES ('" + std::string(name) + "', 1)");
  }
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], MatchesRegex("objects\tdatabase .+: without an owner, so that only the root sees them, while any "
                                     "administrator with a managing group may change and remove them through the library "
                                     "\\(zaroctl object remove --as ROOT ID\\): [0-9]+ \\(\"a\"\\), .+ and 2 more"));
  for (const auto& row : session()->rows("SELECT id FROM named_object WHERE length(name) = 1")) {
    EXPECT_EQ(run({"object", "remove", "--as", "admin", row[0].value_or("")}).status, 0);
  }
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(Check, missingIndexOfMembersIsNamedWithWhatMendsIt) {
  const std::string create = "CREATE INDEX address_group_member_by_address ON address_group_member (";
  const auto db = session();
  for (const char* indexed : {"", "address, group_id)", "lower(address)) WHERE group_id > 7"}) {
    db->run("DROP INDEX address_group_member_by_address");
    if (*indexed != '\0') {
      db->run(create + indexed);
    }
    const auto found = wrongs();
    ASSERT_EQ(found.size(), 1u) << indexed;
    EXPECT_THAT(found[0], MatchesRegex("groups\tdatabase .+: a member is looked for among those of all groups, .+"))
        << indexed;
    const std::string mending = found[0].substr(found[0].find("DROP INDEX"));
    db->runScript(directory().write("mending.sql", mending));
    EXPECT_EQ(run({"check"}).status, 0) << indexed;
  }
  db->run("DROP INDEX address_group_member_by_address");
  db->run("create index mine on address_group_member( LOWER (\"address\"), group_id)");
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(Check, databaseWithoutSchemaIsNamed) {
  session()->run("DROP TABLE schema_version");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], HasSubstr("there is no table schema_version (run " + homeFile("sql/schema.sql") + ")"));
}

struct BrokenStatement {
  const char* label;
  const char* text;
  const char* finding;
};

const BrokenStatement kBrokenStatements[] = {
    {"empty", "", "there is no statement"},
    {"unclosedLiteral", "SELECT id AS \"AdminID\" FROM administrator WHERE name='%s", "a literal does not end"},
    {"comment", "SELECT id AS \"AdminID\" FROM administrator WHERE name='%s' -- by name", "must not hold comments"},
    {"stacked", "SELECT id AS \"AdminID\" FROM administrator WHERE name='%s'; DELETE FROM entity",
     "more than one statement"},
    {"unknownConversion", "SELECT id AS \"AdminID\" FROM administrator WHERE name='%s%n'",
     "a percent sign is not followed"},
    {"textOutsideLiteral", "SELECT id AS \"AdminID\" FROM administrator WHERE name=%s",
     "%s stands outside a plain literal"},
    {"noParameter", "SELECT id AS \"AdminID\" FROM administrator", "takes parameters \"\" instead of \"s\""},
    {"otherParameters", "SELECT id AS \"AdminID\" FROM administrator WHERE name='%s' AND id=%u",
     "takes parameters \"su\" instead of \"s\""},
    {"syntax", "SELEKT '%s'", "SELEKT"},
    {"unknownTable", "SELECT id AS \"AdminID\" FROM administrators WHERE name='%s'", "administrators"},
    {"unknownColumn", "SELECT number AS \"AdminID\" FROM administrator WHERE name='%s'", "number"},
    {"otherAlias", "SELECT id AS \"Identifier\" FROM administrator WHERE name='%s'", "the result has no column AdminID"},
};

TEST_P(Check, brokenStatementFilesAreNamedWithTheirFault) {
  for (const BrokenStatement& broken : kBrokenStatements) {
    writeFile(kAdminId, broken.text);
    const auto found = wrongs();
    ASSERT_EQ(found.size(), 1u) << broken.label;
    EXPECT_THAT(found[0], StartsWith("statement\t" + homeFile(kAdminId) + ": ")) << broken.label;
    EXPECT_THAT(found[0], HasSubstr(broken.finding)) << broken.label;
  }
}

TEST_P(Check, unquotedAliasIsTakenAsTheLibraryTakesIt) {
  writeFile(kAdminId, "SELECT id AS AdminID FROM administrator WHERE name='%s'");
  EXPECT_EQ(run({"check"}).status, 0);
  EXPECT_EQ(run({"admin", "id", "admin"}).out, "1\n");
}

TEST_P(Check, semicolonAndLineEndsAtTheEndAreTaken) {
  writeFile(kAdminId, "SELECT id AS \"AdminID\" FROM administrator WHERE name='%s' ;\r\n\n");
  EXPECT_EQ(run({"check"}).status, 0);
  EXPECT_EQ(run({"admin", "id", "admin"}).out, "1\n");
}

TEST_P(Check, everyMissingStatementFileIsNamed) {
  for (const auto& entry : fs::directory_iterator(homeFile("sql"))) {
    if (entry.path().extension() == ".sql") {
      fs::remove(entry.path());
    }
  }
  const auto found = wrongs();
  EXPECT_GE(found.size(), 4u);
  EXPECT_THAT(
      found,
      Each(MatchesRegex("statement\t.+/sql/ui_[A-Za-z_0-9]+\\.sql: cannot open: No such file or directory \\(cp .+\\)")));
}

TEST_P(Check, missingStatementFileIsNamedWithWhatMendsIt) {
  fs::remove(homeFile(kAdminId));
  expectMendedByItsCommand("statement\t" + homeFile(kAdminId) + ": cannot open: No such file or directory (cp ");
}

TEST_P(Check, missingDirectoryIsOneFinding) {
  fs::remove_all(homeFile("sql"));
  EXPECT_EQ(wrongs(), only("statements\t" + homeFile("sql") + ": No such file or directory"));
}

TEST_P(Check, schemaThatIsNotThereIsOneFinding) {
  const auto db = session();
  db->run("UPDATE schema_version SET version = 1");
  db->run(GetParam() == Dialect::SQLite ? "DROP TABLE policy_rule_object" : "DROP TABLE policy_rule_object CASCADE");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u) << testing::PrintToString(found);
  EXPECT_THAT(found[0], HasSubstr("; run zaroctl schema upgrade"));
}

ZARO_ON_EVERY_DATABASE(Check);

class CheckSqlite : public Check {};

TEST_P(CheckSqlite, missingDatabaseFileIsNamedAndNotMade) {
  fs::remove(homeFile("data/zaro.db"));
  EXPECT_EQ(wrongs(), only("connection\tdatabase file " + homeFile("data/zaro.db") + ": No such file or directory"));
  EXPECT_FALSE(fs::exists(homeFile("data/zaro.db")));
}

TEST_P(CheckSqlite, fileThatIsNoDatabaseIsNamed) {
  writeFile("data/zaro.db", std::string(8192, 'x'));
  const auto found = wrongs();
  ASSERT_FALSE(found.empty());
  EXPECT_THAT(found[0], HasSubstr("data/zaro.db"));
  EXPECT_THAT(found[0], HasSubstr("file is not a database"));
}

TEST_P(CheckSqlite, passwordInClearAndMissingKeyAreNotWrong) {
  fs::remove(homeFile("config/secret.key"));
  replaceLine(kDatabaseIni, "Password", "Password=open secret");
  const ProgramResult result = run({"check"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("ok\tpassword\tstored in clear\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("open secret")));
}

INSTANTIATE_TEST_SUITE_P(, CheckSqlite, testing::Values(Dialect::SQLite), zarotest::dialectTestName);

class CheckPostgresql : public Check {};

TEST_P(CheckPostgresql, wrongPasswordIsToldButNeverShown) {
  replaceLine(kDatabaseIni, "Password", "Password=not-the-password");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], StartsWith("connection\tdata source zaro (driver psqlodbcw.so): "));
  EXPECT_THAT(found[0], HasSubstr("password authentication failed"));
  EXPECT_THAT(run({"check"}).out, Not(HasSubstr("not-the-password")));
  const ProgramResult lookUp = run({"admin", "id", "admin"});
  EXPECT_EQ(lookUp.status, 77);
  EXPECT_THAT(lookUp.err, HasSubstr("password authentication failed"));
  EXPECT_THAT(lookUp.err, Not(HasSubstr("not-the-password")));
}

TEST_P(CheckPostgresql, missingKeyOfAnEncryptedPasswordIsNamed) {
  fs::remove(homeFile("config/secret.key"));
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], StartsWith("key\t" + homeFile("config/secret.key") + ": cannot open the key file"));
  EXPECT_THAT(found[0], HasSubstr("(zaroctl password makes one, and stores the password again)"));
}

TEST_P(CheckPostgresql, unknownDatabaseIsNamed) {
  replaceLine(kDatabaseIni, "Database=", "Database=no_such_database");
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], HasSubstr("database \"no_such_database\" does not exist"));
}

TEST_P(CheckPostgresql, serverThatIsNoDatabaseIsNamed) {
  const zarotest::LoopbackServer other(zarotest::LoopbackServer::Manner::HangUp);
  replaceLine(kOdbcIni, "Port", "Port=" + other.port());
  const auto found = wrongs();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_THAT(found[0], HasSubstr("port " + other.port()));
}

INSTANTIATE_TEST_SUITE_P(, CheckPostgresql, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

TEST(CheckWithoutInstallation, saysWhatIsMissing) {
  const zarotest::TemporaryDirectory directory;
  const ProgramResult unset = zarotest::zaroctl({"check"});
  EXPECT_EQ(unset.status, 78);
  EXPECT_EQ(unset.out, "wrong\tinstallation\tZARO_HOME is not set: it names the installation directory\n");
  const ProgramResult absent = zarotest::zaroctl({"check", "--home", directory.path("none")});
  EXPECT_EQ(absent.status, 78);
  EXPECT_EQ(absent.out, "wrong\tinstallation\t" + directory.path("none/") +
                            ": ZARO_HOME names no directory: No such file or directory\n");
}

}  // namespace
