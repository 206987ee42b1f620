// One connection of the platform, on each database.
#include <gmock/gmock.h>
#include <sql.h>
#include <sqlext.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KxDataAccess.h"
#include "KxDbConnect.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/SqlSession.h"
#include "odbc/OdbcConnection.h"
#include "odbc/OdbcError.h"
#include "support/DriverManager.h"
#include "support/LoopbackServer.h"
#include "support/ProcessTest.h"
#include "support/TestInstallation.h"
#include "support/Thrown.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using zaroruntime::FailureKind;
using zarotest::Dialect;
using zarotest::LoopbackServer;
using zarotest::thrownBy;

class Connection : public zarotest::OnEveryDatabase {
 protected:
  void SetUp() override {
    OnEveryDatabase::SetUp();
    if (!IsSkipped()) {
      connect(m_connection);
    }
  }

  void connect(KxDbConnect& connection) {
    const auto& settings = home().settings();
    connection.connect(home().initString().c_str(), settings.dataSource.c_str(), settings.user.c_str(),
                       settings.password.c_str());
  }

  void execute(const std::string& statement, KxDbConnect::SQL_TYPE type = KxDbConnect::SQL_TYPE_DEFAULT) {
    m_connection.executeSQL(statement.c_str(), type);
  }

  std::string thrown(const std::string& statement) {
    return thrownBy([&] { execute(statement); });
  }

  // First column, called "v", of the first row.
  std::string first(const std::string& query) {
    execute(query);
    EXPECT_EQ(m_connection.fetchNextRow(), 0) << query;
    const char* value = m_connection.getColVal("v");
    return value != nullptr ? value : "NULL";
  }

  // A query of one text of so many bytes.
  std::string longText(std::size_t size) const {
    return home().dialect() == Dialect::SQLite
               ? "SELECT 'a'||substr(hex(zeroblob(" + std::to_string(size / 2 + 1) + ")),1," +
                     std::to_string(size - 2) + ")||'z' AS \"v\""
               : "SELECT 'a'||repeat('0'," + std::to_string(size - 2) + ")||'z' AS \"v\"";
  }

  KxDbConnect m_connection;
};

TEST_P(Connection, rowsAreReadByColumnName) {
  execute("SELECT 1 AS \"AdminID\", 'x' AS \"Name\" UNION ALL SELECT 2, 'y' ORDER BY 1");
  ASSERT_EQ(m_connection.fetchNextRow(), 0);
  EXPECT_STREQ(m_connection.getColVal("Name"), "x");
  EXPECT_STREQ(m_connection.getColVal("AdminID"), "1");
  EXPECT_STREQ(m_connection.getColVal("adminid"), "1");
  EXPECT_STREQ(m_connection.getColVal("Name"), "x") << "a column can be read again";
  EXPECT_EQ(m_connection.getColValInt("AdminID"), 1);
  ASSERT_EQ(m_connection.fetchNextRow(), 0);
  EXPECT_STREQ(m_connection.getColVal("Name"), "y");
  EXPECT_EQ(m_connection.fetchNextRow(), 1);
  EXPECT_EQ(m_connection.fetchNextRow(), 1);
  EXPECT_EQ(m_connection.getColVal("Name"), nullptr) << "there is no row any more";
}

TEST_P(Connection, nullIsNotTheEmptyText) {
  execute("SELECT NULL AS \"n\", '' AS \"e\"");
  ASSERT_EQ(m_connection.fetchNextRow(), 0);
  EXPECT_EQ(m_connection.getColVal("n"), nullptr);
  EXPECT_STREQ(m_connection.getColVal("e"), "");
  EXPECT_EQ(m_connection.getColValInt("n"), 0);
  EXPECT_EQ(m_connection.getColValInt("e"), 0);
}

TEST_P(Connection, missingColumnIsNullWithAReason) {
  execute("SELECT 1 AS \"v\"");
  ASSERT_EQ(m_connection.fetchNextRow(), 0);
  EXPECT_EQ(m_connection.getColVal("w"), nullptr);
  EXPECT_EQ(zaroruntime::lastFailure(), "the result has no column w");
  EXPECT_EQ(m_connection.getColValInt("x"), 0);
  EXPECT_EQ(zaroruntime::lastFailure(), "the result has no column x");
  EXPECT_STREQ(m_connection.getColVal("v"), "1");
}

TEST_P(Connection, identifiersUseAllThirtyTwoBits) {
  execute("SELECT 4294967290 AS \"v\"");
  ASSERT_EQ(m_connection.fetchNextRow(), 0);
  EXPECT_STREQ(m_connection.getColVal("v"), "4294967290");
  EXPECT_EQ(static_cast<unsigned int>(m_connection.getColValInt("v")), 4294967290u);
}

TEST_P(Connection, longColumnIsReadWhole) {
  for (const std::size_t size : {8190u, 8191u, 8192u, 16382u, 16383u, 16384u, 16385u, 65536u, 5000000u}) {
    const std::string text = first(longText(size));
    ASSERT_EQ(text.size(), size);
    EXPECT_EQ(text.front(), 'a');
    EXPECT_EQ(text.back(), 'z');
    EXPECT_EQ(text.find_first_not_of('0', 1), size - 1);
  }
}

TEST_P(Connection, longStatementGoesThrough) {
  const std::string text(3000000, 'x');
  EXPECT_EQ(first("SELECT '" + text + "' AS \"v\""), text);
}

TEST_P(Connection, severalLongColumnsOfManyRowsStayApart) {
  execute("CREATE TABLE t(a TEXT, b TEXT, c TEXT)");
  for (int row = 0; row < 5; ++row) {
    const char sign = static_cast<char>('a' + row);
    execute("INSERT INTO t VALUES('" + std::string(20000, sign) + "', NULL, '" + std::string(40000, sign) + "')");
  }
  execute("SELECT a,b,c FROM t ORDER BY a");
  for (int row = 0; row < 5; ++row) {
    ASSERT_EQ(m_connection.fetchNextRow(), 0);
    const char sign = static_cast<char>('a' + row);
    EXPECT_EQ(m_connection.getColVal("c"), std::string(40000, sign));
    EXPECT_EQ(m_connection.getColVal("b"), nullptr);
    EXPECT_EQ(m_connection.getColVal("a"), std::string(20000, sign));
  }
}

TEST_P(Connection, textsComeBackAsTheyWere) {
  for (const std::string& text :
       {std::string("äé漢字𝄞"), std::string("? {fn now()} %s %%"), std::string("a\nb\r\tc\x01\x1f"), std::string("\\'"),
        std::string("\"$1$$;--/*"), std::string(" leading and trailing ")}) {
    std::string doubled;
    for (const char sign : text) {
      doubled.append(sign == '\'' ? 2 : 1, sign);
    }
    EXPECT_EQ(first("SELECT '" + doubled + "' AS \"v\""), text);
  }
}

// Texts that both databases store, and others that neither must.
struct Bytes {
  const char* label;
  const char* text;
};

constexpr Bytes kNotUtf8[] = {
    {"a byte that only goes on", "\x80"},           {"a letter of Latin-1", "caf\xe9"},
    {"a character cut short", "\xe6\xbc"},          {"an overlong slash", "\xc0\xaf"},
    {"an overlong quote", "\xe0\x80\xa7"},          {"an overlong NUL", "\xc0\x80"},
    {"a half of a surrogate pair", "\xed\xa0\x80"}, {"U+110000", "\xf4\x90\x80\x80"},
    {"a byte that UTF-8 has not", "\xff"},
};

TEST_P(Connection, textsThatAreNotUtf8AreRefused) {
  execute("CREATE TABLE t(a TEXT)");
  for (const Bytes& bytes : kNotUtf8) {
    SCOPED_TRACE(bytes.label);
    const std::string text = std::string("1234567") + bytes.text;
    EXPECT_THAT(thrown("INSERT INTO t VALUES('" + text + "')"),
                HasSubstr("the statement is not text in UTF-8: its byte "));
  }
  EXPECT_THAT(thrown("SELECT '\xc3\xa9\xff'"), HasSubstr("the statement is not text in UTF-8: its byte 11 is 0xff"));
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0");
}

TEST_P(Connection, edgesOfUtf8AreStored) {
  for (const char* text : {"\x01", "\x7f", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xee\x80\x80",
                           "\xef\xbb\xbf", "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_EQ(first(std::string("SELECT '") + text + "' AS \"v\""), text);
  }
}

TEST_P(Connection, transactionGoesOnAfterATextThatIsNotUtf8) {
  execute("CREATE TABLE t(a TEXT)");
  execute("BEGIN");
  execute("INSERT INTO t VALUES('a')");
  EXPECT_THAT(thrown("INSERT INTO t VALUES('\xff')"), HasSubstr("not text in UTF-8"));
  execute("INSERT INTO t VALUES('b')");
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "2");
}

TEST_P(Connection, statementsWithoutColumnsHaveNoRows) {
  execute("CREATE TABLE t(a INTEGER)");
  EXPECT_EQ(m_connection.fetchNextRow(), 1);
  execute("UPDATE t SET a=1 WHERE a=2");
  EXPECT_EQ(m_connection.fetchNextRow(), 1) << "an update of nothing is no error";
  execute("DELETE FROM t");
  EXPECT_EQ(m_connection.fetchNextRow(), 1);
}

TEST_P(Connection, nothingExecutedIsTold) {
  EXPECT_EQ(m_connection.fetchNextRow(), -1);
  EXPECT_EQ(m_connection.fetchNextResultSet(), -1);
  EXPECT_EQ(m_connection.getColVal("v"), nullptr);
  EXPECT_EQ(m_connection.getColValInt("v"), 0);
  EXPECT_THAT(thrown("SELECT * FROM nowhere"), HasSubstr("SQLExecDirect: ["));
  EXPECT_EQ(m_connection.fetchNextRow(), -1) << "a failed statement has no result";
}

TEST_P(Connection, oneResultSetIsTheLast) {
  execute("SELECT 1 AS \"v\"");
  EXPECT_EQ(m_connection.fetchNextResultSet(), 1);
  execute("SELECT 1 AS \"v\"", KxDbConnect::SQL_TYPE_MSSQL);
  EXPECT_EQ(m_connection.fetchNextRow(), 0);
  execute("CREATE TABLE t(a INTEGER)", KxDbConnect::SQL_TYPE_MSSQL);
  EXPECT_EQ(m_connection.fetchNextRow(), 1);
}

TEST_P(Connection, errorsCarryStateNativeCodeAndText) {
  EXPECT_THAT(thrown("SELECT * FROM nowhere"), AllOf(HasSubstr("nowhere"), HasSubstr("("), HasSubstr("[")));
  EXPECT_THAT(thrown("SELEKT"), HasSubstr("syntax error"));
}

TEST_P(Connection, stackedStatementsAreRefused) {
  execute("CREATE TABLE t(a INTEGER)");
  EXPECT_THAT(thrown("SELECT 1; DROP TABLE t"), HasSubstr("more than one statement"));
  EXPECT_THAT(thrown("SELECT 1 -- ?"), HasSubstr("must not hold comments"));
  EXPECT_THAT(thrown(""), HasSubstr("there is no statement"));
  EXPECT_THAT(thrownBy([&] { m_connection.executeSQL(nullptr, KxDbConnect::SQL_TYPE_DEFAULT); }),
              HasSubstr("there is no statement"));
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0") << "the table is still there";
}

TEST_P(Connection, transactionIsCommittedOrRolledBack) {
  const std::string begin = home().dialect() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN";
  execute("CREATE TABLE t(a INTEGER)");
  execute(begin);
  execute("INSERT INTO t VALUES(1)");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "0") << "not seen by others yet";
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1");
  execute(begin);
  execute("INSERT INTO t VALUES(2)");
  execute("ROLLBACK");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1");
}

TEST_P(Connection, commitWithoutTransactionSucceeds) {
  execute("COMMIT");
  EXPECT_EQ(m_connection.fetchNextRow(), 1);
  execute("commit;");
}

TEST_P(Connection, transactionWithinATransactionIsRefusedAndTheFirstGoesOn) {
  execute("CREATE TABLE t(a INTEGER)");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  EXPECT_EQ(thrown("BEGIN"), "a transaction is open already");
  execute("INSERT INTO t VALUES(2)");
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "2");
}

// Statements of an installation may be laid out by its administrator.
TEST_P(Connection, beginIsSeenBehindBlanksOfAnyLength) {
  execute("CREATE TABLE t(a INTEGER)");
  execute(std::string(130, '\n') + "begin");
  execute("INSERT INTO t VALUES(1)");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "0");
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1");
}

TEST_P(Connection, transactionThatWasBegunUnseenIsCommitted) {
  execute("CREATE TABLE t(a INTEGER)");
  SQLCHAR begin[] = "BEGIN";
  ASSERT_TRUE(SQL_SUCCEEDED(SQLExecDirect(m_connection.getStmtHandle(), begin, SQL_NTS)));
  execute("INSERT INTO t VALUES(1)");
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1");
}

TEST_P(Connection, failedCommitLeavesNothingButTheRollback) {
  execute("CREATE TABLE t(a INTEGER PRIMARY KEY)");
  execute("CREATE TABLE child(a INTEGER REFERENCES t(a) DEFERRABLE INITIALLY DEFERRED)");
  const std::string begin = home().dialect() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN";
  execute(begin);
  execute("INSERT INTO t VALUES(1)");
  execute("INSERT INTO child VALUES(77)");
  EXPECT_THAT(thrown("COMMIT"), AnyOf(HasSubstr("FOREIGN KEY"), HasSubstr("foreign key")));
  for (const std::string& statement : {begin, std::string("INSERT INTO t VALUES(2)"), std::string("COMMIT")}) {
    EXPECT_THAT(thrown(statement), AllOf(HasSubstr("the transaction was rolled back after a failure: "),
                                         AnyOf(HasSubstr("FOREIGN KEY"), HasSubstr("foreign key"))))
        << statement;
  }
  home().sql("INSERT INTO t VALUES(3)");  // nobody waits for the transaction's locks meanwhile
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT max(a) AS \"v\" FROM t"), "3");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1");
  execute(begin);
  execute("INSERT INTO t VALUES(4)");
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "2");
}

TEST_P(Connection, diagnosticsOutlastTheQuestionWhetherTheTransactionIsOpen) {
  execute("BEGIN");
  thrown("SELECT * FROM nowhere");
  char text[512] = "";
  EXPECT_EQ(m_connection.getError(SQL_HANDLE_STMT, m_connection.getStmtHandle(), text, sizeof text), 0);
  EXPECT_THAT(text, HasSubstr("nowhere"));
  execute("COMMIT");
}

TEST_P(Connection, copyThroughTheClientIsRefused) {
  for (const char* statement :
       {"COPY administrator TO STDOUT", "copy administrator from stdin", "COPY (SELECT 1) TO STDOUT",
        "COPY administrator TO STDIN", "COPY administrator FROM STDOUT"}) {
    EXPECT_THAT(thrown(statement), HasSubstr("COPY from STDIN and to STDOUT are not supported")) << statement;
  }
}

TEST_P(Connection, failedStatementDoesNotSilentlyUndoTheTransaction) {
  execute("CREATE TABLE t(a INTEGER PRIMARY KEY)");
  execute(home().dialect() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN");
  execute("INSERT INTO t VALUES(1)");
  EXPECT_THAT(thrown("INSERT INTO t VALUES(1)"), AnyOf(HasSubstr("UNIQUE"), HasSubstr("unique")));
  execute("INSERT INTO t VALUES(2)");
  execute("COMMIT");
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "2");
}

TEST_P(Connection, constraintsOfTheSchemaHold) {
  EXPECT_THAT(thrown("INSERT INTO administrator_entity (administrator_id, entity_id) VALUES (77, 77)"),
              AnyOf(HasSubstr("FOREIGN KEY"), HasSubstr("foreign key")));
}

TEST_P(Connection, kindsOfFailuresAreToldApart) {
  const bool isSqlite = GetParam() == Dialect::SQLite;
  const struct {
    const char* label;
    std::string statement;
    FailureKind kind;
  } cases[] = {
      {"syntax", "SELEKT 1", FailureKind::Other},
      {"name taken", "INSERT INTO administrator (name) VALUES ('alice')", FailureKind::Constraint},
      {"name too long", "INSERT INTO administrator (name) VALUES ('" + std::string(513, 'x') + "')",
       FailureKind::Constraint},
      {"no such row", "INSERT INTO administrator_entity VALUES (1, 77)", FailureKind::Constraint},
      {"row locked", isSqlite ? "BEGIN IMMEDIATE" : "SELECT 1 FROM administrator FOR UPDATE NOWAIT",
       FailureKind::Contention},
  };
  if (isSqlite) {
    const std::string path = home().directory().path("config/odbc.ini");
    zaroruntime::IniFile ini(path);
    ini.set("zaro", "Timeout", "50");  // milliseconds that a locked row is waited for
    ini.write(path, 0644);
    connect(m_connection);
  }
  execute("INSERT INTO administrator (name) VALUES ('alice')");
  zaroruntime::forgetFailures();
  EXPECT_EQ(zaroruntime::lastFailureKind(), FailureKind::None);
  const auto other = home().session();
  for (const auto& c : cases) {
    if (c.kind == FailureKind::Contention) {
      other->run(isSqlite ? "BEGIN IMMEDIATE" : "BEGIN");
      other->run("UPDATE administrator SET name = 'bob'");
    }
    const std::string text = thrown(c.statement);
    EXPECT_EQ(zaroruntime::lastFailure(), text) << c.label;
    EXPECT_EQ(zaroruntime::lastFailureKind(), c.kind) << c.label << ": " << zaroruntime::lastFailure();
  }
  zaroruntime::forgetFailures();
  EXPECT_EQ(zaroruntime::lastFailure(), "");
}

TEST_P(Connection, handlesServeForDiagnostics) {
  thrown("SELECT * FROM nowhere");
  char text[512] = "";
  EXPECT_NE(m_connection.getStmtHandle(), nullptr);
  EXPECT_EQ(m_connection.getError(SQL_HANDLE_STMT, m_connection.getStmtHandle(), text, sizeof text), 0);
  EXPECT_THAT(text, HasSubstr("nowhere"));
  char cut[8] = "";
  EXPECT_EQ(m_connection.getError(SQL_HANDLE_STMT, m_connection.getStmtHandle(), cut, sizeof cut), 0);
  EXPECT_EQ(std::string(cut), std::string(text).substr(0, 7));
  EXPECT_EQ(m_connection.getError(SQL_HANDLE_STMT, nullptr, text, sizeof text), 1);
  EXPECT_EQ(m_connection.getError(SQL_HANDLE_STMT, m_connection.getStmtHandle(), nullptr, 0), -1);
  execute("SELECT 1");
  EXPECT_EQ(m_connection.getError(SQL_HANDLE_STMT, m_connection.getStmtHandle(), text, sizeof text), 1);
  EXPECT_STREQ(text, "");
}

TEST_P(Connection, unconnectedObjectSaysSo) {
  KxDbConnect connection;
  EXPECT_EQ(connection.fetchNextRow(), -1);
  EXPECT_EQ(connection.getStmtHandle(), nullptr);
  EXPECT_THAT(thrownBy([&] { connection.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_DEFAULT); }),
              HasSubstr("not connected"));
}

TEST_P(Connection, statementConnectsOnceTheCauseIsGone) {
  const std::string path = home().directory().path("config/odbc.ini");
  std::filesystem::rename(path, path + ".away");
  KxDbConnect connection;
  EXPECT_THAT(thrownBy([&] { connect(connection); }), HasSubstr("odbc.ini: cannot open"));
  EXPECT_THAT(thrownBy([&] { connection.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_DEFAULT); }),
              HasSubstr("odbc.ini: cannot open"));
  std::filesystem::rename(path + ".away", path);
  connection.executeSQL("SELECT 1 AS \"v\"", KxDbConnect::SQL_TYPE_DEFAULT);
  EXPECT_EQ(connection.fetchNextRow(), 0);
}

TEST_P(Connection, cutConnectionStringIsRefused) {
  KxDbConnect connection;
  const std::string cut = home().initString() + std::string(511, 'x');
  const char* refusal = "the connection string was cut at 511 bytes";
  EXPECT_THAT(thrownBy([&] { connection.connect(cut.substr(0, 511).c_str(), "zaro", "", ""); }), HasSubstr(refusal));
  EXPECT_THAT(thrownBy([&] { connection.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_DEFAULT); }), HasSubstr(refusal))
      << "and no statement goes elsewhere";
  // An open connection is closed before it is asked to go elsewhere.
  EXPECT_THAT(thrownBy([&] { m_connection.connect(cut.substr(0, 511).c_str(), "zaro", "", ""); }), HasSubstr(refusal));
  EXPECT_THAT(thrown("SELECT 1"), HasSubstr(refusal));
}

TEST_P(Connection, unknownDataSourceAndMissingDriverAreNamed) {
  KxDbConnect connection;
  EXPECT_THAT(thrownBy([&] { connection.connect(home().initString().c_str(), "nope", "", ""); }),
              HasSubstr("odbc.ini: there is no section [nope]"));
  const std::string path = home().directory().path("config/odbc.ini");
  zaroruntime::IniFile ini(path);
  ini.set("zaro", "Driver", "libnosuchdriver.so");
  ini.write(path, 0644);
  EXPECT_THAT(thrownBy([&] { connect(connection); }), HasSubstr("libnosuchdriver.so"));
}

ZARO_ON_EVERY_DATABASE(Connection);

// Whatever fails after that would otherwise be told as the failure of the commit.
TEST_P(Connection, commitIsDoneWhenTheDatabaseHasSaidSo) {
  execute("CREATE TABLE t(a INTEGER)");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  zarotest::driverManagerHooks().failsToCountColumns = [] { return true; };
  EXPECT_EQ(thrown("COMMIT"), "nothing thrown");
  zarotest::driverManagerHooks() = {};
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "1");
}

TEST_P(Connection, transactionIsOpenWhenTheDatabaseHasSaidSo) {
  execute("CREATE TABLE t(a INTEGER)");
  zarotest::driverManagerHooks().failsToCountColumns = [] { return true; };
  EXPECT_EQ(thrown("BEGIN"), "nothing thrown");
  zarotest::driverManagerHooks() = {};
  execute("INSERT INTO t VALUES(1)");
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0");
}

class SqliteConnection : public Connection {};

TEST_P(SqliteConnection, missingOrForeignFileIsNamedAndNotMade) {
  KxDbConnect connection;
  const auto refusal = [&](const std::string& file) {
    return thrownBy([&] { connection.connect(("ODBC;DATABASE=" + file).c_str(), "zaro", "", ""); });
  };
  EXPECT_THAT(refusal("data/missing.db"), HasSubstr("data/missing.db: No such file or directory"));
  EXPECT_FALSE(std::filesystem::exists(home().directory().path("data/missing.db")));
  home().directory().write("data/text.db", std::string(5000, 'x'));
  refusal("data/text.db");
  EXPECT_THAT(
      thrownBy([&] { connection.executeSQL("SELECT count(*) FROM administrator", KxDbConnect::SQL_TYPE_DEFAULT); }),
      HasSubstr("not a database"));
}

TEST_P(SqliteConnection, temporaryDatabaseIsNotTakenForTheFile) {
  zaroruntime::OdbcConnection connection;
  EXPECT_THROW(connection.connect("DRIVER=libsqlite3odbc.so;Database=:memory:", Dialect::SQLite, 5),
               zaroruntime::OdbcError);
  EXPECT_FALSE(connection.isConnected());
}

TEST_P(SqliteConnection, passwordCannotRedirectTheDatabase) {
  const std::string evil = home().directory().write("evil.db", "");
  KxDbConnect connection;
  const std::string password = "x;Database=" + evil;
  connection.connect(("ODBC;DRIVER=;DSN=zaro;UID=;PWD=" + password + ";DATABASE=data/zaro.db").c_str(), "zaro", "",
                     password.c_str());
  connection.executeSQL("SELECT count(*) AS \"v\" FROM administrator", KxDbConnect::SQL_TYPE_DEFAULT);
  EXPECT_EQ(connection.fetchNextRow(), 0);
}

TEST_P(SqliteConnection, failingHalfwayThroughTheRowsIsThrown) {
  // Rows are delivered before the overflow is met.
  execute("CREATE TABLE t(a INTEGER)");
  execute("INSERT INTO t VALUES(1),(2),(-9223372036854775808)");
  EXPECT_THAT(thrownBy([&] {
                execute("SELECT abs(a) AS \"v\" FROM t");
                while (m_connection.fetchNextRow() == 0) {
                }
              }),
              HasSubstr("integer overflow"));
}

struct FailureCase {
  const char* label;
  const char* statement;
  const char* text;
};

const FailureCase kFatalFailures[] = {
    {"full database", "INSERT INTO t VALUES(hex(zeroblob(500000)))", "database or disk is full"},
    {"conflict that rolls back", "INSERT OR ROLLBACK INTO t VALUES('seed')", "UNIQUE"},
    {"trigger that rolls back", "DELETE FROM t", "not to be deleted"},
};

TEST_P(SqliteConnection, transactionThatTheDatabaseRolledBackIsLost) {
  execute("CREATE TABLE t(a TEXT UNIQUE)");
  execute("INSERT INTO t VALUES('seed')");
  home().sql("CREATE TRIGGER kept BEFORE DELETE ON t BEGIN SELECT RAISE(ROLLBACK, 'not to be deleted'); END");
  execute("PRAGMA max_page_count=" +
          std::to_string(std::stoi(first("SELECT page_count AS \"v\" FROM pragma_page_count")) + 4));
  for (const FailureCase& test : kFatalFailures) {
    execute("BEGIN IMMEDIATE");
    execute("INSERT INTO t VALUES('a')");
    EXPECT_THAT(thrown(test.statement), HasSubstr(test.text)) << test.label;
    EXPECT_THAT(thrown("INSERT INTO t VALUES('b')"),
                AllOf(HasSubstr("the transaction was rolled back after a failure: "), HasSubstr(test.text)))
        << test.label;
    EXPECT_THAT(thrown("COMMIT"), HasSubstr("the transaction was rolled back")) << test.label;
    EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1") << test.label;
    execute("ROLLBACK");
    execute("UPDATE t SET a='seed'");
  }
}

TEST_P(SqliteConnection, commitsAreOnTheDiskUnlessTheDataSourceSaysOtherwise) {
  EXPECT_EQ(first("SELECT synchronous AS \"v\" FROM pragma_synchronous"), "2");
  const std::string path = home().directory().path("config/odbc.ini");
  zaroruntime::IniFile ini(path);
  ini.set("zaro", "SyncPragma", "NORMAL");
  ini.write(path, 0644);
  connect(m_connection);
  EXPECT_EQ(first("SELECT synchronous AS \"v\" FROM pragma_synchronous"), "1");
}

TEST_P(SqliteConnection, changeOfAnImmutableFileIsNoticed) {
  const std::string path = home().directory().path("own.db");
  const std::string writable = "DRIVER=libsqlite3odbc.so;JournalMode=WAL;Database=" + path + ";";
  const std::string immutable = "DRIVER=libsqlite3odbc.so;Database=file:" + path + "?immutable=1;";
  zaroruntime::OdbcConnection writer;
  writer.connect(writable, Dialect::SQLite, 5);
  writer.execute("CREATE TABLE t(a INTEGER)");
  writer.disconnect();

  for (const bool isWriterOpen : {true, false}) {
    zaroruntime::OdbcConnection reader;
    reader.connect(immutable, Dialect::SQLite, 5);
    reader.execute("SELECT count(*) FROM t");
    ASSERT_TRUE(reader.fetch());
    EXPECT_EQ(reader.value(0), isWriterOpen ? "0" : "1");
    writer.connect(writable, Dialect::SQLite, 5);
    writer.execute("INSERT INTO t VALUES(1)");
    if (!isWriterOpen) {
      writer.disconnect();
    }
    try {
      reader.execute("SELECT count(*) FROM t");
      ADD_FAILURE() << "the change was not noticed";
    } catch (const zaroruntime::OdbcError& failure) {
      EXPECT_EQ(failure.what(), "database file " + path + ": another program changed it while it was read");
      EXPECT_EQ(failure.kind(), FailureKind::Contention);
    }
    EXPECT_FALSE(reader.isConnected());
    writer.disconnect();
  }
}

INSTANTIATE_TEST_SUITE_P(, SqliteConnection, testing::Values(Dialect::SQLite), zarotest::dialectTestName);

class PostgresqlConnection : public Connection {
 protected:
  void setPort(const std::string& port) {
    const std::string path = home().directory().path("config/odbc.ini");
    zaroruntime::IniFile ini(path);
    ini.set("zaro", "Servername", "127.0.0.1");
    ini.set("zaro", "Port", port);
    ini.write(path, 0644);
  }

  // Has the data source name the driver by a link that tells nothing of it.
  void setUnknownDriver() {
    const std::string link = home().directory().path("libotherserver.so");
    std::filesystem::create_symlink(loadedLibrary("psqlodbcw.so"), link);
    const auto server = *zarotest::postgresqlServer();
    home().directory().write("config/odbc.ini",
                             "[zaro]\nDriver=" + link + "\npqopt=host=" + server.host + " port=" + server.port + "\n");
  }

 private:
  // Path of a library that this process has loaded.
  static std::string loadedLibrary(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      const std::size_t path = line.find('/');
      if (path != std::string::npos && line.compare(line.rfind('/') + 1, std::string::npos, name) == 0) {
        return line.substr(path);
      }
    }
    ADD_FAILURE() << name << " is not loaded";
    return "";
  }
};

TEST_P(PostgresqlConnection, everyPasswordWorks) {
  int number = 0;
  for (const std::string& password :
       {std::string("plain"), std::string("se;mi"), std::string("br}ace"), std::string("{open"), std::string("{x}"),
        std::string("}}"), std::string("per%41cent%"), std::string("qu'ote\"s"), std::string("back\\slash"),
        std::string("eq=ual"), std::string("PWD=x;DATABASE=y"), std::string(" blanks "), std::string("plus+and&"),
        std::string("äé漢"), std::string("#@!?*()[]")}) {
    const std::string role = home().settings().database + "_" + std::to_string(++number);
    std::string doubled;
    for (const char sign : password) {
      doubled.append(sign == '\'' ? 2 : 1, sign);
    }
    home().sql("CREATE ROLE " + role + " LOGIN PASSWORD '" + doubled + "'");
    KxDbConnect connection;
    const std::string init =
        "ODBC;DRIVER=;DSN=zaro;UID=" + role + ";PWD=" + password + ";DATABASE=" + home().settings().database;
    EXPECT_EQ(thrownBy([&] {
                connection.connect(init.c_str(), "zaro", role.c_str(), password.c_str());
                connection.executeSQL("SELECT current_user AS \"v\"", KxDbConnect::SQL_TYPE_DEFAULT);
                ASSERT_EQ(connection.fetchNextRow(), 0);
                EXPECT_EQ(connection.getColVal("v"), role);
              }),
              "nothing thrown")
        << password;
    home().sql("DROP ROLE " + role);
  }
}

TEST_P(PostgresqlConnection, wrongPasswordIsRefusedAtOnceAndNotShown) {
  KxDbConnect connection;
  connection.setDbRetrialTimeOut(3600);
  connection.setDbReconnectTrial(3);  // would take an hour if they were made
  const std::string text = thrownBy(
      [&] { connection.connect(home().initString().c_str(), "zaro", home().settings().user.c_str(), "wrong-secret"); });
  EXPECT_THAT(text, HasSubstr("password authentication failed"));
  EXPECT_THAT(text, Not(HasSubstr("wrong-secret")));
}

TEST_P(PostgresqlConnection, trialsAreMadeAsOftenAsSet) {
  const LoopbackServer server(LoopbackServer::Manner::HangUp);
  setPort(server.port());
  KxDbConnect alone;
  EXPECT_NE(thrownBy([&] { connect(alone); }), "nothing thrown");
  const int attemptsOfOne = server.accepted();
  ASSERT_GT(attemptsOfOne, 0);

  KxDbConnect patient;
  patient.setDbRetrialTimeOut(2);
  patient.setDbReconnectTrial(4);
  EXPECT_NE(thrownBy([&] { connect(patient); }), "nothing thrown");
  EXPECT_EQ(server.accepted(), attemptsOfOne + 5 * attemptsOfOne);
}

TEST_P(PostgresqlConnection, silentServerIsGivenUpAfterTheConnectTimeOut) {
  const LoopbackServer server(LoopbackServer::Manner::KeepSilent);
  setPort(server.port());
  KxDbConnect connection;
  connection.setDbConnectTimeOut(2);
  connection.setDbRetrialTimeOut(10);
  connection.setDbReconnectTrial(1);
  EXPECT_THAT(thrownBy([&] { connect(connection); }), HasSubstr("data source zaro: "));
  EXPECT_EQ(server.accepted(), 2) << "an attempt that takes the usual 30 seconds leaves no time for the second";
}

TEST_P(PostgresqlConnection, threadsThatConnectAtOnceTakeTurns) {
  auto server = std::make_unique<LoopbackServer>(LoopbackServer::Manner::KeepSilent);
  setPort(server->port());
  const auto failureWithin = [&](int seconds) {
    KxDbConnect connection;
    connection.setDbConnectTimeOut(seconds);
    return thrownBy([&] { connect(connection); });
  };
  std::string firstOne;
  std::thread connecting([&] { firstOne = failureWithin(0); });  // until the server is gone
  while (server->accepted() == 0) {
    std::this_thread::yield();
  }
  EXPECT_THAT(failureWithin(1), HasSubstr("another thread was still connecting"));
  EXPECT_EQ(server->accepted(), 1);
  server.reset();
  connecting.join();
  EXPECT_THAT(firstOne, AllOf(HasSubstr("data source zaro: "), Not(HasSubstr("another thread"))));
}

TEST_P(PostgresqlConnection, processForkedWhileAThreadConnectsConnectsToo) {
  // Neither attempt is limited: the thread connects until the server is gone, and the child until its process test ends.
  const auto connectWithoutLimit = [&] {
    KxDbConnect connection;
    connection.setDbConnectTimeOut(0);
    return thrownBy([&] { connect(connection); });
  };
  auto server = std::make_unique<LoopbackServer>(LoopbackServer::Manner::KeepSilent);
  const std::string port = zarotest::postgresqlServer()->port;
  setPort(server->port());
  std::string parent;
  std::thread connecting([&] { parent = connectWithoutLimit(); });
  while (server->accepted() == 0) {
    std::this_thread::yield();
  }
  setPort(port);
  runInOwnProcess([&] {
    EXPECT_EQ(connectWithoutLimit(), "nothing thrown");
    std::fflush(nullptr);
    _exit(HasFailure() ? 1 : 0);  // what the other thread had allocated would count as leaked
  });
  server.reset();
  connecting.join();
  EXPECT_NE(parent, "nothing thrown") << "the thread was connecting all the time";
}

TEST_P(PostgresqlConnection, noTrialBeginsAfterTheRetryTimeOut) {
  const LoopbackServer server(LoopbackServer::Manner::KeepSilent);
  setPort(server.port());
  KxDbConnect connection;
  connection.setDbConnectTimeOut(2);
  connection.setDbRetrialTimeOut(1);
  connection.setDbReconnectTrial(5);
  EXPECT_NE(thrownBy([&] { connect(connection); }), "nothing thrown");
  EXPECT_EQ(server.accepted(), 1);
}

TEST_P(PostgresqlConnection, backslashNeverEscapesAQuote) {
  const std::string database = home().settings().database;
  home().sql("ALTER DATABASE " + database + " SET standard_conforming_strings=off");
  const std::string path = home().directory().path("config/odbc.ini");
  zaroruntime::IniFile ini(path);
  ini.set("zaro", "ConnSettings", "SET search_path TO public");
  ini.write(path, 0644);
  KxDbConnect connection;
  connect(connection);
  for (const char* before : {"SELECT 1", "SET standard_conforming_strings=off"}) {
    connection.executeSQL(before, KxDbConnect::SQL_TYPE_DEFAULT);
    connection.executeSQL("SELECT '\\'' OR 1=1' AS \"v\"", KxDbConnect::SQL_TYPE_DEFAULT);
    ASSERT_EQ(connection.fetchNextRow(), 0) << before;
    EXPECT_STREQ(connection.getColVal("v"), "\\' OR 1=1") << before;
  }
}

struct StackedCase {
  const char* statement;
  bool stacked;
};

// Where two statements look like one with a literal, and the other way round.
const StackedCase kStackedCases[] = {
    {"SELECT 1 AS a$$; INSERT INTO t VALUES(1); SELECT 2 AS a$$", true},
    {"SELECT 1 AS a$$b$; INSERT INTO t VALUES(1); SELECT 2 AS a$$b$", true},
    {"SELECT 1 AS a$$b$, '$b$; INSERT INTO t VALUES(1)'", false},
    {"SELECT $b$; INSERT INTO t VALUES(1); SELECT $b$", false},
    {"SELECT 1 AS \xC3\xA4$$; INSERT INTO t VALUES(1); SELECT 2 AS \xC3\xA4$$", true},
    {"SELECT E'a'\n'\\''; INSERT INTO t VALUES(1); SELECT E'\\''", true},
    {"SELECT E'a' \r '\\''; INSERT INTO t VALUES(1); SELECT E'\\''", true},
    {"SELECT E'a'\n'\\'; INSERT INTO t VALUES(1)'", false},
    {"SELECT 'a'\n'\\'; INSERT INTO t VALUES(1); SELECT ''", true},
    {"SELECT E'a','\\'; INSERT INTO t VALUES(1)", true},
    {"SELECT 1 AS a$E,'\\'; INSERT INTO t VALUES(1)", true},
    {"SELECT 1 AS \"a\",E'\\'; INSERT INTO t VALUES(1)'", false},
};

TEST_P(PostgresqlConnection, readsLiteralsAsTheServerDoes) {
  execute("CREATE TABLE t(a INTEGER)");
  for (const StackedCase& test : kStackedCases) {
    std::string statement = test.statement;
    SQLExecDirect(m_connection.getStmtHandle(), reinterpret_cast<SQLCHAR*>(statement.data()), SQL_NTS);
    EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), test.stacked ? "1" : "0") << test.statement;
    EXPECT_EQ(thrown(test.statement), test.stacked ? "more than one statement" : "nothing thrown") << test.statement;
    execute("TRUNCATE t");
  }
}

// The same server under a driver whose name tells nothing. Values for such a driver are in braces, which this one takes
// for a part of them.
class UnknownServer : public PostgresqlConnection {
 protected:
  void SetUp() override {
    PostgresqlConnection::SetUp();
    if (!IsSkipped()) {
      m_braced = "\"{" + home().settings().database + "}\"";
      setUnknownDriver();
      home().sql("CREATE ROLE " + m_braced + " LOGIN PASSWORD 'secret'");
      home().sql("CREATE DATABASE " + m_braced + " OWNER " + m_braced);
    }
  }

  void TearDown() override {
    if (!m_braced.empty()) {
      home().sql("DROP DATABASE " + m_braced + " WITH (FORCE)");
      home().sql("DROP ROLE " + m_braced);
    }
    PostgresqlConnection::TearDown();
  }

  std::string initString() const { return "ODBC;DATABASE=" + home().settings().database; }

  void connectTo(KxDbConnect& connection) {
    connection.connect(initString().c_str(), "zaro", home().settings().database.c_str(), "secret");
  }

  std::string m_braced;  // the name of role and database
};

TEST_P(UnknownServer, mustReadBackslashesAsTheyAre) {
  {
    KxDbConnect connection;
    connectTo(connection);
    connection.executeSQL("SELECT 'a\\' AS \"v\"", KxDbConnect::SQL_TYPE_DEFAULT);
    ASSERT_EQ(connection.fetchNextRow(), 0);
    EXPECT_STREQ(connection.getColVal("v"), "a\\");
  }
  home().sql("ALTER DATABASE " + m_braced + " SET standard_conforming_strings=off");
  const char* const refusal = "data source zaro: the server takes a backslash in a text for an escape";
  KxDbConnect connection;
  EXPECT_THAT(thrownBy([&] { connectTo(connection); }), HasSubstr(refusal));
  EXPECT_THAT(thrownBy([&] { connection.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_DEFAULT); }), HasSubstr(refusal));
}

// It cannot be asked whether the transaction is still open.
TEST_P(UnknownServer, anyFailureEndsTheTransaction) {
  connectTo(m_connection);
  execute("CREATE TABLE t(a INTEGER PRIMARY KEY)");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  EXPECT_THAT(thrown("INSERT INTO t VALUES(1)"), HasSubstr("unique"));
  EXPECT_THAT(thrown("INSERT INTO t VALUES(2)"), HasSubstr("the transaction was rolled back after a failure: "));
  EXPECT_THAT(thrown("COMMIT"), HasSubstr("the transaction was rolled back after a failure: "));
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0");
}

// Nor can its session be reset, and a SELECT may call anything.
TEST_P(UnknownServer, nothingOfASessionReachesItsNextUser) {
  KxDataAccess pool;
  pool.init(initString().c_str(), 1, "zaro", home().settings().database.c_str(), "secret");
  KxDbConnect* connection = pool.getConnect();
  connection->executeSQL("SELECT set_config('search_path','pg_catalog',false)", KxDbConnect::SQL_TYPE_DEFAULT);
  pool.returnConnect(connection);
  connection = pool.getConnect();
  connection->executeSQL("SELECT current_setting('search_path') AS \"v\"", KxDbConnect::SQL_TYPE_DEFAULT);
  ASSERT_EQ(connection->fetchNextRow(), 0);
  EXPECT_STRNE(connection->getColVal("v"), "pg_catalog");
  pool.returnConnect(connection);
}

INSTANTIATE_TEST_SUITE_P(, UnknownServer, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

TEST_P(PostgresqlConnection, lostTransactionIsNeitherRepeatedNorCommitted) {
  execute("CREATE TABLE t(a INTEGER)");
  const std::string pid = first("SELECT pg_backend_pid() AS \"v\"");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  home().sql("SELECT pg_terminate_backend(" + pid + ", 5000)");
  EXPECT_NE(thrown("INSERT INTO t VALUES(2)"), "nothing thrown");
  EXPECT_THAT(thrown("INSERT INTO t VALUES(3)"), HasSubstr("lost in a transaction"));
  EXPECT_THAT(thrown("COMMIT"), HasSubstr("lost in a transaction"));
  EXPECT_EQ(zaroruntime::lastFailureKind(), FailureKind::ConnectionLost);
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0") << "and the connection is a new one";
}

// As with a driver that leaves further results on the server until they are asked for.
TEST_P(PostgresqlConnection, connectionLostBetweenResultsLosesTheTransaction) {
  execute("CREATE TABLE t(a INTEGER)");
  const std::string pid = first("SELECT pg_backend_pid() AS \"v\"");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  first("SELECT 1 AS \"v\"");
  home().sql("SELECT pg_terminate_backend(" + pid + ", 5000)");
  zarotest::driverManagerHooks().moreResults = [](SQLHSTMT statement) {
    std::string next = "SELECT 2";
    SQLFreeStmt(statement, SQL_CLOSE);
    return SQLExecDirect(statement, reinterpret_cast<SQLCHAR*>(next.data()), SQL_NTS);
  };
  EXPECT_NE(thrownBy([&] { m_connection.fetchNextResultSet(); }), "nothing thrown");
  zarotest::driverManagerHooks() = {};
  EXPECT_THAT(thrown("COMMIT"), HasSubstr("the connection was lost in a transaction"));
  EXPECT_EQ(zaroruntime::lastFailureKind(), FailureKind::ConnectionLost);
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0") << "and the connection is a new one";
}

// The driver does not run it under a savepoint, so the server refuses the rest and answers COMMIT, though it rolls
// back, with success.
TEST_P(PostgresqlConnection, transactionThatTheServerWillNotCommitIsLost) {
  execute("CREATE TABLE t(a INTEGER)");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  EXPECT_THAT(thrown("ROLLBACK TO nowhere"), HasSubstr("does not exist"));
  EXPECT_THAT(thrown("INSERT INTO t VALUES(2)"), HasSubstr("the transaction was rolled back after a failure: "));
  EXPECT_THAT(thrown("COMMIT"), HasSubstr("the transaction was rolled back after a failure: "));
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0");
}

TEST_P(PostgresqlConnection, rollbackThatMeetsADeadConnectionHasRolledBack) {
  execute("CREATE TABLE t(a INTEGER)");
  const std::string pid = first("SELECT pg_backend_pid() AS \"v\"");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  home().sql("SELECT pg_terminate_backend(" + pid + ", 5000)");
  execute("ROLLBACK");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0");
}

TEST_P(PostgresqlConnection, copyOfAFileOfTheServerWorks) {
  execute("CREATE TABLE t(stdin INTEGER)");
  execute("COPY t(stdin) FROM '/dev/null'");
  execute("COPY (SELECT stdin FROM t) TO '/dev/null'");
}

TEST_P(PostgresqlConnection, statementThatMetADeadConnectionIsNotSentAgain) {
  execute("CREATE TABLE t(a INTEGER)");
  const std::string pid = first("SELECT pg_backend_pid() AS \"v\"");
  home().sql("SELECT pg_terminate_backend(" + pid + ", 5000)");
  EXPECT_NE(thrown("INSERT INTO t VALUES(1)"), "nothing thrown");
  EXPECT_EQ(first("SELECT count(*) AS \"v\" FROM t"), "0") << "and the next statement has a new connection";
  EXPECT_NE(first("SELECT pg_backend_pid() AS \"v\""), pid);
  // A session that ends itself has run its statement once.
  EXPECT_NE(thrown("SELECT pg_terminate_backend(pg_backend_pid())"), "nothing thrown");
}

TEST_P(PostgresqlConnection, transactionsInEachOthersWayAreContention) {
  execute("INSERT INTO administrator (name) VALUES ('alice')");
  execute("BEGIN ISOLATION LEVEL REPEATABLE READ");
  first("SELECT count(*) AS \"v\" FROM administrator");
  home().sql("UPDATE administrator SET is_root = 1");
  thrown("UPDATE administrator SET is_root = 0");
  EXPECT_EQ(zaroruntime::lastFailureKind(), FailureKind::Contention) << zaroruntime::lastFailure();
  execute("ROLLBACK");
}

TEST_P(PostgresqlConnection, commitWhoseAnswerIsLostIsInDoubt) {
  execute("CREATE TABLE t(a INTEGER)");
  const std::string pid = first("SELECT pg_backend_pid() AS \"v\"");
  execute("BEGIN");
  execute("INSERT INTO t VALUES(1)");
  home().sql("SELECT pg_terminate_backend(" + pid + ", 5000)");
  EXPECT_THAT(thrown("COMMIT"), HasSubstr("whether the transaction was committed is not known"));
  EXPECT_EQ(zaroruntime::lastFailureKind(), FailureKind::CommitInDoubt);
  EXPECT_EQ(thrown("INSERT INTO t VALUES(2)"), "whether the transaction was committed is not known");
  EXPECT_EQ(thrown("COMMIT"), "whether the transaction was committed is not known");
  execute("ROLLBACK");
  execute("INSERT INTO t VALUES(3)");
}

TEST_P(PostgresqlConnection, scriptWhoseCommitIsNotAnsweredIsInDoubt) {
  const std::string script = home().directory().write("t.sql", "CREATE TABLE t(a INTEGER);");
  const auto session = home().session();
  const std::string pid = session->value("SELECT pg_backend_pid()").value_or("");
  try {
    session->runScripts({script}, [&] { home().sql("SELECT pg_terminate_backend(" + pid + ", 5000)"); });
    ADD_FAILURE() << "nothing thrown";
  } catch (const zaroruntime::RuntimeError& failure) {
    EXPECT_EQ(failure.kind(), FailureKind::CommitInDoubt) << failure.what();
    EXPECT_THAT(failure.what(), HasSubstr("whether the transaction was committed is not known"));
  }
}

INSTANTIATE_TEST_SUITE_P(, PostgresqlConnection, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

}  // namespace
