// What a driver is told to connect with, from data sources and credentials.
#include "odbc/ConnectionString.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ZaroRuntime/RuntimeError.h"
#include "support/ProcessTest.h"
#include "support/TemporaryDirectory.h"
#include "support/TurkishLocales.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zaroruntime::DatabaseSettings;
using zaroruntime::Dialect;

class ConnectionString : public testing::Test {
 protected:
  ConnectionString() : m_here(m_directory.path()) { m_directory.write("data/zaro.db", ""); }

  // The string for a data source with this text in its section, or the refusal.
  std::string built(const std::string& section, const DatabaseSettings& settings) {
    m_directory.write("config/odbc.ini", "[zaro]\n" + section);
    try {
      return connectionString(zaroruntime::readDataSource(m_here, settings.dataSource), settings, m_here);
    } catch (const zaroruntime::RuntimeError& failure) {
      return std::string("refused: ") + failure.what();
    }
  }

  std::string sqlite(const std::string& options, const std::string& database) {
    return built("Driver=libsqlite3odbc.so\n" + options, {"zaro", "u", "p", database});
  }

  std::string postgresql(const std::string& options, const DatabaseSettings& settings) {
    return built("Driver=psqlodbcw.so\n" + options, settings);
  }

  zarotest::TemporaryDirectory m_directory;
  zaroruntime::Installation m_here;
};

TEST_F(ConnectionString, sqliteGetsFileAndSafeOptionsButNoCredentials) {
  EXPECT_EQ(sqlite("", "data/zaro.db"), "DRIVER=libsqlite3odbc.so;Database=" + m_directory.path("data/zaro.db") +
                                            ";JournalMode=WAL;SyncPragma=FULL;Timeout=2500;FKSupport=1;NoWCHAR=1;");
}

TEST_F(ConnectionString, sqliteFileMayBeAbsoluteOrNamedByTheDataSource) {
  const std::string path = m_directory.path("data/zaro.db");
  EXPECT_THAT(sqlite("", path), HasSubstr("Database=" + path + ";"));
  EXPECT_THAT(sqlite("Database=data/zaro.db\n", ""), HasSubstr("Database=" + path + ";"));
  EXPECT_THAT(sqlite("", ""), HasSubstr("no database is named"));
}

TEST_F(ConnectionString, dataSourceOverridesDefaultsWhateverTheCase) {
  const std::string text = sqlite("timeout=100\n", "data/zaro.db");
  EXPECT_THAT(text, HasSubstr(";timeout=100;"));
  EXPECT_THAT(text, Not(HasSubstr("Timeout=2500")));
}

TEST_F(ConnectionString, lettersAreAsciiWhateverTheLocale) {
  const zarotest::TurkishLocales locales;
  for (const char* name : zarotest::TurkishLocales::kNames) {
    SCOPED_TRACE(name);
    runInOwnProcess([&] {
      zarotest::setCtype(name);
      const std::string text = built("DRIVER=LIBSQLITE3ODBC.SO\nTIMEOUT=100\n", {"zaro", "u", "p", "data/zaro.db"});
      EXPECT_THAT(text, HasSubstr(";TIMEOUT=100;"));
      EXPECT_THAT(text, Not(HasSubstr("Timeout=2500")));
    });
  }
}

TEST_F(ConnectionString, sqliteFileMustBeThere) {
  EXPECT_THAT(sqlite("", "data/other.db"), HasSubstr("data/other.db: No such file or directory"));
  EXPECT_THAT(sqlite("", "data"), HasSubstr("data: not a regular file"));
}

TEST_F(ConnectionString, sqliteFileMustBeOpenToTheEffectiveUser) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "takes root, who can be another user for a while";
  }
  EXPECT_THAT(sqlite("", "data/zaro.db"), StartsWith("DRIVER="));
  ASSERT_EQ(chmod(m_directory.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(m_directory.path("data/zaro.db").c_str(), 0600), 0);
  runInOwnProcess([&] {
    ASSERT_EQ(seteuid(65534), 0);
    EXPECT_THAT(sqlite("", "data/zaro.db"), HasSubstr("this user may not read "));
  });
}

TEST_F(ConnectionString, semicolonsCannotReachSqlite) {
  m_directory.write("a;Database=b", "");
  EXPECT_THAT(sqlite("", "a;Database=b"), HasSubstr("Database: a semicolon cannot be passed to this driver"));
  EXPECT_THAT(sqlite("Timeout=1;LoadExt=/x\n", "data/zaro.db"), HasSubstr("Timeout: a semicolon"));
}

TEST_F(ConnectionString, rowLosingOptionOfSqliteIsRefused) {
  EXPECT_THAT(sqlite("StepAPI=1\n", "data/zaro.db"), HasSubstr("StepAPI must be 0: rows would be lost"));
  EXPECT_THAT(sqlite("stepapi=yes\n", "data/zaro.db"), HasSubstr("StepAPI must be 0"));
  EXPECT_THAT(sqlite("StepAPI=0\n", "data/zaro.db"), StartsWith("DRIVER="));
}

TEST_F(ConnectionString, postgresqlPasswordIsBraced) {
  EXPECT_EQ(postgresql("Servername=db.example.test\nPort=5433\n", {"zaro", "user", "p}w{;%", "d b"}),
            "DRIVER=psqlodbcw.so;Database=d b;UID=user;PWD={p}}w{;%};"
            "pqopt={tcp_user_timeout=30000 keepalives_idle=30 keepalives_interval=10 keepalives_count=3};"
            "SSLmode=prefer;Protocol=7.4-2;Servername=db.example.test;Port=5433;");
}

TEST_F(ConnectionString, parametersOfTheClientLibraryComeAfterOurs) {
  EXPECT_THAT(postgresql("PQOPT=keepalives_idle=5 application_name=mail\n", {"zaro", "u", "p", "d"}),
              HasSubstr(";pqopt={tcp_user_timeout=30000 keepalives_idle=30 keepalives_interval=10 keepalives_count=3 "
                        "keepalives_idle=5 application_name=mail};"));
}

TEST_F(ConnectionString, ofSeveralServersTheOneThatTakesChangesIsAskedFor) {
  const DatabaseSettings settings = {"zaro", "u", "p", "d"};
  EXPECT_THAT(postgresql("Servername=a.example.test,b.example.test\n", settings),
              HasSubstr("keepalives_count=3 target_session_attrs=read-write};"));
  EXPECT_THAT(postgresql("Servername=a,b\npqopt=target_session_attrs=any\n", settings),
              HasSubstr("target_session_attrs=read-write target_session_attrs=any};"));
  EXPECT_THAT(postgresql("Servername=a.example.test\n", settings), Not(HasSubstr("target_session_attrs")));
}

TEST_F(ConnectionString, semicolonsReachPostgresqlInThePasswordOnly) {
  EXPECT_THAT(postgresql("", {"zaro", "us;er", "p", "d"}), HasSubstr("UID: a semicolon cannot be passed"));
  EXPECT_THAT(postgresql("", {"zaro", "u", "p", "d;b"}), HasSubstr("Database: a semicolon cannot be passed"));
}

TEST_F(ConnectionString, credentialsOfTheDataSourceDoNotCount) {
  const std::string text = postgresql("UID=other\npwd=other\nDatabase=other\nSSLmode=require\n", {"zaro", "u", "p", "d"});
  EXPECT_THAT(text, Not(HasSubstr("other")));
  EXPECT_THAT(text, HasSubstr("SSLmode=require"));
  EXPECT_THAT(text, Not(HasSubstr("prefer")));
}

TEST_F(ConnectionString, otherTransactionBehaviourOfPostgresqlIsRefused) {
  const DatabaseSettings settings = {"zaro", "u", "p", "d"};
  EXPECT_THAT(postgresql("Protocol=7.4-0\n", settings), HasSubstr("Protocol must be 7.4-2"));
  EXPECT_THAT(postgresql("a1=7.4-1\n", settings), HasSubstr("A1 must be 7.4-2"));
  EXPECT_THAT(postgresql("Protocol=7.4-2\n", settings), StartsWith("DRIVER="));
}

TEST_F(ConnectionString, emptyDatabaseIsNoName) {
  EXPECT_THAT(sqlite("Database=\n", ""), HasSubstr("no database is named"));
  EXPECT_THAT(postgresql("Database=\n", {"zaro", "u", "p", ""}), HasSubstr("no database is named"));
}

TEST_F(ConnectionString, reservedSignsInKeysAreRefused) {
  EXPECT_THAT(postgresql("a;b=c\n", {"zaro", "u", "p", "d"}), HasSubstr("reserve"));
}

TEST_F(ConnectionString, overlongStringsAreRefused) {
  EXPECT_THAT(postgresql("x=" + std::string(40000, 'x') + "\n", {"zaro", "u", "p", "d"}), HasSubstr("too long"));
}

TEST_F(ConnectionString, otherDriversGetTheOptionsAsTheyAre) {
  EXPECT_EQ(built("Driver=libtdsodbc.so\nServer=s\n", {"zaro", "u", "p", "d"}),
            "DRIVER=libtdsodbc.so;Database={d};UID={u};PWD={p};Server={s};");
}

TEST_F(ConnectionString, missingDataSourceIsNamed) {
  EXPECT_THAT(built("", {"zaro", "", "", "d"}), HasSubstr("odbc.ini: section [zaro]: key Driver is missing"));
  EXPECT_THAT(built("", {"nope", "", "", "d"}), HasSubstr("odbc.ini: there is no section [nope]"));
  EXPECT_THAT(built("", {"", "", "", "d"}), HasSubstr("there is no section []"));
}

TEST_F(ConnectionString, dialectIsToldFromTheDriver) {
  const auto dialectOf = [&](const std::string& driver) {
    m_directory.write("config/odbc.ini", "[zaro]\nDriver=" + driver + "\n");
    return zaroruntime::readDataSource(m_here, "zaro").dialect;
  };
  EXPECT_EQ(dialectOf("libsqlite3odbc.so"), Dialect::SQLite);
  EXPECT_EQ(dialectOf("SQLite3"), Dialect::SQLite);
  EXPECT_EQ(dialectOf("psqlodbca.so"), Dialect::PostgreSQL);
  EXPECT_EQ(dialectOf("PostgreSQL Unicode"), Dialect::PostgreSQL);
  EXPECT_EQ(dialectOf("libtdsodbc.so"), Dialect::Other);
}

}  // namespace
