// The process's locale, which is neither the runtime's to change nor to rely on.
#include <gmock/gmock.h>

#include <cctype>
#include <clocale>
#include <cstdlib>
#include <functional>
#include <string>

#include "KxDbConnect.h"
#include "support/ProcessTest.h"
#include "support/TestInstallation.h"
#include "support/Thrown.h"
#include "support/TurkishLocales.h"

namespace {

using testing::Not;
using testing::StrEq;
using zarotest::Dialect;
using zarotest::setCtype;
using zarotest::thrownBy;
using zarotest::TurkishLocales;

// The two that a process may have: its own, and the one that the environment names.
struct Locales {
  const char* process;
  const char* environment;
};

class Locale : public zarotest::OnEveryDatabase {
 protected:
  // Runs `body` in a process with these locales.
  void inProcessWith(const Locales& locales, const std::function<void()>& body) const {
    runInOwnProcess([&] {
      setenv("LC_ALL", locales.environment, 1);
      setCtype(locales.process);
      body();
    });
  }

  void inEachTurkishLocale(const std::function<void()>& body) const {
    const TurkishLocales turkish;
    for (const char* name : TurkishLocales::kNames) {
      SCOPED_TRACE(name);
      inProcessWith({name, name}, [&] {
        ASSERT_NE(std::tolower('I'), 'i') << "not the locale that it should be";
        body();
      });
    }
  }

  void connect(KxDbConnect& connection, const std::string& password) const {
    const auto& settings = home().settings();
    connection.connect(home().initString().c_str(), settings.dataSource.c_str(), settings.user.c_str(), password.c_str());
  }

  void connect(KxDbConnect& connection) const { connect(connection, home().settings().password); }
};

ZARO_ON_EVERY_DATABASE(Locale);

TEST_P(Locale, columnsAreFoundInAnyLetterCase) {
  inEachTurkishLocale([&] {
    KxDbConnect connection;
    connect(connection);
    connection.executeSQL("SELECT 7 AS \"adminid\", 8 AS \"MEMBERID\"", KxDbConnect::SQL_TYPE_DEFAULT);
    ASSERT_EQ(connection.fetchNextRow(), 0);
    EXPECT_STREQ(connection.getColVal("AdminID"), "7");
    EXPECT_STREQ(connection.getColVal("MemberId"), "8");
  });
}

TEST_P(Locale, transactionsAreSeenInAnyLetterCase) {
  home().sql("CREATE TABLE t(a INTEGER)");
  inEachTurkishLocale([&] {
    KxDbConnect connection;
    connect(connection);
    connection.executeSQL("DELETE FROM t", KxDbConnect::SQL_TYPE_DEFAULT);
    connection.executeSQL("begin", KxDbConnect::SQL_TYPE_DEFAULT);
    connection.executeSQL("INSERT INTO t VALUES(1)", KxDbConnect::SQL_TYPE_DEFAULT);
    connection.executeSQL("COMMIT", KxDbConnect::SQL_TYPE_DEFAULT);
    EXPECT_EQ(home().value("SELECT count(*) FROM t"), "1");
  });
}

// Whether the connection comes about or not.
TEST_P(Locale, staysTheProcessesWhenConnecting) {
  const TurkishLocales turkish;
  constexpr Locales kLocales[] = {
      {"C", "tr_TR.UTF-8"},
      {"C", "tr_TR.ISO-8859-9"},
      {"C.UTF-8", "tr_TR.ISO-8859-9"},
      {"tr_TR.ISO-8859-9", "C"},
  };
  for (const Locales& locales : kLocales) {
    SCOPED_TRACE(std::string(locales.process) + " beside " + locales.environment);
    inProcessWith(locales, [&] {
      const int lower = std::tolower('I');
      KxDbConnect connection;
      connect(connection);
      EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), locales.process);
      EXPECT_EQ(std::tolower('I'), lower);
      if (home().dialect() == Dialect::PostgreSQL) {
        KxDbConnect refused;
        EXPECT_THAT(thrownBy([&] { connect(refused, "not this one"); }), Not(StrEq("nothing thrown")));
        EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), locales.process);
      }
    });
  }
}

}  // namespace
