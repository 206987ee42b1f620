// The library's first operations, from program to database and back.
#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "ZaroErrC.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/StoredPassword.h"
#include "miscUtils.h"
#include "support/LibraryTest.h"

// Of the leak sanitizer; absent in other builds.
extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using ZARO::RdbmsInterface;
using zarotest::Dialect;

class Store : public zarotest::OnEveryDatabaseWithLibrary {
 protected:
  static bool initialise() { return RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr); }
  static bool initialisePool(int size) {
    return RdbmsInterface::Init(size, nullptr, nullptr, nullptr, nullptr, nullptr);
  }

  // Adds an administrator; returns the identifier.
  std::string addAdministrator(const std::string& name) const {
    std::string doubled;
    for (const char sign : name) {
      doubled.append(sign == '\'' ? 2 : 1, sign);
    }
    const auto session = home().session();
    session->run("INSERT INTO administrator (name) VALUES ('" + doubled + "')");
    return session->value("SELECT id FROM administrator WHERE name='" + doubled + "'").value_or("nothing");
  }

  static std::string lookUp(const std::string& name) {
    RdbmsInterface db;
    unsigned int id = 0;
    const int code = miscUtils::getAdminId(db, name.c_str(), id);
    return code == 0 ? std::to_string(id) : "code " + std::to_string(code);
  }

  void setDatabaseIni(const char* key, const std::string& value) const {
    const std::string path = home().directory().path("config/database.ini");
    zaroruntime::IniFile ini(path);
    ini.set("Database_Settings", key, value);
    ini.write(path, 0600);
  }
};

TEST_P(Store, administratorsAreFoundByName) {
  for (const bool pooled : {false, true}) {
    inOwnProcess([&] {
      ASSERT_TRUE(pooled ? initialisePool(2) : initialise());
      for (const std::string& name :
           {std::string("alice"), std::string("o'brien"), std::string("''"), std::string("100%"), std::string("%s%n%d"),
            std::string("äé漢字𝄞"), std::string("tab\tand\nline\x01"), std::string("back\\slash"),
            std::string("a;b--c/*"), std::string("x' OR '1'='1"), std::string(500, 'n')}) {
        const std::string unique = name + (pooled ? "2" : "");
        EXPECT_EQ(lookUp(unique), "code 1002") << unique;
        const std::string id = addAdministrator(unique);
        EXPECT_EQ(lookUp(unique), id) << unique;
      }
      EXPECT_EQ(lookUp("ALICE"), "code 1002") << "capitals count";
      EXPECT_EQ(lookUp(""), "code 1002");
    });
    EXPECT_THAT(log(), Not(HasSubstr(" error: ")));
  }
}

TEST_P(Store, nullNameAndOverlongNameAreDatabaseFailures) {
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    RdbmsInterface db;
    unsigned int id = 7;
    EXPECT_EQ(miscUtils::getAdminId(db, nullptr, id), ZaroErrC::DatabaseFailure);
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("ui_GetAdminId.sql: argument 1 is a null text"));
    EXPECT_EQ(miscUtils::getAdminId(db, std::string(1024 * 1024, 'n').c_str(), id), ZaroErrC::DatabaseFailure);
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("bytes and its buffer has 4096"));
    EXPECT_EQ(miscUtils::getAdminId(db, std::string(5000, '\'').c_str(), id), ZaroErrC::DatabaseFailure);
    EXPECT_EQ(id, 7u);
  });
  EXPECT_THAT(
      log(),
      HasSubstr(
          "miscUtils::_getAdminId: Exception \"ui_GetAdminId.sql: argument 1 is a null text\" thrown for statement \n"));
}

TEST_P(Store, largestIdentifierComesBack) {
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    home().sql("INSERT INTO administrator (id, name) VALUES (4294967294, 'last')");
    EXPECT_EQ(lookUp("last"), "4294967294");
  });
}

TEST_P(Store, transactionIsCommittedOrRolledBackWithItsObject) {
  inOwnProcess([&] {
    ASSERT_TRUE(initialisePool(1));
    {
      RdbmsInterface db;
      ASSERT_TRUE(db.startTransaction());
      ASSERT_TRUE(db.startTransaction());
      db.executeSQL("INSERT INTO administrator (name) VALUES ('kept')");
      EXPECT_TRUE(db.commitTransaction());
      EXPECT_TRUE(db.commitTransaction()) << "a commit without transaction succeeds";
    }
    {
      RdbmsInterface db;
      ASSERT_TRUE(db.startTransaction());
      db.executeSQL("INSERT INTO administrator (name) VALUES ('dropped')");
    }
    EXPECT_NE(lookUp("kept"), "code 1002");
    EXPECT_EQ(lookUp("dropped"), "code 1002");
  });
}

TEST_P(Store, poolIsRebuiltOnRequest) {
  inOwnProcess([&] {
    EXPECT_EQ(RdbmsInterface::ReInit(), 0) << "nothing to rebuild";
    ASSERT_TRUE(initialisePool(2));
    const std::string id = addAdministrator("alice");
    RdbmsInterface onLoan;
    EXPECT_EQ(RdbmsInterface::ReInit(), 0);
    EXPECT_EQ(lookUp("alice"), id);
  });
}

TEST_P(Store, failedConnectionIsCode1003WithTheReason) {
  inOwnProcess([&] {
    ASSERT_TRUE(RdbmsInterface::Init("nope", nullptr, nullptr, nullptr)) << "no connection is made yet";
    EXPECT_EQ(lookUp("alice"), "code 1003");
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("there is no section [nope]"));
  });
  EXPECT_THAT(log(), HasSubstr("RdbmsInterface::RdbmsInterface: Exception \""));
}

TEST_P(Store, missingDriverIsCode1003WithTheReason) {
  home().directory().write("config/odbc.ini", "[zaro]\nDriver=libnosuchdriver.so\n");
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    EXPECT_EQ(lookUp("alice"), "code 1003");
    EXPECT_THAT(zaroruntime::lastFailure(), AllOf(HasSubstr("libnosuchdriver.so"), HasSubstr("package installed")));
  });
}

TEST_P(Store, wrongPasswordIsCode1003WithTheReason) {
  if (GetParam() == Dialect::SQLite) {
    GTEST_SKIP() << "SQLite has no passwords";
  }
  setDatabaseIni("Password", "wrong-secret");
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    EXPECT_EQ(lookUp("alice"), "code 1003");
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("password authentication failed"));
  });
  EXPECT_THAT(log(), Not(HasSubstr("wrong-secret")));
}

TEST_P(Store, poolThatCannotBeOpenedIsLoggedWithoutThePassword) {
  inOwnProcess([&] {
    // The pool that failed to open serves until the next Init, which forgets it.
    if (__lsan_disable != nullptr) {
      __lsan_disable();
    }
    EXPECT_FALSE(RdbmsInterface::Init(4, nullptr, "nope", "somebody", "very;secret", nullptr));
    EXPECT_EQ(lookUp("alice"), "code 1003");
    if (__lsan_enable != nullptr) {
      __lsan_enable();
    }
    EXPECT_TRUE(initialisePool(1)) << "a second attempt may succeed";
    EXPECT_EQ(lookUp("alice"), "code 1002");
  });
  EXPECT_THAT(log(),
              HasSubstr("thrown for KxDataAccess::init(ODBC;DRIVER=;DSN=nope;UID=somebody;PWD=********;DATABASE="));
  EXPECT_THAT(log(), Not(HasSubstr("very;secret")));
}

TEST_P(Store, missingAndBrokenStatementFilesAreNamed) {
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    const std::string path = home().directory().path("sql/ui_GetAdminId.sql");
    const std::string text = zarotest::readFile(path);
    std::filesystem::remove(path);
    EXPECT_EQ(lookUp("alice"), "code 1003");
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("ui_GetAdminId.sql: cannot open"));
    home().directory().write("sql/ui_GetAdminId.sql", "SELECT %q");
    EXPECT_EQ(lookUp("alice"), "code 1003");
    home().directory().write("sql/ui_GetAdminId.sql", "SELEKT '%s'");
    EXPECT_EQ(lookUp("alice"), "code 1003");
    EXPECT_THAT(zaroruntime::lastFailure(), HasSubstr("syntax error"));
    home().directory().write("sql/ui_GetAdminId.sql", "SELECT NULL AS \"AdminID\" WHERE ''<>'%s'");
    EXPECT_EQ(lookUp("alice"), "code 1002");
    home().directory().write("sql/ui_GetAdminId.sql", "SELECT 'x' AS \"AdminID\" WHERE ''<>'%s'");
    EXPECT_EQ(lookUp("alice"), "code 1002");
    home().directory().write("sql/ui_GetAdminId.sql", "SELECT 1 AS \"Other\" WHERE ''<>'%s'");
    EXPECT_EQ(lookUp("alice"), "code 1002");
    EXPECT_EQ(zaroruntime::lastFailure(), "the result has no column AdminID");
    home().directory().write("sql/ui_GetAdminId.sql", text);
    EXPECT_EQ(lookUp("alice"), "code 1002");
  });
  EXPECT_THAT(log(), HasSubstr(" error: KxDbConnect::getColVal: the result has no column AdminID\n"));
}

TEST_P(Store, statementFilesMayLieInASubdirectory) {
  inOwnProcess([&] {
    setenv("ZARO_DB_DIR", "own", 1);
    home().directory().write("sql/own/ui_GetAdminId.sql", "SELECT 42 AS \"AdminID\" WHERE ''<>'%s'");
    ASSERT_TRUE(initialise());
    EXPECT_EQ(lookUp("anybody"), "42");
  });
}

TEST_P(Store, encryptedPasswordIsUsed) {
  zaroruntime::createSecretKey(home().directory().path("config/secret.key"));
  setDatabaseIni("Password",
                 zaroruntime::encryptPassword(home().settings().password, home().directory().path("config/secret.key")));
  const std::string id = addAdministrator("alice");
  inOwnProcess([&] {
    ASSERT_TRUE(initialise());
    EXPECT_EQ(lookUp("alice"), id);
  });
}

struct BadConfiguration {
  const char* label;
  const char* text;  // of database.ini
  const char* logged;
};

const BadConfiguration kBadConfigurations[] = {
    {"missing section", "[Other]\nDataSourceName=zaro\n", "Could not read DataSourceName from config file "},
    {"missing user", "[Database_Settings]\nDataSourceName=zaro\n", "Could not read UserId from config file "},
    {"missing database", "[Database_Settings]\nDataSourceName=zaro\nUserId=\n",
     "Could not read Database from config file "},
    {"not an ini file",
     "\x7f"
     "ELF",
     "Could not read DataSourceName from config file "},
};

TEST_P(Store, badConfigurationIsLogged) {
  for (const BadConfiguration& test : kBadConfigurations) {
    home().directory().write("config/database.ini", test.text);
    inOwnProcess([&] {
      EXPECT_FALSE(initialise()) << test.label;
      EXPECT_FALSE(initialisePool(1)) << test.label;
    });
    EXPECT_THAT(log(), HasSubstr(test.logged)) << test.label;
  }
  std::filesystem::remove(home().directory().path("config/database.ini"));
  std::filesystem::create_directory(home().directory().path("config/database.ini"));
  inOwnProcess([&] { EXPECT_FALSE(initialise()); });
  EXPECT_THAT(log(), HasSubstr("database.ini: not a regular file"));
  std::filesystem::remove(home().directory().path("config/database.ini"));
  inOwnProcess([&] { EXPECT_FALSE(initialise()); });
  EXPECT_THAT(log(), HasSubstr("Could not open config file " + home().directory().path("config/database.ini")));
  inOwnProcess([&] {
    unsetenv("ZARO_HOME");
    EXPECT_FALSE(initialise());
  });
  EXPECT_THAT(log(), HasSubstr("Environment variable \"ZARO_HOME\" not set"));
}

ZARO_ON_EVERY_DATABASE(Store);

}  // namespace
